// Options by what they are options on, then by expiry and strike price.
let chains = null; // by underlying: {name, options by expiry}, made when first asked for

// What an option is an option on, as the center's chains have it (underlyingOf).
function underlyingOf(table, row) {
  const stockMarkets = {SHO: "SH", SZO: "SZ"};
  const filed = table.column("filed").text(row);
  const stock = stockMarkets[filed];
  const product = table.column("productId") ? table.column("productId").text(row) : "";
  const code = (table.column("underlyingCode") && table.column("underlyingCode").text(row)) ||
    (stock ? (/\(([^()]*)\)/.exec(product) || ["", ""])[1] : "");
  return code === "" ? "" : (table.column("underlyingMarket").text(row) || stock || filed) + code;
}

function makeChains(table) {
  if (chains) return chains;
  chains = new Map();
  const types = table.length > 0 && table.column("optionType");
  for (let row = 0; types && row < table.length; ++row) {
    if (types.at(row) !== 1 && types.at(row) !== 2) continue;
    const key = underlyingOf(table, row);
    if (key === "") continue;
    if (!chains.has(key)) chains.set(key, new Map());
    const expiry = table.column("expireDate") ? table.column("expireDate").text(row) : "";
    const byExpiry = chains.get(key);
    if (!byExpiry.has(expiry)) byExpiry.set(expiry, []);
    byExpiry.get(expiry).push(row);
  }
  return chains;
}

// Lines of one expiry: the calls and puts of a strike price. Of two with one price (contracts that were adjusted) each
// call stands beside the put of its own size.
function strikesOf(table, options) {
  const number = (name, row) => (table.column(name) && Number(table.column(name).at(row))) || 0;
  const lines = new Map();
  for (const row of options) {
    const strike = number("strikePrice", row);
    const key = `${strike} ${number("volumeMultiple", row)}`;
    if (!lines.has(key)) lines.set(key, {strike, calls: [], puts: []});
    lines.get(key)[number("optionType", row) === 1 ? "calls" : "puts"].push(row);
  }
  return [...lines.values()].sort((left, right) => left.strike - right.strike);
}

function optionCell(table, options) {
  const cell = element("td");
  for (const row of options) {
    const open = element("button", visible(table.column("code").text(row)), {type: "button", class: "plain"});
    open.addEventListener("click", () => go(table.id, "", row));
    const figures = ["preSettlementPrice", "preOpenInterest"].map((name) => table.column(name))
      .filter((column) => column && column.at(row) !== null).map((column) => number.format(column.at(row)));
    cell.append(open, element("small", figures.join(" · ")));
  }
  return cell;
}

function showStrikes(table, options) {
  const body = document.createDocumentFragment();
  for (const {strike, calls, puts} of strikesOf(table, options)) {
    const line = element("tr");
    line.append(optionCell(table, calls), element("th", number.format(strike), {scope: "row"}), optionCell(table, puts));
    body.append(line);
  }
  document.querySelector("#chain tbody").replaceChildren(body);
}

// The chain of an underlying, at one of its expiries.
function showChain(table, key, expiry) {
  const byExpiry = makeChains(table).get(key) || new Map();
  const days = [...byExpiry.keys()].sort();
  const chosen = byExpiry.has(expiry) ? expiry : days[0];
  byId("underlying").value = key;
  refill(byId("expiries"), ...days.map((each) => {
    const chip = element("button", each || "no expiry", {type: "button", class: "chip", "aria-pressed": each === chosen});
    chip.append(element("span", number.format(byExpiry.get(each).length)));
    chip.addEventListener("click", () => showChain(table, key, each));
    return chip;
  }));
  showStrikes(table, byExpiry.get(chosen) || []);
}

function showChains(table, key) {
  const all = [...makeChains(table).keys()].sort();
  if (byId("underlying").options.length !== all.length) {
    byId("underlying").replaceChildren(...all.map((each) => {
      const row = rowOfKey(table, each);
      const name = row === null ? "" : ` ${visible(table.column("name").text(row))}`;
      return element("option", `${visible(each)}${name}`, {value: each});
    }));
  }
  byId("nochain").hidden = all.length > 0;
  byId("chain").hidden = all.length === 0;
  showChain(table, makeChains(table).has(key) ? key : all[0]);
}
