import { table, rows } from "../data.js";
import { element, figure, toggle } from "../dom.js";
import { count, fixed, length_unit, quantile, round_down, short } from "../format.js";
import { Plot, chart_width, kColours, plan, point_cloud, resolved } from "../plots.js";
import { orbit } from "./orbit.js";

const kMaxMarks = 5000;
export const kRoles = ["tie", "control", "check"];
const kRoleNames = { control: "Control points", check: "Check points", tie: "Tie points" };
const kAxes = ["x", "y", "z"];

/** The smallest and largest number. */
function extent(values) {
  let min = Infinity;
  let max = -Infinity;
  for (const v of values) {
    if (v < min) min = v;
    if (v > max) max = v;
  }
  return [min, max];
}

/** The plane in which the points have their largest extent: two axes, in their order; between equals,
 * X and Y. */
export function largest_plane(points) {
  const size = kAxes.map((axis) => {
    const [min, max] = extent(points[axis]);
    return max - min;
  });
  const smallest = size[2] <= Math.min(size[0], size[1]) * 1.0000001 ? 2 : size.indexOf(Math.min(...size));
  return kAxes.filter((_, i) => i !== smallest);
}

/** Where the edge of an image meets the plane through the middle of the points; null where not all
 * corners do. */
function footprint(images, i, [u, v], level) {
  const w = kAxes.find((axis) => axis !== u && axis !== v);
  const k = (axis) => kAxes.indexOf(axis);
  const centre = kAxes.map((axis) => images[axis][i]);
  const corners = [[-1, -1], [1, -1], [1, 1], [-1, 1], [-1, -1]];
  const result = [];
  for (const [a, b] of corners) {
    const p = [0.5 * a * images.width[i], 0.5 * b * images.height[i], -images.c[i]];
    const d = [0, 1, 2].map((r) => p[0] * images[`r${r}0`][i] + p[1] * images[`r${r}1`][i] + p[2] * images[`r${r}2`][i]);
    const t = (level - centre[k(w)]) / d[k(w)];
    if (!(t > 0) || !Number.isFinite(t)) return null;
    result.push([centre[k(u)] + t * d[k(u)], centre[k(v)] + t * d[k(v)]]);
  }
  return result;
}

/** Ellipse of one sigma of a point in a plane, as a closed line. */
function ellipse(points, i, [u, v], scale) {
  const suu = points[`sd_${u}`][i] ** 2;
  const svv = points[`sd_${v}`][i] ** 2;
  const suv = points[`cov_${u}${v}`][i];
  const mean = (suu + svv) / 2;
  const root = Math.hypot((suu - svv) / 2, suv);
  const a = Math.sqrt(Math.max(0, mean + root)) * scale;
  const b = Math.sqrt(Math.max(0, mean - root)) * scale;
  const angle = 0.5 * Math.atan2(2 * suv, suu - svv);
  const line = [];
  for (let k = 0; k <= 24; ++k) {
    const t = (k / 24) * 2 * Math.PI;
    const p = a * Math.cos(t);
    const q = b * Math.sin(t);
    line.push({
      u: points[u][i] + p * Math.cos(angle) - q * Math.sin(angle),
      v: points[v][i] + p * Math.sin(angle) + q * Math.cos(angle),
      i,
    });
  }
  return line;
}

/** Plan and orbit of the network. */
export function network(report) {
  const points = table(report.network.points);
  const images = table(report.network.images);
  const num_points = rows(points);
  if (num_points === 0) return [];
  const num_images = rows(images);
  const shown = { control: true, check: true, tie: true, images: true, vectors: true, ellipses: false };
  const plane = largest_plane(points);
  const chart = element("div", { class: "plan" });
  const draw = () => chart.replaceChildren(draw_plan(points, images, plane, shown));
  const names = plane.map((axis) => axis.toUpperCase());
  const by_role = kRoles.map((_, code) => points.role.reduce((n, r) => n + (r === code ? 1 : 0), 0));
  const text =
    `${count(by_role[1])} control points, ${count(by_role[2])} check points, ${count(by_role[0])} tie points and ` +
    `${count(num_images)} images in the plane ${names.join(", ")}, the plane of largest extent. ${scale_text(points, plane)}`;
  const controls = [
    ...["control", "check", "tie"].map((role) =>
      toggle(kRoleNames[role], true, (on) => { shown[role] = on; draw(); })),
    toggle("Images", true, (on) => { shown.images = on; draw(); }),
    toggle("Vectors", true, (on) => { shown.vectors = on; draw(); }),
  ];
  if (points.sd_x) controls.push(toggle("Ellipses", false, (on) => { shown.ellipses = on; draw(); }));
  draw();
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", draw);
  const figures = [
    figure({
      title: `Network in plan, ${names.join(" and ")} [m]`,
      text,
      chart,
      controls,
      note: "Vectors: residuals of control points (adjusted \u2212 given) and differences of check points (given \u2212 adjusted).",
    }),
  ];
  figures.push(orbit(points, images));
  return figures;
}

