"""The guide's page runs as it stands, and the package's types hold."""

import json
import os
import pathlib
import re
import subprocess
import sys

import conftest
import pytest

import inscenter

PAGE = (conftest.ROOT / "docs/guide/python.md").read_text()
RECIPES = re.findall(r"```python\n(.*?)```", PAGE, re.DOTALL)


def test_every_recipe_of_the_guide_answers(monkeypatch, capsys):
    monkeypatch.chdir(conftest.ROOT)
    names = {}
    assert len(RECIPES) == 11  # ten, and what stands before them
    for number, recipe in enumerate(RECIPES):
        exec(compile(recipe, f"recipe {number}", "exec"), names)
        answer = capsys.readouterr().out
        assert number == 0 or answer.strip() and not answer.startswith(("Empty", "[]")), recipe
    assert names["chain"].underlyingCode.eq("510050").all() and len(names["mains"]) > 3
    assert names["positions"].name.isna().sum() == 1 and names["value"] > 0


def test_the_notebook_draws_three_plots(monkeypatch):
    matplotlib = pytest.importorskip("matplotlib")
    matplotlib.use("Agg")
    monkeypatch.chdir(conftest.ROOT)
    notebook = json.loads((conftest.ROOT / "python/notebooks/day.ipynb").read_text())
    names = {}
    for cell in notebook["cells"]:
        if cell["cell_type"] == "code":
            exec("".join(cell["source"]), names)
    plots = [names["plt"].figure(number).axes[0] for number in names["plt"].get_fignums()]
    assert len(plots) == 3 and all(plot.has_data() and plot.get_title() for plot in plots)
    names["plt"].close("all")


TYPED = """
import datetime
from typing import List, Optional
import inscenter
center = inscenter.ServerCenter(inscenter.Day.open("samples"))
record: Optional[inscenter.Instrument] = center.get("SH600000")
name: str = center["SH600000"].name
found: List[Optional[inscenter.Instrument]] = center.resolve(["SH600000", 5, ("SH", "600000")])
chain: List[inscenter.Instrument] = center.get_option_chain("SH", "510050")
center.frame(inscenter.TraderType.STOCK, ["code"], "datetime64")
inscenter.Instrument(market="SH", listingDate=datetime.date.today()).replace(lotSize=1).lotSize.bit_length()
center.subscribe(lambda change: change.markets.sort()).close()
records: int = center.statistics().last_load.records
"""
WRONG = ["center.get('a').name", "center['a'].colour", "inscenter.Instrument(lotSize='1')", "center.get(1.5)",
         "center['a'].name = 'b'", "center.frame(dates='iso')", "center.get_etfs()['a'].lotSize"]


def mypy(*arguments):
    environment = {**os.environ, "MYPYPATH": str(pathlib.Path(inscenter.__file__).parents[1])}
    return subprocess.run([sys.executable, "-m", *arguments], env=environment, capture_output=True, text=True).stdout


def test_the_stubs_are_strict_and_say_what_the_package_has(tmp_path):
    pytest.importorskip("mypy")
    script = tmp_path / "typed.py"
    script.write_text(TYPED + "\n".join(WRONG) + "\n")
    package = str(pathlib.Path(inscenter.__file__).parent)
    told = mypy("mypy", "--strict", "--cache-dir", str(tmp_path), package, str(script))
    first = TYPED.count("\n") + 1
    refused = {int(line) for line in re.findall(r"typed\.py:(\d+): error", told)}
    assert refused == set(range(first, first + len(WRONG))) and "_native" not in told, told
    # pybind11's classes have a metaclass, and records take their fields by name whatever their signature says.
    accepted = r"metaclass differs|__init__ is inconsistent, stub does not have \*args"
    lines = mypy("mypy.stubtest", "inscenter._native").splitlines()
    assert not [line for line in lines if line.startswith("error") and not re.search(accepted, line)], lines
