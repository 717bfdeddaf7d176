// Shows the tables. Texts of records reach the page as text nodes only, never as markup.
const lineHeight = 20;
const spareRows = 15;
let shown = null; // the table in view
let rows = null; // its rows that match, in order
let tops = null; // where each of them begins, and the last ends
let sorting = null; // {column, descending}
let drawn = ""; // the range of rows that stands in the page
let visits = 0; // places that were asked for
const narrow = window.matchMedia("(max-width: 760px)");
const number = new Intl.NumberFormat("en", {maximumFractionDigits: 20});

function element(tag, text, attributes) {
  const made = document.createElement(tag);
  if (text !== undefined) made.textContent = text;
  for (const [name, value] of Object.entries(attributes || {})) made.setAttribute(name, value);
  return made;
}

// Puts fresh elements in the place of a parent's old ones. The keyboard stays on what says the same as before.
function refill(parent, ...fresh) {
  const name = (made) => made.dataset.row || made.textContent;
  const held = parent.contains(document.activeElement) ? name(document.activeElement) : null;
  parent.replaceChildren(...fresh);
  if (held === null) return;
  const successor = [...parent.querySelectorAll("tr[data-row], button")].find((made) => name(made) === held);
  (successor || byId("scroll")).focus({preventScroll: true});
}

// Signs that would steer what is written around them, or cannot be seen, by their numbers: as the tool writes them.
const visible = (text) => text.replace(/[\0-\x1f\x7f-\x9f\u061c\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff]/g,
    (sign) => `\\x${sign.charCodeAt(0).toString(16).toUpperCase().padStart(2, "0")}`);
const shownCell = (cell) => (typeof cell === "number" ? number.format(cell) : visible(cellText(cell)));

// How wide a text gets, rather too wide than too narrow: fonts differ.
function widthOf(text) {
  let width = 0;
  for (let i = 0; i < text.length; ++i) {
    const code = text.charCodeAt(i);
    width += code > 0x2e7f ? 15 : (code >= 0x41 && code <= 0x5a) || code === 0x6d || code === 0x77 ? 11 : 9;
  }
  return width;
}

const isCode = (column) => /^(code|key|fund|component|firstLeg|secondLeg)$/.test(column.name);

// Columns as wide as their widest text, within bounds. By the first and by codes a row is known: longer ones are broken
// into lines, others cut.
function measure(table) {
  if (table.nameWidths) return;
  table.nameWidths = new Uint16Array(table.length);
  for (let row = 0; row < table.length; ++row) table.nameWidths[row] = widthOf(table.shown[0].text(row));
  table.widths = table.shown.map((column) => {
    const long = /^(englishName|industry|issuer|manager|old|new)$/.test(column.name);
    let widest = widthOf(column.name) + 24;
    for (const value of column.values) widest = Math.max(widest, widthOf(cellText(value)));
    return Math.min(widest, isCode(column) ? 160 : long ? 300 : 720) + 26;
  });
}

const keyed = () => shown.column("code") && shown.column("market");
const firstWidth = () =>
  Math.min(shown.widths[0], Math.max(170, Math.min(320, Math.floor(window.innerWidth * (narrow.matches ? 0.44 : 0.22)))));

// By the lines of each row's first cell, more or less: a row that needs more takes them.
function place() {
  const perLine = firstWidth() - 26;
  const withKey = keyed() ? 1 : 0;
  const always = narrow.matches ? withKey : 0;
  const widths = shown.nameWidths;
  tops = new Float64Array(rows.length + 1);
  for (let i = 0; i < rows.length; ++i) {
    const own = widths[rows[i]];
    const lines = own === 0 ? 1 + withKey : Math.ceil(own * 0.88 / perLine) + always;
    tops[i + 1] = tops[i] + lines * lineHeight + 10;
  }
}

function indexAt(top) {
  let low = 0;
  let high = rows.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (tops[middle + 1] <= top) low = middle + 1;
    else high = middle;
  }
  return low;
}

function makeCell(column, row, first) {
  const made = element("td", shownCell(column.at(row)));
  if (first) {
    if (keyed() && (narrow.matches || shown.nameWidths[row] === 0)) {
      made.append(element("small", visible(`${shown.column("market").text(row)} ${shown.column("code").text(row)}`)));
    }
  } else {
    made.title = made.textContent;
    if (column.numeric) made.className = "number";
    if (isCode(column)) made.className = "code";
    if (column.name === "change") made.className = column.text(row);
  }
  return made;
}

