import { rows, table } from "../data.js";
import { element } from "../dom.js";
import { count, defined, fixed, short } from "../format.js";

const kShapes = { green: "\u25cf good", amber: "\u25b2 look", red: "\u25a0 act", grey: "\u25c7 open" };

/** Project, how it ended, and the main figures. */
export function head(report) {
  const s = report.statistics;
  const ratio = defined(s.sigma0_posterior) ? s.sigma0_posterior / report.settings.sigma0_prior : null;
  const facts = [
    ["Sigma 0", defined(s.sigma0_posterior) ? `${fixed(s.sigma0_posterior * 1e6, 3)} \u00b5m` : "undefined"],
    ["A priori", `${fixed(report.settings.sigma0_prior * 1e6, 3)} \u00b5m`],
    ["Ratio", short(ratio)],
  ];
  // A run that failed has nothing to count.
  if (s.images > 0) {
    facts.push(
      ["Redundancy", count(s.redundancy)],
      ["Images", count(s.images)],
      ["Object points", count(s.points)],
      ["Image points", count(s.image_points)],
      ["Control points", count(report.counts.control)],
      ["Check points", count(report.counts.check)],
    );
  }
  return [
    element("h1", {}, report.project.control_file),
    element("p", { class: "ending" }, report.ending),
    element("dl", { class: "facts" }, facts.map(([name, value]) =>
      element("div", {}, element("dt", {}, name), element("dd", {}, value)))),
    element("p", { class: "note" }, `${report.program.name} ${report.program.version}`),
  ];
}

const kMarks = { error: "red", warning: "amber" };
const kMostFound = 10; // of a kind; the table of findings has them all

/** Of a run that failed: what was found, the errors first, each with what helps. Warnings often are the
 * cause of errors, so that both have room. */
export function failure(report) {
  if (report.status !== "failed") return [];
  const found = table(report.tables.find((t) => t.name === "findings").rows);
  const of = (severity) => Array.from({ length: rows(found) }, (_, i) => i).filter((i) => found.severity[i] === severity).slice(0, kMostFound);
  const shown = [...of("error"), ...of("warning")];
  if (shown.length === 0) return [element("p", {}, "Nothing was found; the report of the run says where it stopped.")];
  return element("ul", { class: "lights" }, shown.map((i) =>
    element("li", { "data-finding": found.severity[i] },
      element("span", { class: `light ${kMarks[found.severity[i]]}` }, found.severity[i]),
      element("span", { class: "name" }, found.object[i]),
      element("span", {}, element("span", { class: "value" }, found.text[i]), found.help[i] ? element("span", { class: "limit" }, ` \u2013 ${found.help[i]}`) : null))));
}

/** One row for each light: word and shape, value, limits, and what to do. */
export function lights(report) {
  return element(
    "ul",
    { class: "lights" },
    report.lights.map((l) =>
      element(
        "li",
        { "data-light": l.name },
        element("span", { class: `light ${l.light}` }, kShapes[l.light]),
        element("span", { class: "name" }, l.title),
        element(
          "span",
          {},
          element("strong", { class: "value" }, l.value),
          element("span", {}, `. ${l.sentence} `),
          element("span", { class: "limit" }, `Limits: ${l.limits}.`),
        ),
      ),
    ),
  );
}
