"""Both centers and the view through Python, against what the tool answers of the same day."""

import datetime
import json
import os
import subprocess

import conftest
import pytest

import inscenter
from inscenter import Bond, Instrument, TraderType

# Those that the tool knows.
PREDICATES = [name for name in dir(inscenter.Center)
              if name.startswith("has_") and name not in ("has_nyse_stock", "has_nasdaq_stock")]


@pytest.fixture(scope="module", params=["server", "client"])
def kind(request):
    return request.param


@pytest.fixture(scope="module")
def center(kind, request):
    return request.getfixturevalue(kind)


@pytest.fixture(scope="module")
def ask(kind, samples, tmp_path_factory):
    """The tool's answer, a dict a line."""
    store = ["--store", str(tmp_path_factory.mktemp("tool"))] if kind == "client" else []

    def answer(*question):
        command = [conftest.TOOL, "--data", str(samples), "--today", conftest.TODAY, "--center", kind, *store]
        done = subprocess.run([*command, *question, "--format", "json"], capture_output=True, text=True)
        assert done.returncode in (0, 1), done.stderr
        return [json.loads(line) for line in done.stdout.splitlines()]

    return answer


def plain(record):
    """As the tool prints it: without what is at its default."""
    default = type(record)().asdict()
    shown = {field: value for field, value in record.asdict().items() if value != default[field]}
    if "stocks" in shown:
        shown["stocks"] = [plain(part) for part in record.stocks.values()]
    return shown


def same(records, lines):
    unfiled = [{key: value for key, value in line.items() if key != "filed"} for line in lines]
    sort = lambda shown: json.dumps(shown, sort_keys=True)
    assert sorted(map(plain, records), key=sort) == sorted(unfiled, key=sort) and lines


def test_instruments_are_those_that_the_tool_lists(center, ask, kind):
    for name in ("STOCK", "FUTURE", "GOLD", "OPTION", "HONG_KONG", "NEEQ", "FUTURE_OPTION", "BOND", "FUND"):
        same(center.get_instruments(TraderType[name]).values(),
             ask("list", "--trader-type", str(int(TraderType[name]))))
    for market in ("SH", "HK", "DCE"):
        listed = ask("list", "--market", market)
        same(center.get_instruments(market).values(), listed)
        same(center.table(market).records(), listed)
        assert center.frame(market, ["code"]).code.tolist() == [
            record.code for record in center.get_instruments([market]).values()]


def test_keys_are_what_the_tool_says_they_are(center, ask):
    keys = sorted(center.get_instruments())[::23] + ["HGT00700", "SGT00700", "SH510050", "SD0649", "nothing", ""]
    lines = {line["key"]: line["predicates"] for line in ask("has", *keys)}
    for key in keys:
        own = {name for name in PREDICATES if getattr(center, name)(key)}
        snake = {"".join("_" + letter.lower() if letter.isupper() else letter for letter in name)
                 for name in lines.get(key, [])}
        assert own == {name for name in snake if name.startswith("has_")}, key
        assert (key in center) == ("has_code" in own) == (center.get(key) is not None)
    same(filter(None, center.resolve(keys)), ask("get", *keys))


def test_derived_and_other_catalogues_are_the_tools(center, ask, kind):
    mains = {line["productId"]: line["mainContracts"] for line in ask("mains", "--by-product")}
    assert {product: sorted(record.key for record in records)
            for product, records in center.get_product_main_instruments().items()} == {
        product: sorted(keys) for product, keys in mains.items()}
    same(center.get_future_main_instruments("DCE").values(), ask("mains", "--market", "DCE"))
    spreads = ask("spreads")
    for kind_of, legs in (("inter-commodity", center.get_dce_cross_product()),
                          ("inter-period", center.get_dce_cross_period())):
        assert legs == [(line["firstLeg"], line["secondLeg"]) for line in spreads if line["kind"] == kind_of]
    codes = ask("codes")
    for name, answer in (("ipo", center.get_stock_ipo_codes()), ("cdr", center.get_stock_cdr_codes()),
                         ("neeq", center.get_neeq_inquiry_codes())):
        assert answer == {line["code"] for line in codes if line["set"] == name}
    assert center.get_stock_ipo_codes()
    same(center.get_etfs().values(), ask("etfs"))
    same([center.get_etf("SH510050")], ask("etf", "SH510050"))
    same(center.get_bonds().values(), ask("bonds"))
    same(center.get_trender_bond_infos().values(), ask("tenderbonds"))
    same(center.get_counterpartys().values(), ask("counterparties"))
    same(center.get_issuance_infos().values(), ask("issuances"))
    if kind == "server":
        same(center.get_otc_instruments(-1), ask("otc"))
        return
    same(center.get_issuance_price_infos().values(), ask("issuanceprices"))
    outer = ask("outer")
    assert center.get_outter_market() == {line["market"]: line["marketName"] for line in outer}
    assert {line["productId"] for line in outer} == set().union(*center.get_market_product_list().values())
    assert center.get_interbank_code("SH106168") == ask("interbank", "SH106168")[0]["bondCode"]