function fillRows(top) {
  if (!shown || !rows) return;
  // In steps, so that short ways need no new rows.
  const first = Math.max(0, Math.floor(indexAt(top) / 10) * 10 - spareRows);
  const last = Math.min(rows.length, indexAt(top + byId("scroll").clientHeight) + 2 * spareRows);
  // Rows that stay are not made anew: a click may be under way on one.
  if (drawn === `${first} ${last}`) return;
  drawn = `${first} ${last}`;
  const body = document.createDocumentFragment();
  const gap = (height) => {
    const row = element("tr", undefined, {class: "gap"});
    row.append(element("td", "", {colspan: Math.max(1, shown.shown.length), style: `height:${height}px`}));
    return row;
  };
  body.append(gap(tops[first]));
  for (let i = first; i < last; ++i) {
    const height = tops[i + 1] - tops[i];
    const row = element("tr", undefined, {"data-row": rows[i], tabindex: 0, style: `height:${height}px`});
    if (i % 2 === 1) row.className = "odd";
    shown.shown.forEach((column, at) => row.append(makeCell(column, rows[i], at === 0)));
    body.append(row);
  }
  body.append(gap(tops[rows.length] - tops[last]));
  if (rows.length === 0) {
    const row = element("tr");
    row.append(element("td", shown.length === 0 ? "Nothing on this day." : "Nothing matches.",
        {class: "empty", colspan: Math.max(1, shown.shown.length)}));
    body.append(row);
  }
  refill(document.querySelector("#rows tbody"), body);
}

function fillHead() {
  const head = element("tr");
  const group = document.querySelector("#rows colgroup");
  group.replaceChildren();
  shown.shown.forEach((column, i) => {
    const cell = element("th", undefined, {scope: "col"});
    if (column.numeric) cell.className = "number";
    const sorted = sorting && sorting.column === column;
    if (sorted) cell.setAttribute("aria-sort", sorting.descending ? "descending" : "ascending");
    const button = element("button", column.name, {type: "button", title: column.meaning});
    button.addEventListener("click", () => {
      sorting = sorted && sorting.descending ? null : {column, descending: Boolean(sorted)};
      update();
    });
    cell.append(button);
    head.append(cell);
    group.append(element("col", undefined, {style: `width:${i === 0 ? firstWidth() : shown.widths[i]}px`}));
  });
  const width = shown.widths.reduce((sum, each) => sum + each, 0) - shown.widths[0] + firstWidth();
  byId("rows").style.width = `${width}px`;
  refill(document.querySelector("#rows thead"), head);
}

// The matching rows by a column, those without a value last whichever way; else the best first.
function inOrder(found) {
  if (!sorting) return found;
  const {column, descending} = sorting;
  const wanted = new Uint8Array(shown.length);
  for (const row of found) wanted[row] = 1;
  const ordered = column.order(shown.length).filter((row) => wanted[row]);
  if (!descending) return ordered;
  let filled = ordered.findIndex((row) => column.text(row) === "");
  if (filled < 0) filled = ordered.length;
  ordered.subarray(0, filled).reverse();
  return ordered;
}

function finderOf(table) {
  table.finder = table.finder || new Finder(table);
  return table.finder;
}

// Lays the rows out anew, with one of them at the top.
function lay(first) {
  place();
  fillHead();
  drawn = "";
  fillRows(tops[first]); // before scrolling, which goes no further than there are rows
  byId("scroll").scrollTop = tops[first];
}

function update() {
  if (!shown || !shown.shown) return;
  rows = inOrder(finderOf(shown).find(byId("search").value));
  lay(0);
  const all = number.format(shown.length);
  byId("count").textContent = rows.length === shown.length ? `${all} rows` : `${number.format(rows.length)} of ${all} rows`;
}

// A condition as one word of a search, which takes no notice of blanks in values.
const oneWord = (condition) => condition.replace(/[ \t]+/g, "");

// What changed, by what it was and by field: each group with its number, to pick one.
function fillGroups() {
  const counts = new Map();
  if (shown.id === "changes") {
    const [change, field] = [shown.column("change"), shown.column("field")];
    for (let row = 0; row < shown.length; ++row) {
      const group = field.text(row) === "" ? `change=${change.text(row)}` : `field=${field.text(row)}`;
      counts.set(group, (counts.get(group) || 0) + 1);
    }
    sorting = {column: field, descending: false};
  }
  const groups = [...counts].sort(([left, few], [right, many]) => many - few || (left < right ? -1 : 1));
  byId("groups").replaceChildren(...groups.map(([group, count]) => {
    const chip = element("button", group.slice(group.indexOf("=") + 1), {type: "button", class: "chip"});
    chip.append(element("span", number.format(count)));
    const search = oneWord(group);
    chip.addEventListener("click", () => go(shown.id, byId("search").value === search ? "" : search));
    return chip;
  }));
}

