"""Frames of pandas, which is imported when the first one is asked for."""

from __future__ import annotations

from . import _native
from ._native import Catalogue, Day, Record, Store, Table

TYPE_CHECKING = False  # by name, for type checkers: typing itself takes a third of the time of importing the package
if TYPE_CHECKING:
    from typing import Any, Iterable

    import pandas as pd  # type: ignore[import]

    from ._native import _Catalogues, _Dates, _Fields, _Markets


def _table_frame(self: Table, dates: _Dates = "date") -> pd.DataFrame:
    """A pandas.DataFrame.

    Texts that tell groups (market, product, currency, ...) are categories. Days are datetime.date or None; with
    dates="datetime64" pandas' own, NaT where unknown or beyond 2262; with dates="text" as they stand on the records.
    """
    import pandas

    columns = {}
    for name, column in self._series(dates).items():
        if isinstance(column, tuple):
            column = pandas.Categorical.from_codes(*column)
        columns[name] = column
    # The arrays are the frame's own: nothing is copied.
    return pandas.DataFrame(columns, copy=False)


def _catalogue_frame(self: Catalogue, market: _Markets = None, fields: _Fields = None,
                     dates: _Dates = "date") -> pd.DataFrame:
    """Instruments of everything, a market, several, or a TraderType as a pandas.DataFrame; see Table.frame."""
    return self.table(market, fields).frame(dates)


def _day_frame(self: Day, catalogue: _Catalogues = "instruments", fields: _Fields = None,
               dates: _Dates = "date") -> pd.DataFrame:
    """One catalogue as a pandas.DataFrame; see Table.frame."""
    return self.table(catalogue, fields).frame(dates)


def _store_frame(self: Store, catalogue: _Catalogues = "instruments", fields: _Fields = None,
                 dates: _Dates = "date") -> pd.DataFrame:
    """One catalogue as a pandas.DataFrame; see Table.frame."""
    return self.table(catalogue, fields).frame(dates)


def _day_baskets(self: Day) -> pd.DataFrame:
    """Every component of the funds' baskets as a pandas.DataFrame, a row each, with its fund's market and code."""
    funds, components = self._baskets()
    frame = components.frame()
    keys = funds.frame()
    frame.insert(0, "etf_market", keys.exchid)
    frame.insert(1, "etf_code", keys.etfcode)
    return frame


def frame(records: Iterable[Record], fields: _Fields = None, dates: _Dates = "date") -> pd.DataFrame:
    """Records of one class as a pandas.DataFrame; see Table.frame."""
    return Table(records, fields).frame(dates)


def diff(old: Day, new: Day, catalogue: _Catalogues = "instruments", ignore: Iterable[str] = ()) -> pd.DataFrame:
    """What changed from one day to another: a pandas.DataFrame of key, field, old and new.

    A record that came or went has one row without a field, and stands itself under new or old.
    """
    import pandas

    columns: Any = zip(("key", "field", "old", "new"), _native._diff(old, new, catalogue, set(ignore)))
    return pandas.DataFrame(dict(columns), dtype="object")


setattr(Table, "frame", _table_frame)
setattr(Catalogue, "frame", _catalogue_frame)
setattr(Day, "frame", _day_frame)
setattr(Day, "baskets", _day_baskets)
setattr(Store, "frame", _store_frame)
