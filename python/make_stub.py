"""Writes the stub of inscenter._native from what the module says of itself.

usage: make_stub.py DIRECTORY_OF_THE_PACKAGE

pybind11 puts a signature with types before each docstring, and records know their fields; what Python's type checkers
can be told beyond that stands in the tables here.
"""

import importlib
import inspect
import pathlib
import re
import sys

HEAD = '''\
# Made by make_stub.py.
import datetime
import os
from enum import IntFlag
from typing import (
    Any, Callable, Dict, Iterable, Iterator, List, Literal, Mapping, Optional, Sequence, Set, Tuple, TypeVar, Union,
    overload,
)

import numpy as np
import pandas as pd  # type: ignore[import]

_Key = Union[str, int, Tuple[str, str]]
_Markets = Union[None, str, Sequence[str], "TraderType"]
_Path = Union[str, "os.PathLike[str]"]
_Day = Union[str, datetime.date]
_Fields = Optional[Sequence[str]]
_Dates = Literal["date", "datetime64", "text"]
_Catalogues = Literal["instruments", "etfs", "bonds", "tenderbonds", "counterparties", "otcfundplans", "issuances",
                      "issuanceprices"]
_R = TypeVar("_R", bound="Record")
_T = TypeVar("_T")

__version__: str
'''

# By the parameter's name, where the module takes more than one type.
PARAMETERS = {
    "fields": "_Fields", "market": "_Markets", "what": "_Markets", "dates": "_Dates", "source": "Any", "path": "_Path",
    "directory": "_Path", "store": "_Path", "keys": "Sequence[_Key]", "key": "_Key", "day": "_Day",
    "records": "Iterable[Record]", "requested_schema": "object", "packing": "Optional[Literal['gzip', 'zstd']]",
    "callback": "Callable[[Change], object]", "default": "object",
}
_COLUMNS = "Dict[str, np.ndarray[Any, Any]]"
# What the module does not tell, by class and name: other classes have another thing under the same name.
RETURNS = {
    "_diff": "Tuple[List[Any], ...]",
    "Table._series": "Dict[str, Any]", "Table.columns": _COLUMNS, "Table.names": "Tuple[str, ...]",
    "Table.records": "List[Any]", "Table.__arrow_c_stream__": "object",
    "Day._baskets": "Tuple[Table, Table]", "Day.columns": _COLUMNS, "Day.counts": "Dict[str, int]",
    "Day.records": "List[Any]", "Day.__arrow_c_stream__": "object",
    "Catalogue.columns": _COLUMNS, "Catalogue.resolve": "List[Optional[Instrument]]",
    "Catalogue.__arrow_c_stream__": "object", "Catalogue.__iter__": "Iterator[Instrument]",
    "Catalogue.__getitem__": "Instrument", "Store.__getitem__": "Instrument",
    "Change.instruments": "List[Tuple[Optional[Instrument], Optional[Instrument]]]",
    "Subscription.__enter__": "Subscription",
}
WHOLE = {
    "Catalogue.get": ["def get(self, key: _Key) -> Optional[Instrument]: ...",
                      "def get(self, key: _Key, default: _T) -> Union[Instrument, _T]: ..."],
    "Catalogue.__contains__": ["def __contains__(self, key: object) -> bool: ..."],
    "Subscription.__exit__": ["def __exit__(self, *args: object) -> None: ..."],
}
RECORDS = ("Instrument", "OtcPlan", "Etf", "EtfComponent", "Bond", "TenderBond", "Counterparty", "Issuance",
           "IssuancePrice")


def split(parameters):
    """At commas outside of brackets."""
    parts, depth, begin = [], 0, 0
    for place, letter in enumerate(parameters):
        depth += (letter in "[({") - (letter in "])}")
        if letter == "," and depth == 0:
            parts.append(parameters[begin:place])
            begin = place + 1
    return [part.strip() for part in [*parts, parameters[begin:]] if part.strip()]


def parameter(text, own):
    name, _, rest = text.partition(": ")
    kind, _, default = rest.partition(" = ")
    if name in ("self", "arg0") and own and own in kind:
        return "self"
    kind = kind.replace("inscenter._native.", "")
    if kind in ("handle", "object", "function", "iterable", "Iterable") or (name, kind) in (("dates", "str"),):
        kind = PARAMETERS.get(name, "Any")
    if (name, kind) == ("catalogue", "str"):
        kind = "_Catalogues"
    # Any sequence or mapping becomes a list or dict on the way.
    kind = re.sub(r"^List\[", "Sequence[", re.sub(r"^Dict\[", "Mapping[", re.sub(r"^Set\[", "Iterable[", kind)))
    if default == "None" and not kind.startswith(("Optional", "_Fields", "_Markets", "object")):
        kind = f"Optional[{kind}]"
    return f"{name}: {kind}{' = ...' if default else ''}"


