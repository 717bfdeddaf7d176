"""What is made of Python's own objects: days of open files, tables of whatever can be iterated over.

Those objects are asked here and not by the library: they may take long or have no end, and a thread that the interpreter
ends while it runs code of Python's must have no frame of the library below it.
"""

from __future__ import annotations

from ._native import Day, ServerCenter, SnapshotWarning, Table

TYPE_CHECKING = False  # as in _frames.py
if TYPE_CHECKING:
    from typing import Any, Iterable, Optional

    from ._native import Record, _Catalogues, _Fields


def _buffer(source: Any) -> Optional[memoryview]:
    try:
        return memoryview(source)
    except TypeError:
        return None


def _read(source: Any, catalogue: Optional[_Catalogues], format: Optional[str], threads: int) -> Day:
    """Called by what the user calls, which is where a warning points to."""
    content = _buffer(source)
    if content is None and hasattr(source, "read"):
        content = memoryview(source.read())
    if content is None:
        day = Day._read_path(source, catalogue, format, threads)
    else:
        day = Day._read_bytes(content, catalogue, format, threads)
    skipped = day._skipped()
    if skipped:
        import warnings

        warnings.warn(skipped, SnapshotWarning, stacklevel=3)
    return day


def _day_open(source: Any, catalogue: Optional[_Catalogues] = None, format: Optional[str] = None,
              threads: int = 0) -> Day:
    """Reads a day: a directory, a file, bytes, or an open binary file, packed with gzip or zstd or not.

    `catalogue` and `format` are for what no file name tells. Warns (SnapshotWarning) of skipped lines.
    """
    return _read(source, catalogue, format, threads)


def _server_open(source: Any) -> ServerCenter:
    """A center that has loaded a day from files; see Day.open."""
    center = ServerCenter()
    center._take(_read(source, None, None, 0))
    return center


def table(records: Iterable[Record], fields: _Fields = None) -> Table:
    """Records of one class as columns."""
    return Table(records, fields)


_day_of_list = Day.__init__
_table_of_list = Table.__init__


def _day_init(self: Day, records: Iterable[Record] = ()) -> None:
    """Of records of any catalogue."""
    _day_of_list(self, list(records))


def _table_init(self: Table, records: Iterable[Record], fields: _Fields = None) -> None:
    """Of records of one class."""
    _table_of_list(self, list(records), fields)


setattr(Day, "__init__", _day_init)
setattr(Day, "open", staticmethod(_day_open))
setattr(ServerCenter, "open", staticmethod(_server_open))
setattr(Table, "__init__", _table_init)
