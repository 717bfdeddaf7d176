import os
import pathlib
import subprocess
import sys

import pytest

import inscenter

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = os.environ.get("INSCENTER_TOOL", str(ROOT / "build/release/tools/inscenter/inscenter"))
os.environ["INSCENTER_TOOL"] = TOOL
TODAY = "20260302"


@pytest.fixture(scope="session")
def samples():
    return ROOT / "samples"


@pytest.fixture(scope="session")
def day(samples):
    inscenter.set_today(TODAY)
    return inscenter.Day.open(samples)


@pytest.fixture(scope="session")
def server(day):
    return inscenter.ServerCenter(day)


@pytest.fixture(scope="session")
def client(day, tmp_path_factory):
    center = inscenter.ClientCenter(tmp_path_factory.mktemp("store"))
    center.load(day)
    yield center


@pytest.fixture
def in_process():
    """Runs a script in an interpreter of its own, which must come to its end."""

    def run(script, *arguments):
        done = subprocess.run([sys.executable, "-X", "faulthandler", "-c", script, *map(str, arguments)],
                              capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, done.stderr
        return done.stdout

    return run
