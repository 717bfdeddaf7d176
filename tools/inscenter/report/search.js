// Finds rows as the tool's "find" does (SoughtText.cpp and Spelling.cpp say how), in the same order.
const readings = new Map(day.readings);

// Case, full-width letters and blanks make no difference.
const plain = (text) => text.replace(/[\uff01-\uff5e]/g, (sign) => String.fromCharCode(sign.charCodeAt(0) - 0xfee0))
  .toLowerCase();
const folded = (text) => plain(text).replace(/[\0- \u3000]+/g, "");

// Pinyin with a blank between syllables, and initials; null where there is nothing Chinese.
function spelled(name) {
  const syllables = [];
  let initials = "";
  let chinese = false;
  let together = false; // what comes next goes on with the letters before
  for (let i = 0; i < name.length;) {
    const word = readings.get(name.substr(i, 2));
    const reading = word || readings.get(name[i]);
    if (reading) {
      for (const syllable of reading.split(" ")) {
        syllables.push(syllable);
        initials += syllable[0];
      }
      chinese = true;
      together = false;
    } else {
      const letter = folded(name[i]);
      const latin = letter !== "" && letter < "\x80";
      if (latin && together) syllables[syllables.length - 1] += letter;
      else if (latin) syllables.push(letter);
      if (latin) initials += letter;
      together = latin;
    }
    i += word ? 2 : 1;
  }
  return chinese ? {pinyin: syllables.join(" "), initials} : null;
}

// What stands before each text of a row: what sort of text it is. Signs that Unicode keeps out of texts; a name that has
// them nevertheless loses them here.
const firstMark = 0xfdd0;
const marks = {code: 0, name: 1, spelling: 2, other: 3, pinyin: 4, rest: 5, row: 6};
const mark = Object.fromEntries(Object.entries(marks).map(([name, i]) => [name, String.fromCharCode(firstMark + i)]));
const isMark = (code) => code >= firstMark && code <= firstMark + marks.row;
const sorts = 4;
const fits = {whole: 0, beginning: 1, word: 2, part: 3, words: 4};
const elsewhere = fits.words * sorts + 1; // in a column that the tool does not look at
const never = 255;
// Ranks of codes.
const whole = fits.whole * sorts;
const beginning = fits.beginning * sorts;
const endsAt = (text, at) => at >= text.length || isMark(text.charCodeAt(at));

// All codes of a table in one text and all others in another, so that the browser's own search goes through them: digits
// are everywhere in codes, where only beginnings count, and seldom elsewhere.
class Finder {
  constructor(table) {
    this.table = table;
    this.making = this.make();
  }

  // In steps, so that a page that prepares for a search stays alive.
  *make() {
    const {table} = this;
    const named = (...names) => names.map((name) => table.column(name)).filter((column) => column);
    const codes = named("code", "key", "platformCode", "isin");
    const [name, initials] = [table.column("name"), table.column("spellName")];
    const others = named("englishName", "productName", "shortName");
    // Of instruments exactly what the tool finds; of other tables every column.
    const rest = table.id === "instruments" ? []
      : table.shown.filter((column) => column !== name && !codes.includes(column) && !others.includes(column));
    const strange = /[\ufdd0-\ufdef]/g;
    const clean = table.columns.some((column) => strange.test(column.values.join(""))) ?
      (text) => text.replace(strange, "") : (text) => text;
    const codeParts = [];
    const parts = [];
    for (let row = 0; row < table.length; ++row) {
      const code = codes.length > 0 ? codes[0].text(row) : "";
      let line = mark.row;
      codes.forEach((column, i) => {
        const text = column.text(row);
        if (i === 0 || (text !== "" && text !== code)) line += mark.code + clean(text);
      });
      codeParts.push(line);
      const own = name ? clean(name.text(row)) : "";
      line = mark.row + mark.name + own;
      const typed = /[^\0-\u2e7f]/.test(own) ? spelled(own) : null;
      line += mark.spelling + clean((initials && initials.text(row)) || (typed ? typed.initials : ""));
      if (typed) line += mark.pinyin + typed.pinyin;
      for (const column of others) line += mark.other + clean(column.text(row));
      for (const column of rest) line += mark.rest + clean(column.text(row));
      parts.push(line);
      if (row % 10000 === 9999) yield;
    }
    this.codes = folded(codeParts.join(""));
    this.codeStarts = this.rowsOf(this.codes);
    yield;
    const spaced = plain(parts.join(""));
    this.text = spaced.replace(/[\0- \u3000]+/g, "");
    yield;
    this.starts = this.rowsOf(this.text);
    this.measure(spaced);
  }

  // Where each row begins, and the last one ends.
  rowsOf(text) {
    const starts = new Uint32Array(this.table.length + 1).fill(text.length);
    for (let row = 0, at = text.indexOf(mark.row); at >= 0; at = text.indexOf(mark.row, at + 1)) starts[row++] = at;
    return starts;
  }