async function show(id, search, wanted) {
  const table = tableOf(id);
  for (const tab of byId("tabs").children) {
    if (tab.dataset.id === id) tab.setAttribute("aria-current", "page");
    else tab.removeAttribute("aria-current");
  }
  byId("overview").hidden = id !== "overview";
  byId("view").hidden = table === null;
  byId("options").hidden = id !== "chains";
  const changed = shown !== table;
  shown = table;
  if (table !== null && changed) {
    rows = null;
    byId("heading").textContent = table.title;
    byId("note").textContent = table.note;
    byId("search").placeholder = id === "instruments" ? "Code, name, pinyin, initials, ISIN" : "Search every column";
    byId("count").textContent = table.shown ? "" : "…";
    document.querySelector("#rows tbody").replaceChildren();
  }
  if (id === "overview") return;
  const asked = table || tableOf("instruments");
  await asked.load();
  if (!wanted()) return;
  if (table === null) {
    showChains(asked, search);
    return;
  }
  const fresh = rows === null; // perhaps of a visit before, which did not get here
  if (fresh) {
    sorting = null;
    measure(table);
    fillGroups();
  }
  if (fresh || byId("search").value !== search) {
    byId("search").value = search;
    update();
  }
}

// A row of a table by its key, null where there is none: for what leads to an instrument.
function rowOfKey(table, key) {
  if (!table.rowByKey) {
    table.rowByKey = new Map();
    const [filed, code] = [table.column("filed"), table.column("code")];
    for (let row = 0; filed && row < table.length; ++row) table.rowByKey.set(filed.text(row) + code.text(row), row);
  }
  const row = table.rowByKey.get(key);
  return row === undefined ? null : row;
}

// Where a record leads to: [title, table, search].
function waysFrom(table, row) {
  const ways = [];
  if (table.link !== "") {
    const [id, column, from] = table.link.split("/");
    ways.push([tableOf(id).title, id, oneWord(`${column}=${table.column(from).text(row)}`)]);
  }
  if (table.id === "instruments") {
    const own = table.column("filed").text(row) + table.column("code").text(row);
    for (const [title, key] of [["Its option chain", underlyingOf(table, row)], ["Options on it", own]]) {
      if (makeChains(table).has(key)) ways.push([title, "chains", key]);
    }
  }
  return ways;
}

function closeRecord(panel) {
  const held = panel.contains(document.activeElement);
  panel.hidden = true;
  const opener = document.querySelector(`#rows tr[data-row="${panel.dataset.row}"]`);
  const next = [opener, byId("scroll"), byId("underlying")].find((each) => each && each.offsetParent); // that is in view
  if (held && next) next.focus();
}

async function showRecord(table, row, wanted) {
  const panel = byId("record");
  if (table === null || !Number.isInteger(row) || row < 0 || row >= table.length) {
    closeRecord(panel);
    return;
  }
  await table.load();
  const fields = await table.fields(row);
  if (!wanted()) return;
  panel.querySelector("h2").textContent = visible(table.shown[0].text(row) || table.shown[1].text(row));
  byId("ways").replaceChildren(...waysFrom(table, row).map(([title, id, search]) => {
    const chip = element("button", title, {type: "button", class: "chip"});
    chip.addEventListener("click", () => go(id, search));
    return chip;
  }));
  panel.querySelector("dl").replaceChildren(...fields.flatMap(([name, meaning, text]) => {
    const value = element("dd", visible(text));
    value.append(element("small", meaning));
    return [element("dt", name), value];
  }));
  panel.dataset.row = row;
  panel.hidden = false;
  panel.scrollTop = 0;
  byId("close").focus();
}

// Places have addresses, so that going back closes a record and returns to the search before.
function go(id, search, row) {
  const hash = [id, search || "", row === undefined ? "" : row].map(encodeURIComponent).join("/").replace(/\/+$/, "");
  if (location.hash === `#${hash}`) showPlace();
  else location.hash = hash;
}

// Tables and records may take a while to unpack: what comes when another place is wanted already is left.
async function showPlace() {
  const visit = ++visits;
  const wanted = () => visit === visits;
  let parts = ["overview"];
  try {
    parts = location.hash.slice(1).split("/").map(decodeURIComponent);
  } catch (error) {
    // A hash that is no address of ours.
  }
  const id = parts[0] === "chains" || tableOf(parts[0]) ? parts[0] : "overview";
  await show(id, parts[1] || "", wanted);
  if (wanted()) await showRecord(parts[2] ? tableOf(id) : null, Number(parts[2]), wanted);
}

