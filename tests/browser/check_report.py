#!/usr/bin/env python3
"""Opens reports in a real browser, uses them as people do, and fails when what it sees is wrong.

usage: check_report.py TOOL SAMPLES WORK [SNAPSHOT]     screenshots go to WORK; SNAPSHOT is shown as well
"""

import csv
import io
import json
import pathlib
import shutil
import subprocess
import sys

from webdriver import Browser

# Texts of records, and how the page shows them.
HOSTILE = {"</script><img src=x onerror=window.harmed=1>": None, "<b id=harmed>bold</b>": None, "<!--<script>": None,
           "\"'&amp;\u2028x": "\"'&amp;\\x2028x", "\x1b[2J\x07": "\\x1B[2J\\x07", "a\u202egnp.exe": "a\\x202Egnp.exe",
           "mark \ufdd0\ufdd6": "mark \ufdd0\ufdd6", "=1+1": None}
QUERIES = ["payh", "pingan", "ping an", "yinhang", "60", "sh60", "银行", "50etf", "科技 a", "a", "n", "cne", "LV", "co ltd", "2605",
           "hk 00", "科技", "yqwj87hao", "o", "c", "zz", "ag-"]


def expect(holds, what):
    if not holds:
        raise AssertionError(what)


def instruments(snapshot):
    """The last record of each key, as a load keeps it."""
    records = {}
    for file in sorted(pathlib.Path(snapshot).glob("instruments*.ndjson")):
        for line in file.read_text().splitlines():
            record = json.loads(line)
            records[record["market"] + record["code"]] = record
    return list(records.values())


class Page:
    """A report as someone sees it."""

    def __init__(self, browser, file):
        self.browser = browser
        browser.open(file)
        browser.wait(lambda: browser.run("return document.querySelectorAll('#tabs button').length > 1"), "the tabs")

    def count(self):
        return self.browser.run("return document.getElementById('count').textContent")

    def rows(self):
        """The texts of the rows that stand in the page, and whether the rows reach the visible part."""
        return self.browser.run(
            "return [...document.querySelectorAll('#rows tbody tr[data-row]')]"
            ".map(row => [...row.cells].map(cell => cell.firstChild ? cell.firstChild.textContent : ''))")

    def column(self, name):
        return self.browser.run(
            "return [...document.querySelectorAll('#rows thead th')].findIndex(h => h.textContent === arguments[0])",
            name)

    def open_tab(self, name):
        self.browser.click(f"#tabs button[data-id={name}]")
        self.browser.wait(lambda: self.browser.run(
            "return document.querySelector('#tabs button[aria-current]').dataset.id === arguments[0] && "
            "(!tableOf(arguments[0]) || Boolean(shown && shown.nameWidths && rows))", name), f"the table {name}")

    def search(self, text, count):
        self.browser.type("#search", text)
        self.browser.wait(lambda: self.count() == count, f"{count!r} for {text!r}, not {self.count()!r}")

    def keys(self):
        """Market and code of every row that matches, in order, those included that do not stand in the page."""
        return self.browser.run("return [...rows].map(row => `${shown.column('market').text(row)} "
                                "${shown.column('code').text(row)}`)")

    def sort(self, name):
        self.browser.click(f"#rows thead th:nth-child({self.column(name) + 1}) button")

    def pick(self, group):
        self.browser.run("[...document.querySelectorAll('#groups button')].find(chip => "
                         "chip.firstChild.textContent === arguments[0]).click()", group)

    def expect_quiet(self):
        expect(self.browser.run("return performance.getEntriesByType('resource').length") == 0,
               "the page loads something from outside")
        messages = self.browser.messages()
        expect(not messages, f"the page complains: {messages}")


