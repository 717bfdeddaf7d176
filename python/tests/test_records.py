"""Records as values, and what crosses between the languages."""

import copy
import datetime
import pickle
import random
import sys

import pytest

import inscenter
from inscenter import Etf, EtfComponent, Instrument, OtcPlan

TEXTS = ["", "浦发", "a\0b", b"\xff\xfe\x80 raw".decode("utf-8", "surrogateescape"), "\U0001f600", "é" * 300]


def test_texts_of_any_bytes_come_back_through_records_pickles_centers_and_keys():
    records = [Instrument(market="SH", code=f"6{place}{text}", name=text) for place, text in enumerate(TEXTS)]
    center = inscenter.ServerCenter()
    center.init_instruments(["SH"], records)
    for record, text in zip(records, TEXTS):
        assert record.name == text
        assert pickle.loads(pickle.dumps(record)) == record
        assert center[record.key] == record and center.get(("SH", record.code)).name == text
        assert center.resolve([record.key, inscenter.hash_key(record.key)]) == [record, record]
    assert [record.name for record in inscenter.Table(records).records()] == TEXTS
    assert inscenter.frame(records).name.tolist() == TEXTS
    with pytest.raises(UnicodeEncodeError):
        Instrument(name="\ud800")  # stands for no byte


def test_records_are_values(day):
    rng = random.Random(7)
    for catalogue in day.counts:
        for record in rng.sample(day.records(catalogue), min(5, day.counts[catalogue])):
            same = [pickle.loads(pickle.dumps(record)), copy.deepcopy(record), type(record)(**record_fields(record)),
                    eval(repr(record), vars(inscenter).copy())]
            assert all(other == record and hash(other) == hash(record) for other in same)
            assert all(type(other) is type(record) for other in same)
            for field in record.fields:
                with pytest.raises(AttributeError):
                    setattr(record, field, getattr(record, field))


def test_classes_of_records_stay_what_they_are():
    class Own(Instrument):
        __slots__ = ()

    class Other(inscenter.Bond):
        __slots__ = ()

    for record, kind in ((Instrument(code="1"), inscenter.Bond), (Instrument(code="1"), OtcPlan), (Own(code="1"), Other)):
        with pytest.raises((TypeError, AttributeError)):
            record.__class__ = kind
        assert record.__class__ is type(record) and record.code == "1"
    for kind in (inscenter.Record, Instrument, OtcPlan) if sys.version_info >= (3, 10) else ():
        with pytest.raises(TypeError, match="immutable"):
            kind.key = 5


def record_fields(record):
    return {field: getattr(record, field) for field in record.fields}


def test_one_differing_field_is_another_record():
    plain = Instrument(market="SH", code="600000")
    for field in Instrument.fields:
        value = "x" if isinstance(getattr(plain, field), str) else 3
        other = plain.replace(**{field: value})
        assert other != plain and getattr(other, field) == value and other.asdict()[field] == value
        assert inscenter.changed_fields(plain, other) == [field]
    assert plain == Instrument(market="SH", code="600000") and plain != OtcPlan(market="SH", code="600000")
    assert isinstance(OtcPlan(planType=3, code="A"), Instrument) and OtcPlan(planType=3, code="A").asdict()["code"] == "A"


def test_baskets_are_dicts():
    part = EtfComponent(market="SH", code="600000", quantity=100)
    fund = Etf(exchid="SH", etfcode="510050", stocks=[part])
    assert fund.stocks == {"600000": part} and fund.asdict()["stocks"]["600000"]["quantity"] == 100
    assert fund.replace(stocks={}) != fund
    fund.stocks.clear()
    assert fund.stocks == {"600000": part}


@pytest.mark.parametrize("fields, error", [
    ({"lotSize": "100"}, TypeError), ({"lotSize": 1.5}, TypeError), ({"lotSize": 2**31}, OverflowError),
    ({"combinedConnectFlags": -1}, OverflowError), ({"lotSize": 10**30}, OverflowError),
    ({"lotSize": 10**5000}, OverflowError), ({"priceTick": 10**400}, OverflowError),
    ({"name": 5}, TypeError), ({"name": b"x"}, TypeError), ({"priceTick": "0.1"}, TypeError),
    ({"name": datetime.date(2026, 1, 1)}, TypeError), ({"colour": 1}, TypeError)])
def test_wrong_values_are_refused_by_field(fields, error):
    with pytest.raises(error, match=next(iter(fields))):
        Instrument(**fields)
    with pytest.raises(error):
        Instrument(code="1").replace(**fields)


def test_dates_and_whole_numbers_are_taken_as_python_has_them():
    assert Instrument(listingDate=datetime.date(2026, 3, 2)).listingDate == "20260302"
    assert Instrument(listingDate=datetime.date(987, 3, 2)).listingDate == "09870302"
    assert Instrument(priceTick=1, totalShares=-(2**63)).totalShares == -(2**63)
    with pytest.raises(TypeError):
        inscenter.Record()
    with pytest.raises(ValueError):
        inscenter._native._restore("CInstrumentDetail", b"no document")
