// Building blocks of the page.

/** An element with attributes and children; texts become text nodes, never markup. */
export function element(name, attributes = {}, ...children) {
  const result = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith("on")) result.addEventListener(key.slice(2), value);
    else result.setAttribute(key, value === true ? "" : value);
  }
  result.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined));
  return result;
}

/** A section with its heading; it appears in the list of contents. */
export function section(id, title, ...children) {
  const heading = element("h2", { id: `${id}-title` }, title);
  return element("section", { id, "aria-labelledby": `${id}-title` }, heading, ...children);
}

/** A chart with its title, a text alternative, and controls. */
export function figure({ title, text, chart, controls = [], note }) {
  // A legend stands before its chart.
  const svg = chart.tagName === "svg" ? chart : [...chart.querySelectorAll("svg")].at(-1);
  if (svg) {
    svg.setAttribute("role", "img");
    svg.setAttribute("aria-label", `${title}. ${text}`);
  }
  return element(
    "figure",
    { class: "chart" },
    element("figcaption", {}, title),
    controls.length > 0 ? element("div", { class: "controls" }, controls) : null,
    chart,
    element("p", { class: "alternative" }, text),
    note ? element("p", { class: "note" }, note) : null,
  );
}

/** A check box with its label. */
export function toggle(label, checked, change) {
  const box = element("input", { type: "checkbox", checked, onchange: () => change(box.checked) });
  return element("label", { class: "toggle" }, box, label);
}

/** A choice of one of several [value, label]. */
export function choice(label, options, change) {
  const list = element(
    "select",
    { onchange: () => change(list.value) },
    options.map(([value, text]) => element("option", { value }, text)),
  );
  return element("label", { class: "toggle" }, label, list);
}

/** A plain table; columns are {head, unit, number, values}. */
export function plain_table(caption, columns, num_rows) {
  const cell = (c, r) =>
    element("td", c.number === false ? {} : { class: "number" }, c.values[r] ?? "\u2013");
  return element(
    "div",
    { class: "frame", tabindex: "0", role: "region", "aria-label": caption },
    element(
      "table",
      {},
      element("caption", {}, caption),
      element("thead", {}, element("tr", {}, columns.map((c) => head_cell(c)))),
      element(
        "tbody",
        {},
        Array.from({ length: num_rows }, (_, r) =>
          element("tr", {}, columns.map((c) => cell(c, r))),
        ),
      ),
    ),
  );
}

export function head_cell(c, ...extra) {
  return element(
    "th",
    { scope: "col", class: c.number === false ? undefined : "number" },
    extra.length > 0 ? extra : c.head,
    c.unit ? element("span", { class: "unit" }, ` ${c.unit}`) : null,
  );
}
