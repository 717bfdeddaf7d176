"""Threads, callbacks and the interpreter's end."""

import gc
import sys
import threading
import weakref

import pytest

import inscenter
from inscenter import Instrument


def listing(number, **fields):
    return [Instrument(market="SH", code=str(600000 + place), lotSize=number, **fields) for place in range(50)]


def test_subscribers_hear_of_changes_in_order_until_they_close():
    center, heard = inscenter.ServerCenter(), []
    with center.subscribe(heard.append) as subscription:
        center.init_instruments(["SH"], listing(1))
        center.apply_changes([listing(2)[0]], ["SH600001"])
        center.init_counterpartys({})
        assert subscription.active
    center.init_instruments(["SH"], listing(3))
    first, second, third = heard
    assert len(first.instruments) == 50 and all(before is None for before, _ in first.instruments)
    assert {(before and before.lotSize, after and after.lotSize) for before, after in second.instruments} == {
        (1, 2), (1, None)}
    assert third.catalogues == ["counterparties"] and first.markets == ["SH"]
    assert first.version < second.version < third.version <= center.version
    assert not subscription.active
    subscription.close()
    with pytest.raises(TypeError):
        center.subscribe(5)


def test_a_callback_may_close_ask_load_and_raise(monkeypatch):
    center, seen, raised = inscenter.ServerCenter(), [], []
    monkeypatch.setattr(sys, "unraisablehook", lambda what: raised.append(what.exc_value))

    def callback(change):
        subscription.close()
        seen.append(center["SH600000"].lotSize)
        center.init_instruments(["SZ"], [Instrument(market="SZ", code="000001")])
        raise LookupError("mine")

    subscription = center.subscribe(callback)
    center.init_instruments(["SH"], listing(1))
    center.init_instruments(["SH"], listing(2))
    assert seen == [1] and "SZ000001" in center and [type(error) for error in raised] == [LookupError]


def test_a_subscription_keeps_neither_callback_nor_center_longer_than_itself():
    class Callback:
        def __call__(self, change):
            pass

    center, callback = inscenter.ServerCenter(), Callback()
    subscription = center.subscribe(callback)
    dead = weakref.ref(callback)
    del callback
    center.init_instruments(["SH"], listing(1))
    assert dead() is not None
    del center
    gc.collect()
    subscription.close()
    assert dead() is None


def test_a_subscription_that_waits_for_its_end_is_not_collected(in_process):
    assert in_process("""if True:
        import gc, inscenter, threading
        begun, ending = threading.Event(), threading.Event()
        def callback(change):
            begun.set()
            ending.wait()
            for _ in range(50):
                gc.collect()
            print("called")
        center = inscenter.ServerCenter()
        subscription = center.subscribe(callback)
        thread = threading.Thread(target=center.init_counterpartys, args=({},))
        thread.start()
        begun.wait()
        ending.set()
        del subscription
        thread.join()
        print("end")
        """) == "called\nend\n"


class Watcher:
    """Keeps the subscription that calls it."""

    def __init__(self, center, told):
        self.told = told  # before: another thread may be loading
        self.subscription = center.subscribe(self.on_change)

    def on_change(self, change):
        self.told(self)


def test_a_subscription_that_what_it_calls_keeps_ends_with_the_two():
    center, heard = inscenter.ServerCenter(), []

    def told(watcher):
        watchers.clear()
        gc.collect()  # not while it is called
        heard.append(watcher.subscription.active)

    watchers = [Watcher(center, told)]
    dead = weakref.ref(watchers[0])
    center.init_instruments(["SH"], listing(1))
    assert heard == [True]
    gc.collect()
    assert dead() is None
    center.init_instruments(["SH"], listing(2))
    assert heard == [True]