def test_chains_contracts_and_days_are_in_order(center):
    chain = center.get_option_chain("SH", "510050")
    assert chain == sorted(chain, key=lambda o: (o.expireDate, o.strikePrice, o.optionType)) and len(chain) > 4
    contracts = center.get_contracts("m")
    assert {record.productId for record in contracts} == {"m"} and not {r.optionType for r in contracts} - {0}
    day = chain[0].expireDate
    expiring = center.get_expiring(datetime.datetime.strptime(day, "%Y%m%d").date())
    assert expiring == center.get_expiring(day) and set(chain[:2]) <= set(expiring)
    assert center.get_bond_listings("22810570")[0].market == "BANK"


def test_lookups_go_as_in_a_dict(center):
    record = center["SH510050"]
    assert record == center.get(inscenter.hash_key("SH510050")) == center["SH", "510050"]
    assert center.get("none") is None and center.get("none", 7) == 7 and center.get(0) is None
    assert center.resolve(["SH510050", "none", ("SH", "510050"), inscenter.hash_key("SH510050")]) == [
        record, None, record, record]
    assert [center.get(key) for key in ("HGT00700", "SGT00700")] == center.resolve(["HGT00700", "SGT00700"])
    with pytest.raises(KeyError, match="none"):
        center["none"]
    for wrong in (None, 1.5, b"SH510050", ("SH",), ("SH", 5)):
        for lookup in (center.get, center.__getitem__, lambda key: center.resolve([key])):
            with pytest.raises(TypeError):
                lookup(wrong)
    for wrong in (-1, 2**64):
        with pytest.raises(OverflowError):
            center.get(wrong)
    everything = list(center)
    assert center.markets() == sorted({record.market for record in everything})
    assert len(everything) == len(center) and record in everything
    assert [r.key for r in everything] == sorted(r.key for r in everything)


def test_keys_may_change_while_they_are_looked_up(in_process):
    assert in_process("""if True:
        import inscenter
        center = inscenter.ServerCenter()
        center.init_instruments(["SH"], [inscenter.Instrument(market="SH", code="600000")])
        class Key(tuple):
            def __len__(self):
                keys.clear()
                return 2
        keys = [Key(("SH", "600000"))] + ["SH600000"] * 1000
        print(sum(record is not None for record in center.resolve(keys)))
        """) == "1001\n"


def test_trader_types_add_up(center):
    stocks, options = TraderType.STOCK, TraderType.OPTION
    both = center.get_instruments(stocks | options)
    assert both == {**center.get_instruments(stocks), **center.get_instruments(options)} and both
    assert len(center.get_instruments(TraderType.EVERYTHING)) == len(center)
    assert center.get_instruments(TraderType(0)) == {}