/** By how much vectors and ellipses are enlarged so that large ones are some 8 % of the plan. */
function scales(points, [u, v]) {
  const [u0, u1] = extent(points[u]);
  const [v0, v1] = extent(points[v]);
  const room = 0.08 * Math.max(u1 - u0, v1 - v0);
  const lengths = Array.from(points.role, (_, i) => Math.hypot(points[`d${u}`][i], points[`d${v}`][i])).filter((l) => l > 0);
  const sds = points[`sd_${u}`] ? Array.from(points[`sd_${u}`], (s, i) => Math.max(s, points[`sd_${v}`][i])).filter((s) => s > 0) : [];
  return {
    vector: lengths.length > 0 ? round_down(room / quantile(lengths, 0.95)) : 1,
    ellipse: sds.length > 0 ? round_down((0.5 * room) / quantile(sds, 0.95)) : 1,
    largest: lengths.reduce((a, b) => Math.max(a, b), 0),
  };
}

function scale_text(points, plane) {
  const { vector, ellipse: enlarged, largest } = scales(points, plane);
  if (!(largest > 0)) return "";
  const unit = length_unit(largest);
  return `Vectors are enlarged ${count(vector)} times, the longest is ${short(largest * unit.factor)} ${unit.name}; ellipses (one sigma) ${count(enlarged)} times.`;
}

function draw_plan(points, images, plane, shown) {
  const [u, v] = plane;
  const scale = scales(points, plane);
  const num_points = rows(points);
  const visible = [];
  for (let i = 0; i < num_points; ++i) if (shown[kRoles[points.role[i]]]) visible.push(i);
  const [u0, u1] = extent([...points[u], ...images[u]]);
  const [v0, v1] = extent([...points[v], ...images[v]]);
  const marks = [];
  if (shown.images) marks.push(...image_marks(points, images, plane));
  const cloud = visible.filter((i) => points.role[i] === 0);
  if (cloud.length > kMaxMarks) {
    const colour = resolved(kColours.tie);
    marks.push(point_cloud(cloud.map((i) => points[u][i]), cloud.map((i) => points[v][i]), () => colour, 0.7));
  } else {
    marks.push(Plot.dot(cloud, { x: (i) => points[u][i], y: (i) => points[v][i], r: 1.5, fill: kColours.tie }));
  }
  if (shown.ellipses && points[`sd_${u}`]) {
    const chosen = visible.filter((i) => points.role[i] !== 0 || cloud.length <= 500);
    marks.push(Plot.line(chosen.flatMap((i) => ellipse(points, i, plane, scale.ellipse)), { x: "u", y: "v", z: "i", stroke: kColours.ink, strokeOpacity: 0.6, strokeWidth: 0.8 }));
  }
  const marked = visible.filter((i) => points.role[i] !== 0);
  if (shown.vectors) {
    marks.push(Plot.arrow(marked.filter((i) => Math.hypot(points[`d${u}`][i], points[`d${v}`][i]) > 0), {
      x1: (i) => points[u][i], y1: (i) => points[v][i],
      x2: (i) => points[u][i] + scale.vector * points[`d${u}`][i],
      y2: (i) => points[v][i] + scale.vector * points[`d${v}`][i],
      stroke: kColours.suspect, strokeWidth: 1.5, headLength: 5,
    }));
  }
  marks.push(Plot.dot(marked, {
    x: (i) => points[u][i], y: (i) => points[v][i], r: 4.5,
    symbol: (i) => (points.role[i] === 1 ? "triangle" : "square"),
    fill: (i) => (points.role[i] === 1 ? "control" : "check"),
    title: (i) => `${points.id[i]}: ${u.toUpperCase()} ${fixed(points[u][i], 3)}, ${v.toUpperCase()} ${fixed(points[v][i], 3)}`,
  }));
  return plan([u0, u1, v0, v1], {
    width: chart_width(1080),
    color: { domain: ["control", "check"], range: [kColours.control, kColours.check] },
    symbol: { legend: false },
    x: { label: `${u.toUpperCase()} [m]` },
    y: { label: `${v.toUpperCase()} [m]` },
    marks,
  });
}

/** Footprints, or where there are too many or none, centres with viewing directions. */
function image_marks(points, images, plane) {
  const [u, v] = plane;
  const w = kAxes.find((axis) => axis !== u && axis !== v);
  const level = quantile(points[w], 0.5);
  const num = rows(images);
  const lines = [];
  if (num <= 150) {
    for (let i = 0; i < num; ++i) {
      const line = footprint(images, i, plane, level);
      if (line) lines.push(line.map(([a, b]) => ({ u: a, v: b, i })));
    }
  }
  const marks = [];
  const [u0, u1] = extent([...points[u], ...images[u]]);
  const reach = (line) => line.every((p) => p.u > u0 - (u1 - u0) && p.u < u1 + (u1 - u0));
  if (lines.length === num && num > 0 && lines.every(reach)) {
    marks.push(Plot.line(lines.flat(), { x: "u", y: "v", z: "i", stroke: kColours.image, strokeWidth: 0.7, strokeOpacity: 0.45, clip: true }));
  }
  const centres = Array.from({ length: num }, (_, i) => i);
  const length = 0.03 * (u1 - u0);
  const k = (axis) => kAxes.indexOf(axis);
  marks.push(Plot.link(centres, {
    x1: (i) => images[u][i], y1: (i) => images[v][i],
    x2: (i) => images[u][i] - length * images[`r${k(u)}2`][i],
    y2: (i) => images[v][i] - length * images[`r${k(v)}2`][i],
    stroke: kColours.image, strokeWidth: 1.2,
  }));
  marks.push(Plot.dot(centres, { x: (i) => images[u][i], y: (i) => images[v][i], r: 2.2, fill: kColours.image, title: (i) => `Image ${images.id[i]}` }));
  return marks;
}