def signatures(name, doc, own):
    """Every signature of a function, from its docstring."""
    found = re.findall(rf"^(?:\d+\. )?{re.escape(name)}\((.*)\) -> (.*)$", doc or "", re.MULTILINE)
    for parameters, answer in found:
        if parameters == "*args, **kwargs":
            continue
        answer = RETURNS.get(f"{own}.{name}" if own else name, answer.replace("inscenter._native.", ""))
        # What is asked for by name may not be there.
        answer = f"Optional[{answer}]" if answer in RECORDS and name != "__getitem__" else answer
        yield f"def {name}({', '.join(parameter(part, own) for part in split(parameters))}) -> {answer}: ..."


def function(name, value, own, indent):
    if inspect.isfunction(value):  # put there by the package, with annotations
        signature = inspect.signature(value)
        taken = [key if key == "self" else f"{key}: {one.annotation}{'' if one.default is one.empty else ' = ...'}"
                 for key, one in signature.parameters.items()]
        if own and "self" not in signature.parameters:
            yield f"{indent}@staticmethod"
        yield f"{indent}def {name}({', '.join(taken)}) -> {signature.return_annotation}: ..."
        return
    lines = WHOLE.get(f"{own}.{name}") or list(signatures(name, value.__doc__, own))
    static = bool(own and lines) and "(self" not in lines[0]
    for line in lines:
        if len(lines) > 1:
            yield f"{indent}@overload"
        if static:
            yield f"{indent}@staticmethod"
        yield indent + line


def bound_class(name, value):
    base = value.__bases__[0].__name__
    yield f"class {name}{'' if base == 'pybind11_object' else f'({base})'}:"
    members = [f"    @property\n    def {key}(self) -> {kind}: ..." for key, kind in properties(value)]
    for key, member in vars(value).items():
        if key != "__new__" and (callable(member) or isinstance(member, staticmethod)):
            members += function(key, getattr(value, key), name, "    ")
    yield "\n".join(members) or "    ..."


def properties(value):
    for key, member in vars(value).items():
        if isinstance(member, property):
            kind = member.fget.__doc__.rpartition("-> ")[2].strip().replace("inscenter._native.", "")
            yield key, RETURNS.get(f"{value.__name__}.{key}", kind)


def record_class(name, value):
    example = value()
    kinds = {}
    for field in value.fields:
        kind = type(getattr(example, field)).__name__
        kinds[field] = "Dict[str, EtfComponent]" if kind == "dict" else kind
    yield f"class {name}({value.__bases__[0].__name__}):"
    taken = [f"{field}: {'Mapping[str, EtfComponent]' if kind.startswith('Dict') else day(value, field, kind)} = ..."
             for field, kind in kinds.items()]
    yield f"    def __init__(self, *, {', '.join(taken)}) -> None: ..."
    for field, kind in kinds.items():
        yield f"    @property\n    def {field}(self) -> {kind}: ..."


def day(value, field, kind):
    return "_Day" if getattr(value, field).__doc__.startswith("str: a day") else kind


RECORD_BASE = '''\
class Record:
    fields: Tuple[str, ...]
    @property
    def key(self) -> str: ...
    def asdict(self) -> Dict[str, Any]: ...
    def replace(self: _R, **values: Any) -> _R: ...
    def __reduce__(self) -> Tuple[Any, ...]: ...
    def __hash__(self) -> int: ...
    def __eq__(self, other: object) -> bool: ...'''


def stub(module):
    yield HEAD + RECORD_BASE
    for name in RECORDS:
        yield from record_class(name, getattr(module, name))
    for name, value in vars(module).items():
        if name == "TraderType":
            yield "class TraderType(IntFlag):"
            yield from (f"    {key} = {member.value}" for key, member in value.__members__.items())
        elif isinstance(value, type) and issubclass(value, BaseException):
            yield f"class {name}({value.__bases__[0].__name__}): ..."
        elif isinstance(value, type) and name not in (*RECORDS, "Record"):
            yield from bound_class(name, value)
        elif not isinstance(value, type) and callable(value):
            yield from function(name, value, "", "")


def main():
    package = pathlib.Path(sys.argv[1])
    sys.path.insert(0, str(package.parent))
    module = importlib.import_module("inscenter._native")
    (package / "_native.pyi").write_text("\n".join(stub(module)) + "\n")


main()
