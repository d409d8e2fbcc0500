import { table, rows } from "../data.js";
import { element, head_cell } from "../dom.js";
import { count, defined, fixed, short } from "../format.js";

const kShown = 200;

/** Every table of the report: sortable, searchable, its first rows drawn; of a run that failed those
 * that hold anything. */
export function tables(report) {
  const failed = report.status === "failed";
  return report.tables
    .filter((t) => !failed || rows(table(t.rows, report.network)) > 0)
    .map((t) => data_table(t, report.network));
}

/** A table {title, columns: [{name, head, unit, kind, decimals}], rows: {name: column}}. */
function data_table(definition, network) {
  const columns = definition.columns;
  const data = table(definition.rows, network);
  const num_rows = rows(data);
  const body = element("tbody");
  const status = element("p", { class: "note", "aria-live": "polite" });
  const state = { order: Array.from({ length: num_rows }, (_, i) => i), text: "", sorted: null, down: false };
  const cells = columns.map((c) => formatter(c, data[c.name]));
  const draw = () => {
    const wanted = state.text.toLowerCase();
    const found = wanted === "" ? state.order : state.order.filter((i) => cells.some((cell, c) => columns[c].kind === "text" && cell(i).toLowerCase().includes(wanted)));
    body.replaceChildren(...found.slice(0, kShown).map((i) =>
      element("tr", {}, cells.map((cell, c) => element("td", { class: columns[c].kind === "text" ? (columns[c].wide ? "text" : null) : "number" }, cell(i))))));
    status.textContent = `${count(Math.min(kShown, found.length))} of ${count(found.length)} rows${found.length < num_rows ? ` found among ${count(num_rows)}` : ""}.`;
  };
  const heads = columns.map((c) => head_cell({ number: c.kind !== "text", unit: c.unit }, element("button", { type: "button", onclick: () => sort(c) }, c.head)));
  const sort = (c) => {
    state.down = state.sorted === c.name ? !state.down : c.kind !== "text";
    state.sorted = c.name;
    const values = data[c.name];
    const sign = state.down ? -1 : 1;
    const last = (v) => !(typeof v === "string" || defined(v));
    state.order.sort((i, j) => {
      const [a, b] = [values[i], values[j]];
      if (last(a) || last(b)) return last(a) - last(b) || i - j;
      if (typeof a === "string") return sign * a.localeCompare(b, "en", { numeric: true }) || i - j;
      const [p, q] = c.absolute ? [Math.abs(a), Math.abs(b)] : [a, b];
      return sign * (p - q) || i - j;
    });
    heads.forEach((th, k) => {
      if (columns[k].name === c.name) th.setAttribute("aria-sort", state.down ? "descending" : "ascending");
      else th.removeAttribute("aria-sort");
    });
    draw();
  };
  draw();
  const search = element("input", { type: "search", "aria-label": `Search in ${definition.title}`, placeholder: "Search",
    oninput: () => { state.text = search.value.trim(); draw(); } });
  return element(
    "article",
    { class: "data-table", "data-table": definition.name },
    element("h3", {}, definition.title),
    definition.note ? element("p", { class: "note" }, definition.note) : null,
    num_rows > 0
      ? [
          element("div", { class: "controls" }, search),
          element("div", { class: "frame", tabindex: "0", role: "region", "aria-label": definition.title },
            element("table", {}, element("thead", {}, element("tr", {}, heads)), body)),
          status,
        ]
      : element("p", {}, "None."),
  );
}

function formatter(c, values) {
  if (c.kind === "text") return (i) => values[i] ?? "";
  if (c.kind === "count") return (i) => (defined(values[i]) ? count(values[i]) : "\u2013");
  const factor = c.factor ?? 1;
  if (c.decimals === undefined) return (i) => (defined(values[i]) ? short(values[i] * factor) : "\u2013");
  return (i) => (defined(values[i]) ? fixed(values[i] * factor, c.decimals) : "\u2013");
}
