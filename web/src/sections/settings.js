import { element, plain_table } from "../dom.js";

const kGlossary = [
  ["sigma 0", "Standard deviation of an observation of weight one; adjusted from the residuals, in \u00b5m. Compared with the a-priori value it tells whether the observations are as good as assumed."],
  ["redundancy", "Number of observations beyond those that are needed to determine the unknowns."],
  ["v", "Residual: computed minus measured image coordinate, in \u00b5m."],
  ["r", "Redundancy number, 0 to 1: the part of an error of an observation that shows in its own residual. Below 0.1 an error stays nearly hidden."],
  ["w", "Residual divided by its standard deviation (Baarda 1968), no unit; beyond 3.3 it happens by chance once in a thousand."],
  ["tau", "Like w, with the adjusted instead of the a-priori sigma 0 (Pope 1976), no unit."],
  ["mdb", "Smallest error of an observation that the test finds with a probability of 80 %, in \u00b5m."],
  ["std. dev.", "Standard deviation of an adjusted value, one sigma, in the unit of the value."],
  ["ellipse", "Curve of one sigma around a point; the point lies within with a probability of 39 % in the plane."],
  ["rays", "Number of images in which a point is measured."],
  ["angle", "Largest angle between two rays of a point, in degrees; small angles give weak depths."],
  ["factor", "Variance component: by how much the variances of a group of observations should be multiplied; 1 means as assumed."],
];

function text(value) {
  if (value === null) return "\u2013";
  return String(typeof value === "number" ? Number(value.toPrecision(6)) : value);
}

/** The settings as given, and what the symbols mean. */
export function settings(report) {
  const rows = Object.entries(report.settings);
  return [
    plain_table("Settings of the adjustment", [
      { head: "Setting", number: false, values: rows.map(([name]) => name.replaceAll("_", " ")) },
      { head: "Value", number: false, values: rows.map(([, value]) => text(value)) },
    ], rows.length),
    element("h3", {}, "Glossary"),
    element("dl", { class: "glossary" }, kGlossary.map(([name, meaning]) => [element("dt", {}, name), element("dd", {}, meaning)])),
  ];
}
