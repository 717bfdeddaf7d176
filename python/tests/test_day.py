"""Days from files, and as columns: every cell against the records, which are read one by one."""

import datetime
import gzip
import pathlib
import pickle

import arrow_reader
import numpy as np
import pandas as pd
import pytest

import inscenter
from inscenter import Day, Instrument

DATES = {field for kind in (inscenter.Instrument, inscenter.OtcPlan, inscenter.Etf, inscenter.Bond,
                            inscenter.TenderBond, inscenter.Issuance, inscenter.IssuancePrice)
         for field in kind.fields if getattr(kind, field).__doc__.startswith("str: a day")}


def date_of(text):
    try:
        return datetime.date(int(text[:4]), int(text[4:6]), int(text[6:])) if len(text) == 8 else None
    except ValueError:
        return None


def expected(record, field):
    value = getattr(record, field)
    return date_of(value) if field in DATES else value


def test_every_cell_of_every_catalogue_is_the_records_own(day):
    for catalogue, count in day.counts.items():
        records = day.records(catalogue)
        table = day.table(catalogue)
        frame, arrays, arrow = table.frame(), table.columns(), arrow_reader.read(table)
        native = table.frame(dates="datetime64")
        texts = table.frame(dates="text")
        assert len(frame) == len(table) == count > 0
        assert list(frame) == list(arrays) == list(arrow) == [f for f in records[0].fields if f != "stocks"]
        for field in frame:
            cells = [expected(record, field) for record in records]
            assert frame[field].tolist() == cells == arrow[field], field
            assert texts[field].tolist() == [getattr(record, field) for record in records]
            if field in DATES:
                assert [None if day is None else day for day in arrays[field].tolist()] == cells
                assert native[field].dtype == "datetime64[ns]"
                assert [None if pd.isna(day) else day.date() for day in native[field]] == cells
            else:
                assert arrays[field].tolist() == cells


def test_columns_have_types_of_their_own(day):
    frame = day.frame()
    assert {field: str(frame[field].dtype) for field in ("market", "productId", "currency", "name", "lotSize",
                                                       "totalShares", "combinedConnectFlags", "priceTick")} == {
        "market": "category", "productId": "category", "currency": "category", "name": "object", "lotSize": "int32",
        "totalShares": "int64", "combinedConnectFlags": "uint32", "priceTick": "float64"}
    assert list(frame.market.cat.categories) == sorted(set(frame.market))
    frame.loc[0, "lotSize"] = 7  # its own memory
    assert frame.lotSize[0] == 7 and day.frame().lotSize[0] == day.records()[0].lotSize
    assert list(day.frame(fields=["name", "code"])) == ["name", "code"]
    assert day.columns(fields=["listingDate"])["listingDate"].dtype == np.dtype("M8[D]")


def test_odd_days_and_texts_have_no_cell_of_another_kind():
    odd = ["CBOT", "20260230", "99991231", "00000101", "2026030", "", "19000101"]
    broken = b"\xff".decode("utf-8", "surrogateescape")
    table = inscenter.table([Instrument(listingDate=text, name=broken, market=broken) for text in odd])
    days = [None, None, datetime.date(9999, 12, 31), None, None, None, datetime.date(1900, 1, 1)]
    assert table.frame().listingDate.tolist() == days
    assert [str(day) for day in table.frame(dates="datetime64").listingDate] == ["NaT"] * 6 + ["1900-01-01 00:00:00"]
    arrow = arrow_reader.read(table)
    assert arrow["listingDate"] == days and set(arrow["name"]) == set(arrow["market"]) == {"\ufffd"}


def test_a_stream_that_nobody_reads_and_an_empty_table_are_given_back():
    empty = inscenter.table([])
    assert len(empty.frame()) == 0 and arrow_reader.read(empty)["code"] == [] and len(empty.columns()["code"]) == 0
    for _ in range(3):
        empty.__arrow_c_stream__()


def test_baskets_are_a_frame(day):
    rows = [(fund.exchid, fund.etfcode, part.code, part.quantity) for fund in day.records("etfs")
            for part in fund.stocks.values()]
    frame = day.baskets()
    assert rows and list(zip(frame.etf_market, frame.etf_code, frame.code, frame.quantity)) == rows