def check_tables(page, snapshot):
    records = instruments(snapshot)
    gold = [record for record in records if record["market"] == "SHGE"]
    page.open_tab("instruments")
    total = int(page.count().split()[0].replace(",", ""))
    expect(total >= len(records) * 0.95, f"{total} of {len(records)} instruments")
    if gold:
        page.search("filed=SHGE", f"{len(gold):,} of {total:,} rows")
        expect(sorted(row[page.column("code")] for row in page.rows()) == sorted(record["code"] for record in gold),
               "other records of SHGE than in the snapshot")
    page.search("there is no such thing", f"0 of {total:,} rows")
    page.search("", f"{total:,} rows")
    check_sorting(page)
    page.browser.run("document.getElementById('scroll').scrollTop = 1e9")
    page.browser.wait(lambda: page.browser.run(
        "const box = document.getElementById('scroll').getBoundingClientRect();"
        "const made = document.querySelectorAll('#rows tbody tr[data-row]');"
        "const last = made[made.length - 1].getBoundingClientRect();"
        "return last.bottom <= box.bottom + 40 && last.top >= box.top"), "the last row at the bottom")


def check_sorting(page):
    column = page.column("code")
    page.sort("code")
    ascending = [row[column] for row in page.rows()]
    expect(len(ascending) > 20 and ascending == sorted(ascending), f"not ascending: {ascending[:5]}")
    page.sort("code")
    descending = [row[column] for row in page.rows()]
    expect(descending == sorted(descending, reverse=True), f"not descending: {descending[:5]}")
    expect(descending[0] >= ascending[-1], "ascending and descending begin alike")
    page.sort("code")
    expect(page.browser.run("return document.querySelector('#rows th[aria-sort]') === null"), "the third click unsorts")