def test_loads_lookups_and_subscriptions_from_many_threads():
    center, wrong, heard = inscenter.ServerCenter(), [], []
    center.init_instruments(["SH"], listing(0))
    done = threading.Event()

    def load():
        for number in range(1, 40):
            center.replace_instruments(["SH"], listing(number))
        done.set()

    def look():
        while not done.is_set():
            view = center.view()
            if len({record.lotSize for record in view.get_instruments("SH").values()}) != 1:
                wrong.append("a torn view")
            if center.get("SH600000") is None or None in center.resolve(["SH600000", "SH600049"]):
                wrong.append("a lost key")
            if view.frame(fields=["lotSize"]).lotSize.nunique() != 1:
                wrong.append("a torn frame")

    def subscribe():
        while not done.is_set():
            with center.subscribe(heard.append):
                center["SH600000"]
            Watcher(center, lambda watcher: None)
            gc.collect()

    threads = [threading.Thread(target=work) for work in (load, look, look, subscribe)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    assert not wrong and not any(thread.is_alive() for thread in threads)
    assert center["SH600000"].lotSize == 39


def test_the_first_arrays_may_be_asked_for_by_several_threads(in_process):
    for _ in range(3):
        assert in_process("""if True:
            import inscenter, threading
            center = inscenter.ServerCenter()
            center.init_instruments(["SH"], [inscenter.Instrument(market="SH", code="600000")])
            begin = threading.Barrier(4)
            def work():
                begin.wait()
                assert center.columns()["code"].tolist() == ["600000"]
            threads = [threading.Thread(target=work) for _ in range(4)]
            [thread.start() for thread in threads]
            [thread.join() for thread in threads]
            print("end")
            """) == "end\n"


ENDINGS = {
    "subscribed": """
keep = center.subscribe(lambda change: seen.append(center.get('SH600000')))
center.init_instruments(['SH'], records)""",
    "asking": """
center.columns()  # numpy is there: a thread that the end meets while it imports ends the process without our help
def work():
    while True:
        center.get_instruments(); center.resolve(['SH600000'] * 100); center.columns(fields=['code', 'lotSize'])
start(work, work)""",
    "loading": """
keep = center.subscribe(lambda change: seen.append(len(change.instruments)))
def work():
    while True:
        center.init_instruments(['SH'], records)
start(work, work)""",
    "closing": """
def work():
    while True:
        with center.subscribe(seen.append):
            center.init_instruments(['SH'], records)
start(work, work)""",
    "at exit": """
import atexit
class Last:
    def __del__(self):
        center.init_instruments(['SH'], records)
        center.get('SH600000')
last = Last()
last.me = last
atexit.register(lambda: center.subscribe(seen.append) and center.init_instruments(['SH'], records))""",
    "in code of Python's": """
import time
def turns(answer):  # whose thread others may have the interpreter's lock from
    for _ in range(20):
        time.sleep(0)
    return answer
class Path:
    def __fspath__(self):
        return turns('samples')
class File:
    def read(self):
        return turns(b'')
class Day:
    def strftime(self, form):
        return turns(form)
class Endless:
    def __iter__(self):
        while True:
            yield turns(records[0])
class Some:
    def __iter__(self):
        yield from turns(['code'] * 5)
class Last:
    def __del__(self):
        turns(None)
def forever(work):
    def again():
        while True:
            try:
                work()
            except (OSError, TypeError):
                pass
    return again
last = Last()
start(*map(forever, [
    lambda: inscenter.Day.open(Path()), lambda: inscenter.Day.open(File()), lambda: inscenter.ServerCenter.open(File()),
    lambda: center.get_listed(Day()), lambda: inscenter.Day(Endless()), lambda: inscenter.table(Endless()),
    lambda: inscenter.table(records, Some()), lambda: inscenter.Etf(stocks=Endless()), lambda: center.resolve(Some())]))
turns(None)""",
    "persisted": """
import tempfile
center = inscenter.ClientCenter(tempfile.mkdtemp(dir=sys.argv[1]))
keep = center.subscribe(seen.append)
def work():
    while True:
        center.init_instruments(['SH'], records); center.get('SH600000')
start(work)""",
}


@pytest.mark.parametrize("ending", ENDINGS)
def test_the_interpreter_ends_whatever_is_under_way(ending, in_process, tmp_path):
    script = f"""
import inscenter, sys, threading
records = [inscenter.Instrument(market='SH', code=str(600000 + place)) for place in range(200)]
center, seen, running = inscenter.ServerCenter(), [], threading.Semaphore(0)
center.init_instruments(['SH'], records)
def start(*works):
    for work in works:
        def begin(work=work):
            running.release()
            work()
        threading.Thread(target=begin, daemon=True).start()
    for _ in works:
        running.acquire()
{ENDINGS[ending]}
print('end')
"""
    for _ in range(4):
        assert in_process(script, tmp_path) == "end\n"