def test_changes_touch_neither_the_records_handed_in_nor_a_view(tmp_path):
    center, other = inscenter.ServerCenter(), inscenter.ServerCenter()
    fund = inscenter.Etf(exchid="SH", etfcode="510050", stocks=[inscenter.EtfComponent(code="600000")])
    listed = [Instrument(market=market, code="00700", connectFlagValue=3, name="x") for market in ("HGT", "SGT")]
    bond = Instrument(market="SHFI", code="019001", name="bond")
    before = repr([fund, *listed, bond])
    for target in (center, other):
        target.load(inscenter.Day([fund, *listed, bond]))
    assert repr([fund, *listed, bond]) == before and center["HK00700"].combinedConnectFlags != 0
    assert center.version == 1  # funds and instruments in one step
    view = center.view()
    center.apply_changes([Instrument(market="SH", code="600001")], ["HK00700"])
    assert "HK00700" not in center and "SH600001" in center and center.version > view.version
    center.replace_instruments(["SH"], [])
    center.remove_markets(["HK"])
    del center
    assert "HK00700" in view and "SH600001" not in view and view.get_etf("SH510050") == fund
    names = ["x", "", "bond"]  # between them what stands for the fund's creation
    assert [record.name for record in view] == names == view.frame().name.tolist()
    other.update_counterparty_info(inscenter.Counterparty(id="C"))
    other.init_bonds({"B": Bond(bondCode="B")})
    assert other.get_bond("BANKB") == Bond(bondCode="B") and other.get_bond(inscenter.hash_key("BANKB")) is not None
    for wrong in ([Bond()], ["SH600000"], None, 5):
        with pytest.raises(TypeError):
            other.init_instruments(["SH"], wrong)
    assert other.statistics().last_load.records == 3 and other.statistics().last_load.time.total_seconds() > 0


def test_a_store_is_read_without_being_written(day, client, tmp_path):
    center_store = client.statistics().failed_writes
    assert not center_store
    root = next(path for path in tmp_path.parent.iterdir() if path.name.startswith("store"))
    times = {file: file.stat().st_mtime_ns for file in root.rglob("data.mdb")}
    store = inscenter.Store.open(root)
    stored = store.day()
    assert {name for name, count in stored.counts.items() if count} == {"instruments", "etfs", "bonds", "otcfundplans"}
    assert set(stored.records("bonds")) == set(day.records("bonds"))
    assert set(stored.records("etfs")) == set(client.get_etfs().values())
    assert store["SH510050"] == client["SH510050"] and store.get("HGT00700") == store.get("HK00700")
    assert "SH510050" in store and store.get("none") is None and "OvIns_SH" in store.databases
    assert len(store.frame(fields=["code"])) == stored.counts["instruments"]
    assert times == {file: file.stat().st_mtime_ns for file in root.rglob("data.mdb")}


def test_stores_that_cannot_be_read_say_so(tmp_path, in_process):
    with pytest.raises(FileNotFoundError):
        inscenter.Store.open(tmp_path / "nothing")
    (tmp_path / "other").mkdir()
    (tmp_path / "other" / "file").write_text("x")
    with pytest.raises(inscenter.StoreError, match="no store"):
        inscenter.Store.open(tmp_path / "other")
    in_process("""if True:
        import inscenter, sys
        center = inscenter.ClientCenter(sys.argv[1])
        same = inscenter.ClientCenter(sys.argv[1] + "/../store/./")
        center.init_instruments(["SH"], [inscenter.Instrument(market="SH", code="600000")])
        try:
            inscenter.ClientCenter(sys.argv[1] + "2")
            raise SystemExit("two stores")
        except RuntimeError as error:
            assert sys.argv[1] in str(error)
        del center, same
        inscenter.ClientCenter(sys.argv[1] + "2")
        """, tmp_path / "store")
    data = tmp_path / "store" / "OvIns_SH" / "data.mdb"
    page = bytearray(data.read_bytes())
    for meta in (0, 4096):
        assert page[meta + 20] == 1  # the engine's version of the file
        page[meta + 20] = 2
    data.write_bytes(page)
    store = inscenter.Store.open(tmp_path / "store")
    for read in (store.day, lambda: store["SH600000"]):
        with pytest.raises(inscenter.StoreError, match="OvIns_SH.*version"):
            read()
    assert data.read_bytes() == page


def test_invented_days_are_the_tools(monkeypatch):
    day = inscenter.generate(300, seed=5, date="20260302")
    assert day.counts["instruments"] == 300 and day.records() == inscenter.generate(300, 5, "20260302").records()
    with pytest.raises(ValueError, match="date"):
        inscenter.generate(10, date="20261399")
    monkeypatch.setenv("INSCENTER_TOOL", "")
    monkeypatch.setenv("PATH", os.devnull)
    with pytest.raises(FileNotFoundError, match="inscenter"):
        inscenter.generate(10)