def check_find(page, tool, snapshot):
    """The page finds what the tool does, in the same order."""
    page.open_tab("instruments")
    for query in QUERIES:
        answer = subprocess.run([tool, "--data", snapshot, "--today", "20260302", "find", query, "--format", "csv"],
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
        others = ("fund plan", "tender bond", "counterparty", "issuance")
        wanted = [f"{row['market']} {row['code']}" for row in csv.DictReader(io.StringIO(answer)) if row["kind"] not in others]
        page.browser.run("byId('search').value = arguments[0]; update()", query)
        found = page.keys()
        expect(found == wanted, f"{query!r} finds {found[:5]} ({len(found)}), the tool {wanted[:5]} ({len(wanted)})")
    page.browser.run("byId('search').value = ''; update()")


def check_record(page, snapshot):
    page.open_tab("instruments")
    record = next(each for each in instruments(snapshot) if each["market"] == "SH" and "isin" in each)
    page.browser.type("#search", f"sh{record['code']}")
    page.browser.wait(lambda: page.keys()[:1] == [f"SH {record['code']}"], "the record")
    page.browser.click("#rows tbody tr[data-row]")
    page.browser.wait(lambda: page.browser.run("return !byId('record').hidden"), "the record's fields")
    fields = page.browser.run(
        "return [...document.querySelectorAll('#record dd')].map(value => "
        "[value.previousSibling.textContent, value.firstChild.textContent, value.lastChild.textContent])")
    seen = {name: type(record.get(name, ""))(text) for name, text, _ in fields}
    expect({name: value for name, value in record.items() if value} ==
           {name: value for name, value in seen.items() if name not in ("kind", "filed")}, f"other fields: {seen}")
    expect(all(meaning != text for _, text, meaning in fields), f"a field without a meaning: {fields}")
    page.browser.run("history.back()")
    page.browser.wait(lambda: page.browser.run("return byId('record').hidden"), "the record closed, going back")

    page.search("market=SH", page.browser.run("update(); return byId('count').textContent"))
    page.browser.wait(lambda: all(key.startswith("SH ") for key in page.keys()), "the records of SH")
    lines = list(csv.reader(io.StringIO(page.browser.run("return csv()").removeprefix("\ufeff"))))
    expect([f"{line[2]} {line[1]}" for line in lines[1:]] == page.keys() and lines[0][:3] == ["name", "code", "market"],
           f"the downloaded file has other rows: {lines[:2]}")


def check_chains(page, snapshot):
    wanted = {}
    for record in instruments(snapshot):
        if record["market"] == "SHO":
            key = (record["underlyingMarket"] + record["underlyingCode"], record["expireDate"])
            wanted.setdefault(key, set()).add((record["strikePrice"], record["code"], record["optionType"]))
    if not wanted:
        return False
    (underlying, expiry), options = max(wanted.items(), key=lambda item: len(item[1]))
    page.browser.run("go('chains', arguments[0])", underlying)
    page.browser.wait(lambda: page.browser.run("return byId('underlying').value") == underlying, "the chain")
    page.browser.run("[...document.querySelectorAll('#expiries button')].find(chip => "
                     "chip.firstChild.textContent === arguments[0]).click()", expiry)
    shown = page.browser.run(
        "return [...document.querySelectorAll('#chain tbody tr')].flatMap(line => [0, 2].flatMap(side => "
        "[...line.cells[side].querySelectorAll('button')].map(open => "
        "[line.cells[1].textContent, open.textContent, side === 0 ? 1 : 2])))")
    shown = [(float(strike.replace(",", "")), code, side) for strike, code, side in shown]
    expect(len(shown) == len(options) and set(shown) == options, f"another chain of {underlying}: {shown}")
    strikes = [strike for strike, _, side in shown if side == 1]
    expect(strikes == sorted(strikes), f"strike prices are not in order: {strikes}")
    return True


def check_links(page, samples):
    page.open_tab("etfs")
    fund = page.rows()[0][page.column("key")]
    page.browser.click("#rows tbody tr[data-row]")
    page.browser.wait(lambda: page.browser.run("return !byId('record').hidden"), "the fund")
    page.browser.click("#ways button")
    with open(pathlib.Path(samples) / "etfs.ndjson") as file:
        baskets = {etf["exchid"] + etf["etfcode"]: len(etf["stocks"]) for etf in map(json.loads, file)}
    whole = sum(baskets.values())
    page.browser.wait(lambda: page.count() == f"{baskets[fund]} of {whole} rows", "the basket of the fund")
    page.browser.run("history.back()")
    page.browser.wait(lambda: page.browser.run("return !byId('record').hidden"), "the fund, going back")
    page.browser.click("#close")
    page.open_tab("overview")
    page.browser.click("#overview tr[data-link=CFFEX]")
    page.browser.wait(lambda: page.browser.run("return document.getElementById('search').value") == "filed=CFFEX",
                      "the market's instruments")


def check_keyboard(browser, page):
    """The keyboard stays where it was when what it was on is made anew, and goes into a record and back."""
    def expect_at(css, what):
        browser.wait(lambda: browser.run(
            "return document.activeElement === document.querySelector(arguments[0])", css), what)

    page.open_tab("instruments")
    browser.press("#rows th:nth-child(2) button")
    expect_at("#rows th[aria-sort] button", "the keyboard on the head that was sorted by")
    page.sort("code")
    page.sort("code")
    browser.press("#rows tr[data-row='3']")
    expect_at("#close", "the keyboard in the record")
    browser.press("#close")
    expect_at("#rows tr[data-row='3']", "the keyboard on the record's row")
    browser.run("go('chains')")
    browser.wait(lambda: browser.run("return document.querySelector('#expiries button') !== null"), "the chains")
    browser.press("#expiries button:last-child")
    expect_at("#expiries button:last-child[aria-pressed=true]", "the keyboard on the expiry")
    page.open_tab("overview")
    browser.press("#overview tr[data-link=CFFEX] button")
    browser.wait(lambda: browser.run("return byId('search').value") == "filed=CFFEX", "the market's instruments")


def check_addresses(browser, page):
    """Of places asked for one after the other the last is shown; records that there are not are none."""
    page.open_tab("instruments")
    names = browser.run("return [0, 1].map(row => shown.shown[0].text(row))")
    browser.run("const fields = shown.fields; shown.fields = async function (row) {"
                "  const known = await fields.call(this, row);"
                "  if (row === 0) await new Promise(done => { window.goOn = done; });"
                "  return known;"
                "}; go('instruments', '', 0)")
    browser.wait(lambda: browser.run("return Boolean(window.goOn)"), "a record under way")
    browser.run("go('instruments', '', 1)")
    title = "return byId('record').hidden ? '' : document.querySelector('#record h2').textContent"
    browser.wait(lambda: browser.run(title) == names[1], "the second record")
    browser.run("goOn(); delete shown.fields")
    expect(browser.run(title) == names[1], "a record that was left takes the place of the one asked for")
    for row in ("-1", "1.5"):
        browser.run("go('instruments', '', 1)")
        browser.wait(lambda: browser.run(title) == names[1], "the second record")
        browser.run("location.hash = `instruments//${arguments[0]}`", row)
        browser.wait(lambda: browser.run(title) == "", f"no record {row}")


def check_widths(browser, page, work):
    """What names a row is never cut and stays in view."""
    page.open_tab("instruments")
    first = browser.run("byId('scroll').scrollTop = 2000; return indexAt(2000)")
    browser.resize(390, 900)
    browser.wait(lambda: browser.run("return document.querySelector('#rows col').style.width === `${firstWidth()}px` && "
                                     "innerWidth < 760 && indexAt(byId('scroll').scrollTop)") == first, "the same place")
    for width in (390, 800, 1600):
        browser.resize(width, 900)
        page.open_tab("instruments")
        browser.run("byId('search').value = 'a'; update(); byId('scroll').scrollLeft = 300")
        cut = browser.run(
            "const left = byId('scroll').getBoundingClientRect().left;"
            "return [...document.querySelectorAll('#rows tbody tr[data-row]')].filter(row => "
            "row.cells[0].scrollWidth > row.cells[0].clientWidth || row.cells[1].scrollWidth > row.cells[1].clientWidth || "
            "Math.abs(row.cells[0].getBoundingClientRect().left - left) > 2).map(row => row.textContent)")
        expect(not cut, f"cut or out of view at {width}: {cut[:3]}")
        browser.screenshot(work / f"instruments-{width}.png")
        page.open_tab("overview")
        expect(browser.run("return document.documentElement.scrollWidth <= window.innerWidth"), f"wider than {width}")
        browser.screenshot(work / f"overview-{width}.png")


def measure(browser):
    """For people: how long the page takes. Nothing is asserted, machines differ."""
    ready = browser.run("return performance.now()")
    browser.wait(lambda: browser.run("return Boolean(tableOf('instruments').finder.words)"), "the search")
    times = [browser.run("byId('search').value = arguments[0]; const begun = performance.now(); update();"
                         "return performance.now() - begun", query) for query in QUERIES]
    browser.run("byId('search').value = ''; update()")
    print(f"   instruments in view {ready:.0f} ms after opening; a search takes {sorted(times)[len(times) // 2]:.0f} ms, "
          f"at most {max(times):.0f}")


def write_days(samples, work):
    """A day before the samples', and one whose texts are markup."""
    old = work / "old"
    hostile = work / "hostile"
    shutil.copytree(samples, old)
    lines = (old / "instruments.ndjson").read_text().splitlines()
    first, gone = json.loads(lines[0]), lines[1]
    first["name"] = "another name"
    first["priceTick"] = 7
    (old / "instruments.ndjson").write_text("\n".join([json.dumps(first), *lines[2:]]) + "\n")
    hostile.mkdir()
    with open(hostile / "instruments.ndjson", "w") as file:
        for i, text in enumerate(HOSTILE):
            print(json.dumps({"market": "SH", "code": f"{i}{text}", "name": text, "productId": text}), file=file)
    for name, texts in (("pinyin", ["中行", "安信", "北京"]), ("empty", [])):
        (work / name).mkdir()
        lines = [json.dumps({"market": "SH", "code": str(i), "name": text}) for i, text in enumerate(texts)]
        (work / name / "instruments.ndjson").write_text("".join(line + "\n" for line in lines))
    for name, quantity in (("former", 1), ("basket", 2)):
        (work / name).mkdir()
        stocks = [{"market": "SZ", "code": "A 1", "quantity": quantity}, {"market": "SZ", "code": "2"}]
        fund = {"exchid": "SH", "etfcode": "510050", "name": f"fund {quantity}", "stocks": stocks}
        (work / name / "etfs.ndjson").write_text(json.dumps(fund) + "\n")
    return old, hostile, first, json.loads(gone)


def report(tool, snapshot, file, *options):
    subprocess.run([tool, "--data", snapshot, "--today", "20260302", "report", "--html", file, *options], check=True,
                   stdout=subprocess.DEVNULL)


def main(tool, samples, work, large=None):
    work = pathlib.Path(work)
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    old, hostile, changed, listed = write_days(samples, work)
    with Browser() as browser:
        report(tool, samples, work / "day.html", "--against", old)
        page = Page(browser, work / "day.html")
        check_tables(page, samples)
        check_find(page, tool, samples)
        check_record(page, samples)
        expect(check_chains(page, samples), "the samples have options")
        check_links(page, samples)
        check_keyboard(browser, page)
        check_addresses(browser, page)
        page.open_tab("changes")
        changes = [[row[page.column(name)] for name in ("key", "change", "field")] for row in page.rows()]
        key = changed["market"] + changed["code"]
        expect(changes == [[key, "changed", "name"], [key, "changed", "priceTick"],
                           [listed["market"] + listed["code"], "listed", ""]], f"other changes than were made: {changes}")
        page.pick("priceTick")
        browser.wait(lambda: page.count() == "1 of 3 rows", "the changes of one field")
        page.expect_quiet()
        print("ok: the samples, found, sorted, opened, followed and compared")

        report(tool, hostile, work / "hostile.html")
        page = Page(browser, work / "hostile.html")
        page.open_tab("instruments")
        expect(sorted(row[page.column("name")] for row in page.rows()) ==
               sorted(seen or text for text, seen in HOSTILE.items()), "texts are not shown as they are")
        page.search("SHO", "0 of 8 rows")
        page.search("sh6mark", "1 of 8 rows")
        browser.run("byId('search').value = '1+1'; update()")
        expect(page.keys() == ["SH 7=1+1"], "a text with signs of the search's own spoils the next row")
        page.search("", "8 rows")
        lines = csv.DictReader(io.StringIO(browser.run("return csv()").removeprefix("\ufeff"), newline=""))
        expect([line["name"] for line in lines] == list(HOSTILE), "the downloaded file has other texts")
        for row in range(len(HOSTILE)):
            browser.run("go('instruments', '', arguments[0])", row)
            browser.wait(lambda: not browser.run("return byId('record').hidden"), "a record of markup")
        expect(browser.run("return window.harmed === undefined && document.getElementById('harmed') === null"),
               "a record's text became part of the page")
        page.expect_quiet()

        for name in ("pinyin", "empty"):
            report(tool, work / name, work / f"{name}.html")
            page = Page(browser, work / f"{name}.html")
            page.open_tab("instruments")
            if name == "pinyin":
                page.sort("name")
                expect([row[0] for row in page.rows()] == ["安信", "北京", "中行"], f"not by pinyin: {page.rows()}")
            else:
                expect("Nothing on this day." in browser.run("return byId('rows').textContent"), "an empty day has rows")
                page.open_tab("chains")
            page.expect_quiet()
        report(tool, work / "basket", work / "basket.html", "--against", work / "former")
        page = Page(browser, work / "basket.html")
        page.open_tab("changes")
        page.pick("stocks[A 1].quantity")
        browser.wait(lambda: page.count().startswith("1 of "), "the change of a field with a blank")
        page.expect_quiet()
        print("ok: texts that are markup or steer stay texts; Chinese by pinyin; a day of nothing; names with blanks")

        big = work / "big"
        if large is None:
            large = big
            subprocess.run([tool, "generate", "--size", "60000", "--date", "20260302", big], check=True,
                           stdout=subprocess.DEVNULL)
        report(tool, large, work / "big.html")
        page = Page(browser, work / "big.html")
        page.open_tab("instruments")
        measure(browser)
        check_tables(page, large)
        check_find(page, tool, large)
        check_chains(page, large)
        expect(browser.run("return document.getElementsByTagName('*').length") < 5000, "the page holds too many elements")
        check_widths(browser, page, work)
        page.expect_quiet()
        print(f"ok: a large day, {(work / 'big.html').stat().st_size / 1e6:.1f} MB")
    for image in work.glob("*.png"):
        expect(image.stat().st_size > 15000, f"{image} shows next to nothing")
    print(f"screenshots: {work}/*.png")


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except AssertionError as failure:
        sys.exit(f"FAILED: {failure}")