function smallTable(table) {
  const card = element("div", undefined, {class: "card"});
  const grid = element("table");
  const head = element("tr");
  const cells = (line, tag, text) => table.shown.forEach((column, i) => {
    line.append(element(tag, text(column, i), column.numeric ? {class: "number"} : {}));
  });
  cells(head, "th", (column) => column.name);
  grid.append(element("thead"), element("tbody"));
  grid.tHead.append(head);
  for (let row = 0; row < table.length; ++row) {
    const line = element("tr");
    cells(line, "td", (column) => shownCell(column.at(row)));
    if (table.link !== "" && table.shown[0].at(row) !== "total") {
      line.dataset.link = table.shown[0].text(row);
      const [first] = line.cells; // a button, which the keyboard reaches; its click is one on the line
      first.replaceChildren(element("button", first.textContent, {type: "button", class: "plain"}));
      const [id, column, from] = table.link.split("/");
      line.addEventListener("click", () => go(id, oneWord(`${column}=${table.column(from).text(row)}`)));
    }
    grid.tBodies[0].append(line);
  }
  card.append(element("h2", table.title), grid);
  return card;
}

async function fillOverview() {
  const figures = element("div", undefined, {class: "figures"});
  for (const table of tables.filter((each) => !each.overview && each.length > 0)) {
    const card = element("button", undefined, {class: "card", type: "button"});
    card.append(element("b", number.format(table.length)), element("span", table.title));
    card.addEventListener("click", () => go(table.id));
    figures.append(card);
  }
  const sheets = element("div", undefined, {class: "sheets"});
  for (const table of tables.filter((each) => each.overview && each.length > 0)) {
    await table.load();
    sheets.append(smallTable(table));
  }
  const nothing = tables.every((table) => table.length === 0);
  byId("overview").replaceChildren(nothing ? element("p", "Nothing on this day.") : figures, sheets);
}

function fillFrame() {
  document.title = day.title;
  byId("title").textContent = visible(day.title);
  const old = "DecompressionStream" in window ? "" : " This browser is too old to unpack large tables.";
  byId("subtitle").textContent = visible(day.subtitle) + old;
  const remarks = day.remarks.length > 0 ? `; ${number.format(day.remarks.length)} remarks` : "";
  document.querySelector("#sources summary").textContent = visible(day.sources[day.sources.length - 1]) + remarks;
  const lines = [...day.sources.slice(0, -1), ...day.remarks];
  document.querySelector("#sources ul").replaceChildren(...lines.map((line) => element("li", visible(line))));
  const add = (id, title, count) => {
    const tab = element("button", undefined, {type: "button", "data-id": id});
    tab.append(element("b", title), element("span", count));
    if (count === "0") tab.className = "none";
    tab.addEventListener("click", () => go(id));
    byId("tabs").append(tab);
  };
  add("overview", "Overview", "");
  for (const table of tables.filter((each) => !each.overview)) {
    add(table.id, table.title, number.format(table.length));
    if (table.id === "instruments") add("chains", "Option chains", "");
  }
}

// The rows in view as a file: RFC 4180, with the mark by which spreadsheets know UTF-8.
function csv() {
  const quoted = (text) => (/[",\r\n]/.test(text) ? `"${text.replaceAll('"', '""')}"` : text);
  const lines = [shown.shown.map((column) => column.name)];
  for (const row of rows) lines.push(shown.shown.map((column) => column.text(row)));
  return "\ufeff" + lines.map((line) => line.map(quoted).join(",") + "\r\n").join("");
}

function download() {
  const link = element("a", undefined, {download: `${shown.id}.csv`});
  link.href = URL.createObjectURL(new Blob([csv()], {type: "text/csv"}));
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000); // the browser may still be saving
}

// What a search of instruments needs is made while nobody waits for it.
async function prepare() {
  const table = tableOf("instruments");
  await table.load();
  const {making} = finderOf(table);
  const step = () => making.next().done || setTimeout(step);
  step();
}

function listen() {
  let typing = 0;
  byId("search").addEventListener("input", () => {
    clearTimeout(typing);
    typing = setTimeout(update, 60);
  });
  byId("scroll").addEventListener("scroll", () => requestAnimationFrame(() => fillRows(byId("scroll").scrollTop)),
      {passive: true});
  const open = (event) => {
    const row = event.target.closest("tr[data-row]");
    if (row) go(shown.id, byId("search").value, row.dataset.row);
  };
  byId("rows").addEventListener("click", open);
  byId("rows").addEventListener("keydown", (event) => event.key === "Enter" && open(event));
  byId("close").addEventListener("click", () => go(location.hash.slice(1).split("/")[0], shown ? byId("search").value : ""));
  byId("download").addEventListener("click", () => rows && download());
  byId("underlying").addEventListener("change", () => go("chains", byId("underlying").value));
  document.addEventListener("keydown", (event) => event.key === "Escape" && !byId("record").hidden && byId("close").click());
  window.addEventListener("resize", () => shown && rows && lay(indexAt(byId("scroll").scrollTop)));
  window.addEventListener("hashchange", showPlace);
}

fillFrame();
listen();
fillOverview();
showPlace();
setTimeout(prepare, 50);
