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
    ["Redundancy", count(s.redundancy)],
    ["Images", count(s.images)],
    ["Object points", count(s.points)],
    ["Image points", count(s.image_points)],
    ["Control points", count(report.counts.control)],
    ["Check points", count(report.counts.check)],
  ];
  return [
    element("h1", {}, report.project.control_file),
    element("p", { class: "ending" }, report.ending),
    element("dl", { class: "facts" }, facts.map(([name, value]) =>
      element("div", {}, element("dt", {}, name), element("dd", {}, value)))),
    element("p", { class: "note" }, `${report.program.name} ${report.program.version}`),
  ];
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
