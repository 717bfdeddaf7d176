"use strict";
// Takes the page's data apart, as ReportData.cpp puts them together. Nothing is unpacked before it is asked for.
const byId = (id) => document.getElementById(id);
const day = JSON.parse(byId("data").textContent);

async function unpacked(id) {
  const block = byId(id);
  const text = atob(block.textContent);
  const bytes = new Uint8Array(text.length);
  for (let i = 0; i < text.length; ++i) bytes[i] = text.charCodeAt(i);
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
  return JSON.parse(await new Response(stream).text());
}

const cellText = (cell) => (cell === null ? "" : Array.isArray(cell) ? cell.join(", ") : String(cell));

// A list of values, one a row; where few values occur, these and the place of each row's one.
class Column {
  constructor([name, meaning], data) {
    this.name = name;
    this.meaning = meaning;
    this.values = data.rows || data.values;
    this.places = data.places ? Uint32Array.from(data.places) : null;
    this.single = !data.rows && !data.places;
    this.numeric = this.values.some((value) => typeof value === "number");
    this.sorted = null;
  }

  at(row) {
    return this.single ? this.values[0] : this.values[this.places ? this.places[row] : row];
  }

  text(row) {
    return cellText(this.at(row));
  }

  // The rows from the least value to the greatest, those without a value last; made once.
  order(length) {
    if (this.sorted) return this.sorted;
    const rankOfValue = this.numeric ? (value) => value : ranks(this.values.map(cellText));
    const keys = new Float64Array(length);
    for (let row = 0; row < length; ++row) {
      const value = this.at(row);
      keys[row] = cellText(value) === "" ? Infinity : this.numeric ? value : rankOfValue.get(cellText(value));
    }
    this.sorted = new Uint32Array(length).map((_, row) => row).sort((a, b) => keys[a] - keys[b] || a - b);
    return this.sorted;
  }
}

// The place of each text among all, in an order in which Chinese goes by pinyin. Asking the collator of every two texts
// takes seconds for a large day; so it is asked of every two letters, and texts are compared by the places of theirs.
function ranks(texts) {
  const distinct = [...new Set(texts)];
  let keyOf = (text) => text;
  if (distinct.some((text) => /[^\0-\x7f]/.test(text))) {
    const letters = new Set();
    for (const text of distinct) for (const letter of text) letters.add(letter);
    const collator = new Intl.Collator("zh");
    const place = new Map([...letters].sort(collator.compare).map((letter, i) => [letter, String.fromCharCode(i + 1)]));
    keyOf = (text) => Array.from(text, (letter) => place.get(letter)).join("");
  }
  const keyed = distinct.map((text) => [keyOf(text), text]);
  keyed.sort(([left], [right]) => (left < right ? -1 : left > right ? 1 : 0));
  return new Map(keyed.map(([, text], i) => [text, i]));
}

class Table {
  constructor(about) {
    Object.assign(this, about);
    this.details = about.details;
    this.loading = null;
    this.opened = new Map(); // blocks of details by number
  }

  // Makes `columns`, of which the first `listed.length` are those of the list.
  load() {
    const take = (data) => {
      this.columns = [...this.listed, ...this.known].map((each, i) => new Column(each, data[i]));
      this.shown = this.columns.slice(0, this.listed.length);
    };
    const waiting = Array.isArray(this.columns) ? Promise.resolve(this.columns) : unpacked(this.id);
    this.loading = this.loading || waiting.then(take);
    return this.loading;
  }

  column(name) {
    return this.columns.find((column) => column.name === name) || null;
  }

  // Every field of a row: [name, meaning, text], those that say nothing left out.
  async fields(row) {
    const fields = this.columns.map((column) => [column.name, column.meaning, column.text(row)]);
    if (this.details.length > 0) {
      const number = Math.floor(row / this.detailRows);
      if (!this.opened.has(number)) this.opened.set(number, unpacked(`${this.id}.${number}`));
      const data = await this.opened.get(number);
      this.details.forEach((about, i) => {
        fields.push([...about, new Column(about, data[i]).text(row % this.detailRows)]);
      });
    }
    return fields.filter(([, , text]) => text !== "");
  }
}

const tables = day.tables.map((about) => new Table(about));
const tableOf = (id) => tables.find((table) => table.id === id) || null;