def test_a_day_is_read_from_whatever_holds_it(samples, tmp_path, day):
    path = samples / "instruments.ndjson"
    whole = path.read_bytes()
    packed = tmp_path / "instruments.ndjson.gz"
    packed.write_bytes(gzip.compress(whole))
    sources = [path, str(path), packed, whole, bytearray(whole), memoryview(gzip.compress(whole)), open(path, "rb")]
    for source in sources:
        assert Day.open(source).records() == day.records()
    bonds = Day.open((samples / "bonds.ndjson").read_bytes(), catalogue="bonds", format="ndjson")
    assert bonds.records("bonds") == day.records("bonds") and not bonds.records()
    sources[-1].close()


def test_a_day_is_written_and_read_back(day, tmp_path):
    for form, packing in (("ndjson", None), ("csv", "gzip"), ("csv", "zstd")):
        day.write(tmp_path / f"{form}{packing}", form, packing)
        back = Day.open(tmp_path / f"{form}{packing}")
        assert all(back.records(name) == day.records(name) for name in day.counts)
    again = Day([record for name in day.counts for record in day.records(name)])
    assert again.counts == day.counts


def test_bad_lines_are_reported_and_warned_of(tmp_path):
    (tmp_path / "instruments.csv").write_text("market,code,lotSize\nSH,600000,100\nSH,600001,much\n")
    with pytest.warns(inscenter.SnapshotWarning, match="1 lines .*lotSize") as warned:
        day = Day.open(tmp_path)
        inscenter.ServerCenter.open(tmp_path)
    assert [warning.filename for warning in warned] == [__file__] * 2
    assert [record.code for record in day.records()] == ["600000"] and day.skipped_lines == 1
    issue, = day.issues
    assert (issue.line, issue.field, issue.kind) == (3, "lotSize", "line_skipped") and issue.reason
    assert pathlib.Path(issue.file) == tmp_path / "instruments.csv"


def test_bad_input_has_errors_of_its_kind(tmp_path, day):
    with pytest.raises(FileNotFoundError) as missing:
        Day.open(tmp_path / "nothing")
    assert missing.value.filename == tmp_path / "nothing"
    with pytest.raises(FileNotFoundError):
        inscenter.load_market_rules(tmp_path / "nothing")
    (tmp_path / "rules.json").write_text("[")
    for refused in (lambda: inscenter.load_market_rules(tmp_path / "rules.json"),
                    lambda: inscenter.load_market_rules(tmp_path), lambda: day.write(tmp_path / "rules.json")):
        with pytest.raises(OSError, match=str(tmp_path)):
            refused()
    (tmp_path / "rules.json").unlink()
    for function in (Day.open, day.write, inscenter.Store.open, inscenter.ClientCenter, inscenter.load_market_rules):
        with pytest.raises(ValueError, match="NUL"):
            function(f"{tmp_path}\0nothing")
    (tmp_path / "notes.txt").write_text("")
    with pytest.raises(inscenter.UnreadableError):
        Day.open(tmp_path)
    for wrong in (5, None, ["a"]):
        with pytest.raises(TypeError):
            Day.open(wrong)
    for wrong in ({"catalogue": "stocks"}, {"fields": ["colour"]}, {"dates": "iso"},
                  {"catalogue": "etfs", "fields": ["stocks"]}):
        with pytest.raises(ValueError):
            day.frame(**wrong)
    with pytest.raises(TypeError):
        inscenter.frame([Instrument(), inscenter.Bond()])
    with pytest.raises(TypeError):
        Day([5])
    with pytest.raises(TypeError):
        pickle.dumps(day)


def test_two_days_differ_by_key_and_field(day):
    records = day.records()
    changed = records[3].replace(lotSize=records[3].lotSize + 1, name="other")
    fresh = Instrument(market="SH", code="689999")
    newer = Day([*records[1:3], changed, *records[4:], fresh])
    frame = inscenter.diff(day, newer)
    key = records[3].key
    assert sorted(map(tuple, frame.itertuples(index=False, name=None)), key=str) == sorted(
        [(records[0].key, None, records[0], None), (fresh.key, None, None, fresh),
         (key, "lotSize", records[3].lotSize, records[3].lotSize + 1), (key, "name", records[3].name, "other")], key=str)
    assert set(inscenter.diff(day, newer, ignore={"name"}).field) == {None, "lotSize"}
    assert inscenter.diff(day, day, "etfs").empty
