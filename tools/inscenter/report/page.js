"use strict";
// Shows the tables of the data block. Texts of records reach the page as text nodes only, never as markup.
const day = JSON.parse(document.getElementById("data").textContent);
const byId = (id) => document.getElementById(id);
const tables = day.tables;
const rowHeight = 30;
const spareRows = 20;
let shown = null; // the table in view
let rows = []; // positions of its rows that match, in order
let sorting = null; // {column, descending}
let drawn = ""; // the range of rows that stands in the page

function element(tag, text, attributes) {
  const made = document.createElement(tag);
  if (text !== undefined) made.textContent = text;
  for (const [name, value] of Object.entries(attributes || {})) made.setAttribute(name, value);
  return made;
}

// Case, full-width letters and blanks make no difference.
const folded = (text) => text.normalize("NFKC").toLowerCase().replace(/\s+/g, "");
const cellText = (cell) => (cell === null ? "" : Array.isArray(cell) ? cell.join(", ") : String(cell));
const number = new Intl.NumberFormat("en");

// What a table's rows are searched by, made when first needed.
function haystacks(table) {
  if (!table.haystacks) table.haystacks = table.rows.map((row) => row.map((cell) => folded(cellText(cell))).join("\n"));
  return table.haystacks;
}

function matching(table, text) {
  const words = text.split(/\s+/).filter((word) => word !== "");
  const all = table.rows.map((row, position) => position);
  if (words.length === 0) return all;
  const texts = haystacks(table);
  const tests = words.map((word) => {
    // COLUMN=VALUE asks for a whole cell, any other word for a part of one.
    const at = word.indexOf("=");
    const column = at > 0 ? table.columns.indexOf(word.slice(0, at)) : -1;
    const wanted = folded(column < 0 ? word : word.slice(at + 1));
    return column < 0 ? (position) => texts[position].includes(wanted)
      : (position) => folded(cellText(table.rows[position][column])) === wanted;
  });
  return all.filter((position) => tests.every((test) => test(position)));
}

function compareCells(left, right) {
  if (typeof left === "number" && typeof right === "number") return left - right;
  const first = cellText(left);
  const second = cellText(right);
  return first < second ? -1 : first > second ? 1 : 0;
}

function sortRows() {
  if (!sorting) return;
  const {column, descending} = sorting;
  const empty = (position) => cellText(shown.rows[position][column]) === "";
  // Empty cells stand last whichever way.
  rows.sort((a, b) => empty(a) - empty(b) ||
      (descending ? -1 : 1) * compareCells(shown.rows[a][column], shown.rows[b][column]) || a - b);
}

const columnsOf = (text) => Array.from(text).reduce((sum, sign) => sum + (sign.codePointAt(0) > 0x2e7f ? 2 : 1), 0);

function measure(table) {
  if (table.widths) return;
  const step = Math.max(1, Math.floor(table.rows.length / 500));
  table.numeric = table.columns.map((name, i) => table.rows.some((row) => typeof row[i] === "number"));
  table.widths = table.columns.map((name, i) => {
    let widest = columnsOf(name) + 3;
    for (let position = 0; position < table.rows.length; position += step) {
      widest = Math.max(widest, columnsOf(cellText(table.rows[position][i])));
    }
    return Math.min(widest, 46) * 8 + 26;
  });
}

function makeCell(table, row, i) {
  const cell = row[i];
  const text = typeof cell === "number" ? number.format(cell) : cellText(cell);
  const made = element("td", text, {title: text});
  if (table.numeric[i]) made.className = "number";
  if (i === 0 && table.id === "changes") made.className = text;
  return made;
}

function fillRows() {
  const scroll = byId("scroll");
  // In steps, so that short ways need no new rows.
  const first = Math.max(0, Math.floor(scroll.scrollTop / rowHeight / 10) * 10 - spareRows);
  const last = Math.min(rows.length, first + Math.ceil(scroll.clientHeight / rowHeight) + 2 * spareRows + 10);
  // Rows that stay are not made anew: a click may be under way on one.
  if (drawn === `${first} ${last}`) return;
  drawn = `${first} ${last}`;
  const body = document.createDocumentFragment();
  const gap = (count) => {
    const row = element("tr", undefined, {class: "gap"});
    row.append(element("td", "", {colspan: shown.columns.length, style: `height:${count * rowHeight}px`}));
    return row;
  };
  body.append(gap(first));
  for (const position of rows.slice(first, last)) {
    const row = element("tr");
    shown.columns.forEach((name, i) => row.append(makeCell(shown, shown.rows[position], i)));
    if (shown.link !== "") row.dataset.link = cellText(shown.rows[position][0]);
    body.append(row);
  }
  body.append(gap(rows.length - last));
  if (rows.length === 0) {
    const row = element("tr");
    row.append(element("td", shown.rows.length === 0 ? "Nothing on this day." : "Nothing matches.",
        {class: "empty", colspan: shown.columns.length}));
    body.append(row);
  }
  document.querySelector("#rows tbody").replaceChildren(body);
}

