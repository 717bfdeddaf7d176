"""Invented days, made by the command-line tool."""

from __future__ import annotations

from ._native import Day

TYPE_CHECKING = False  # as in _frames.py
if TYPE_CHECKING:
    from typing import Optional


def generate(size: int = 1000, seed: int = 1, date: Optional[str] = None) -> Day:
    """An invented market day: the same size, seed and date (YYYYMMDD) give the same records.

    Made by the program `inscenter`, which is looked for in $INSCENTER_TOOL and on the path; FileNotFoundError without.
    """
    # Here, because they take as long as everything else of the package, which mostly reads days that are there.
    import os
    import shutil
    import subprocess
    import tempfile

    tool = os.environ.get("INSCENTER_TOOL") or shutil.which("inscenter")
    if tool is None:
        raise FileNotFoundError("the program inscenter is not installed, which makes invented days")
    with tempfile.TemporaryDirectory(prefix="inscenter-") as directory:
        command = [tool, "generate", "--size", str(size), "--seed", str(seed)]
        if date is not None:
            command += ["--date", date]
        done = subprocess.run([*command, directory], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        if done.returncode != 0:
            raise ValueError(done.stderr.strip().removeprefix("inscenter: "))
        return Day.open(directory)