  // At which letters words begin.
  measure(spaced) {
    this.words = new Uint8Array((this.text.length >> 3) + 1);
    let at = 0;
    let separated = true;
    for (let i = 0; i < spaced.length; ++i) {
      const code = spaced.charCodeAt(i);
      if (code <= 0x20 || code === 0x3000) {
        separated = true;
        continue;
      }
      if (separated) this.words[at >> 3] |= 1 << (at & 7);
      // Marks are above 0x80, and what follows one begins its text, of which nobody asks this.
      separated = code < 0x80 && !(code >= 0x61 && code <= 0x7a) && !(code >= 0x30 && code <= 0x39);
      ++at;
    }
  }

  finish() {
    let step = this.making.next();
    while (!step.done) step = this.making.next();
  }

  // The rank of each row that has the text, by SoughtText's numbers.
  ranksOf(wanted) {
    const found = new Uint8Array(this.table.length).fill(never);
    this.scanCodes(wanted, found);
    this.scan(wanted, found, false);
    if (/^[\0-\x7f]*$/.test(wanted) && wanted.includes("v")) this.scan(wanted.replaceAll("v", "u"), found, true);
    for (const name of ["market", "filed"]) this.scanKeys(wanted, this.table.column(name), found);
    return found;
  }

  scanCodes(wanted, found) {
    const {codes, codeStarts} = this;
    let row = 0;
    for (let at = codes.indexOf(mark.code + wanted); at >= 0; at = codes.indexOf(mark.code + wanted, at + 1)) {
      while (codeStarts[row + 1] <= at) ++row;
      found[row] = Math.min(found[row], endsAt(codes, at + 1 + wanted.length) ? whole : beginning);
    }
  }

  scan(wanted, found, pinyinOnly) {
    const {text, starts, words} = this;
    let row = 0;
    for (let at = text.indexOf(wanted); at >= 0;) {
      while (starts[row + 1] <= at) ++row;
      let before = at - 1;
      while (!isMark(text.charCodeAt(before))) --before;
      const sort = text.charCodeAt(before) - firstMark;
      let fit = fits.part;
      if (before === at - 1) fit = endsAt(text, at + wanted.length) ? fits.whole : fits.beginning;
      else if (words[at >> 3] & (1 << (at & 7))) fit = fits.word;
      // Of pinyin only the beginning of a syllable counts.
      if (sort === marks.pinyin ? fit < fits.part : !pinyinOnly) {
        const rank = sort === marks.rest ? elsewhere : fit * sorts + (sort === marks.pinyin ? marks.spelling : sort);
        if (rank < found[row]) found[row] = rank;
      }
      at = text.indexOf(wanted, found[row] === 0 ? starts[row + 1] : at + 1);
    }
  }

  // Codes behind the name of their market.
  scanKeys(wanted, column, found) {
    if (!column || !this.table.column("code")) return;
    for (const market of new Set(column.values)) {
      const name = folded(cellText(market));
      // A market's name alone is no beginning of a key: it would find the whole market.
      if (wanted.length <= name.length || !wanted.startsWith(name)) continue;
      const code = wanted.slice(name.length);
      for (let row = 0; row < this.table.length; ++row) {
        const at = this.codeStarts[row] + 2; // behind the marks of row and code
        if (column.at(row) === market && this.codes.startsWith(code, at)) {
          found[row] = Math.min(found[row], endsAt(this.codes, at + code.length) ? whole : beginning);
        }
      }
    }
  }

  // The rows for what somebody typed, the best first. COLUMN=VALUE asks for a whole cell.
  find(typed) {
    const {table} = this;
    const conditions = [];
    const words = typed.split(/[ \t]+/).filter((word) => {
      const at = word.indexOf("=");
      const column = at > 0 ? table.column(word.slice(0, at)) : null;
      if (column) conditions.push([column, folded(word.slice(at + 1))]);
      return word !== "" && !column;
    });
    const found = words.length > 0 ? this.search(words) : new Uint8Array(table.length);
    for (const [column, wanted] of conditions) {
      const holds = column.values.map((value) => folded(cellText(value)) === wanted);
      for (let row = 0; row < table.length; ++row) {
        if (!holds[column.single ? 0 : column.places ? column.places[row] : row]) found[row] = never;
      }
    }
    return inOrderOf(found);
  }

  search(words) {
    this.finish();
    const joined = folded(words.join(""));
    if (joined === "") return new Uint8Array(this.table.length).fill(never);
    const found = this.ranksOf(joined);
    const each = words.length > 1 ? words.map(folded).filter((word) => word !== "").map((word) => this.ranksOf(word)) : [];
    if (each.length > 0) {
      for (let row = 0; row < found.length; ++row) {
        if (found[row] === never && each.every((ranks) => ranks[row] !== never)) found[row] = fits.words * sorts;
      }
    }
    return found;
  }
}

// The rows that have a rank, by rank, those of one as the table has them.
function inOrderOf(found) {
  const counts = new Uint32Array(never + 2);
  for (const rank of found) ++counts[rank + 1];
  const total = found.length - counts[never + 1];
  for (let rank = 1; rank <= never; ++rank) counts[rank] += counts[rank - 1];
  const rows = new Uint32Array(total);
  for (let row = 0; row < found.length; ++row) {
    if (found[row] !== never) rows[counts[found[row]]++] = row;
  }
  return rows;
}