function fillHead() {
  const head = element("tr");
  const group = document.querySelector("#rows colgroup");
  group.replaceChildren();
  shown.columns.forEach((name, i) => {
    const cell = element("th", undefined, {scope: "col"});
    if (shown.numeric[i]) cell.className = "number";
    if (sorting && sorting.column === i) cell.setAttribute("aria-sort", sorting.descending ? "descending" : "ascending");
    const button = element("button", name, {type: "button"});
    button.addEventListener("click", () => {
      const again = sorting && sorting.column === i;
      sorting = again && sorting.descending ? null : {column: i, descending: Boolean(again)};
      update();
    });
    cell.append(button);
    head.append(cell);
    group.append(element("col", undefined, {style: `width:${shown.widths[i]}px`}));
  });
  byId("rows").style.width = `${shown.widths.reduce((sum, width) => sum + width, 0)}px`;
  document.querySelector("#rows thead").replaceChildren(head);
}

function update() {
  rows = matching(shown, byId("search").value);
  sortRows();
  fillHead();
  byId("scroll").scrollTop = 0;
  drawn = "";
  fillRows();
  const all = number.format(shown.rows.length);
  byId("count").textContent = rows.length === shown.rows.length ? `${all} rows` : `${number.format(rows.length)} of ${all} rows`;
}

function show(id, search) {
  shown = tables.find((table) => table.id === id) || null;
  for (const tab of byId("tabs").children) {
    if (tab.dataset.id === id) tab.setAttribute("aria-current", "page");
    else tab.removeAttribute("aria-current");
  }
  byId("overview").hidden = shown !== null;
  byId("view").hidden = shown === null;
  if (!shown) return;
  measure(shown);
  sorting = null;
  byId("heading").textContent = shown.title;
  byId("note").textContent = shown.note || "";
  byId("search").value = search || "";
  update();
}

function go(id, search) {
  const hash = "#" + encodeURIComponent(id) + (search ? "/" + encodeURIComponent(search) : "");
  if (location.hash === hash) show(id, search);
  else location.hash = hash;
}

function showPlace() {
  let parts = ["overview"];
  try {
    parts = location.hash.slice(1).split("/").map(decodeURIComponent);
  } catch (error) {
    // A hash that is no address of ours.
  }
  show(tables.some((table) => table.id === parts[0]) ? parts[0] : "overview", parts[1]);
}

function smallTable(table) {
  measure(table);
  const card = element("div", undefined, {class: "card"});
  const grid = element("table");
  const head = element("tr");
  table.columns.forEach((name, i) => head.append(element("th", name, table.numeric[i] ? {class: "number"} : {})));
  grid.append(element("thead"), element("tbody"));
  grid.tHead.append(head);
  for (const values of table.rows) {
    const row = element("tr");
    table.columns.forEach((name, i) => row.append(makeCell(table, values, i)));
    if (table.link !== "" && values[0] !== "total") row.dataset.link = cellText(values[0]);
    grid.tBodies[0].append(row);
  }
  grid.addEventListener("click", (event) => follow(event, table));
  card.append(element("h2", table.title), grid);
  return card;
}

function follow(event, table) {
  const row = event.target.closest("tr[data-link]");
  if (!row || !table.link) return;
  const [id, column] = table.link.split("/");
  go(id, `${column}=${row.dataset.link}`);
}

function fillOverview() {
  const figures = element("div", undefined, {class: "figures"});
  for (const table of tables.filter((each) => !each.overview && each.rows.length > 0)) {
    const card = element("button", undefined, {class: "card", type: "button"});
    card.append(element("b", number.format(table.rows.length)), element("span", table.title));
    card.addEventListener("click", () => go(table.id));
    figures.append(card);
  }
  const sheets = element("div", undefined, {class: "sheets"});
  for (const table of tables.filter((each) => each.overview && each.rows.length > 0)) sheets.append(smallTable(table));
  byId("overview").replaceChildren(figures, sheets);
}

function fillTabs() {
  const add = (id, title, count) => {
    const tab = element("button", undefined, {type: "button", "data-id": id});
    tab.append(element("b", title, {style: "font-weight:inherit"}), element("span", count));
    tab.addEventListener("click", () => go(id));
    byId("tabs").append(tab);
  };
  add("overview", "Overview", "");
  for (const table of tables) if (!table.overview) add(table.id, table.title, number.format(table.rows.length));
}

document.title = day.title;
byId("title").textContent = day.title;
byId("subtitle").textContent = day.subtitle;
fillTabs();
fillOverview();
let typing = 0;
byId("search").addEventListener("input", () => {
  clearTimeout(typing);
  typing = setTimeout(update, 80);
});
byId("scroll").addEventListener("scroll", () => requestAnimationFrame(fillRows), {passive: true});
byId("rows").addEventListener("click", (event) => follow(event, shown));
window.addEventListener("resize", () => shown && fillRows());
window.addEventListener("hashchange", showPlace);
showPlace();
