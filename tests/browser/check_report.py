#!/usr/bin/env python3
"""Opens reports in a real browser, uses them as people do, and fails when what it sees is wrong.

usage: check_report.py TOOL SAMPLES WORK [SNAPSHOT]     screenshots go to WORK; SNAPSHOT is shown as well
"""

import json
import pathlib
import shutil
import subprocess
import sys

from webdriver import Browser

HOSTILE = ["</script><img src=x onerror=window.harmed=1>", "<b id=harmed>bold</b>", "<!--<script>", "\"'&amp;\u2028x"]


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
            "return [...document.querySelectorAll('#rows tbody tr:not(.gap)')]"
            ".map(row => [...row.cells].map(cell => cell.textContent))")

    def column(self, name):
        return self.browser.run(
            "return [...document.querySelectorAll('#rows thead th')].findIndex(h => h.textContent === arguments[0])",
            name)

    def open_tab(self, name):
        self.browser.click(f"#tabs button[data-id={name}]")
        self.browser.wait(lambda: self.browser.run(
            "return document.querySelector('#tabs button[aria-current]').dataset.id") == name, f"the table {name}")

    def search(self, text, count):
        self.browser.type("#search", text)
        self.browser.wait(lambda: self.count() == count, f"{count!r} for {text!r}, not {self.count()!r}")

    def sort(self, name):
        self.browser.click(f"#rows thead th:nth-child({self.column(name) + 1}) button")

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
    some = records[len(records) // 2]
    page.browser.type("#search", f"filed={some['market']} code={some['code'].split()[0]}")
    page.search("there is no such thing", f"0 of {total:,} rows")
    page.search("", f"{total:,} rows")
    check_sorting(page)
    page.browser.run("document.getElementById('scroll').scrollTop = 1e9")
    page.browser.wait(lambda: page.browser.run(
        "const box = document.getElementById('scroll').getBoundingClientRect();"
        "const rows = document.querySelectorAll('#rows tbody tr:not(.gap)');"
        "const last = rows[rows.length - 1].getBoundingClientRect();"
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


def check_links(page, samples):
    page.open_tab("etfs")
    fund = page.rows()[0]
    page.browser.click("#rows tbody tr[data-link]")
    with open(pathlib.Path(samples) / "etfs.ndjson") as file:
        baskets = {etf["exchid"] + etf["etfcode"]: len(etf["stocks"]) for etf in map(json.loads, file)}
    whole = sum(baskets.values())
    page.browser.wait(lambda: page.count() == f"{baskets[fund[0]]} of {whole} rows", "the basket of the fund")
    page.browser.run("history.back()")
    page.browser.wait(lambda: page.rows()[0] == fund, "the funds, going back")
    page.open_tab("overview")
    page.browser.click("#overview tr[data-link=CFFEX]")
    page.browser.wait(lambda: page.browser.run("return document.getElementById('search').value") == "filed=CFFEX",
                      "the market's instruments")


def write_days(samples, work):
    """A day before the samples', and one whose texts are markup."""
    old = work / "old"
    hostile = work / "hostile"
    shutil.copytree(samples, old)
    lines = (old / "instruments.ndjson").read_text().splitlines()
    first = json.loads(lines[0])
    first["name"] = "another name"
    (old / "instruments.ndjson").write_text("\n".join([json.dumps(first), *lines[2:]]) + "\n")
    hostile.mkdir()
    with open(hostile / "instruments.ndjson", "w") as file:
        for i, text in enumerate(HOSTILE):
            print(json.dumps({"market": "SH", "code": f"{i}{text}", "name": text, "productId": text}), file=file)
    return old, hostile, lines[1]


def report(tool, snapshot, file, *options):
    subprocess.run([tool, "--data", snapshot, "--today", "20260302", "report", "--html", file, *options], check=True,
                   stdout=subprocess.DEVNULL)


def main(tool, samples, work, large=None):
    work = pathlib.Path(work)
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    old, hostile, gone = write_days(samples, work)
    with Browser() as browser:
        report(tool, samples, work / "day.html", "--against", old)
        page = Page(browser, work / "day.html")
        browser.screenshot(work / "overview.png")
        check_tables(page, samples)
        check_links(page, samples)
        page.open_tab("changes")
        listed = json.loads(gone)
        expect([row[:3] for row in page.rows()] == [["listed", "instruments", listed["market"] + listed["code"]],
                                                    ["changed", "instruments", page.rows()[1][2]]],
               f"other changes than were made: {page.rows()}")
        page.open_tab("instruments")
        browser.screenshot(work / "instruments.png")
        page.expect_quiet()
        print("ok: the samples, searched, sorted, followed and compared")

        report(tool, hostile, work / "hostile.html")
        page = Page(browser, work / "hostile.html")
        page.open_tab("instruments")
        expect(sorted(row[page.column("name")] for row in page.rows()) == sorted(HOSTILE), "texts are not shown as they are")
        expect(browser.run("return window.harmed === undefined && document.getElementById('harmed') === null"),
               "a record's text became part of the page")
        page.expect_quiet()
        print("ok: texts that are markup stay texts")

        big = work / "big"
        if large is None:
            large = big
            subprocess.run([tool, "generate", "--size", "60000", "--date", "20260302", big], check=True,
                           stdout=subprocess.DEVNULL)
        report(tool, large, work / "big.html")
        page = Page(browser, work / "big.html")
        check_tables(page, large)
        expect(browser.run("return document.getElementsByTagName('*').length") < 5000, "the page holds too many elements")
        page.expect_quiet()
        browser.screenshot(work / "big.png")
        browser.resize(420, 800)
        page.open_tab("overview")
        browser.screenshot(work / "narrow.png")
        print(f"ok: a large day, {(work / 'big.html').stat().st_size / 1e6:.1f} MB")
    for image in ("overview.png", "instruments.png", "big.png", "narrow.png"):
        expect((work / image).stat().st_size > 15000, f"{image} shows next to nothing")
    print(f"screenshots: {work}/*.png")


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except AssertionError as failure:
        sys.exit(f"FAILED: {failure}")
