// Iterations and precision.

import { table, rows } from "../data.js";
import { element, figure, plain_table } from "../dom.js";
import { count, decimals_for, defined, fixed, length_unit, quantile, short } from "../format.js";
import { Plot, bins_of, histogram, kColours, plot } from "../plots.js";

/** v'Pv, sigma 0 and the largest changes from iteration to iteration. */
export function iterations(report) {
  const steps = report.iterations;
  if (steps.length === 0) return [];
  const changes = [
    ["max_change_point", "object points [m]"],
    ["max_change_centre", "projection centres [m]"],
    ["max_change_rotation", "rotations"],
  ];
  const lines = changes.flatMap(([key, name]) =>
    steps.filter((s) => s[key] > 0).map((s) => ({ x: s.iteration, y: s[key], name })));
  const sigmas = steps.filter((s) => s.sigma0_predicted > 0).map((s) => ({ x: s.iteration, y: s.sigma0_predicted * 1e6 }));
  const whole = { ticks: steps.map((s) => s.iteration).filter((_, i) => i % Math.ceil(steps.length / 10) === 0), tickFormat: "d" };
  const last = steps.at(-1);
  const charts = [
    figure({
      title: "Largest changes",
      text: `In the last iteration: ${changes.filter(([key]) => defined(last[key])).map(([key, name]) => `${name} ${short(last[key])}`).join(", ")}.`,
      chart: plot({
        x: { label: "Iteration", ...whole },
        y: { type: "log", label: "Largest change", grid: true, tickFormat: ".0e", ticks: 6 },
        color: { legend: true, domain: changes.map((c) => c[1]), range: [kColours.tie, kColours.check, kColours.suspect] },
        marks: [Plot.line(lines, { x: "x", y: "y", stroke: "name" }), Plot.dot(lines, { x: "x", y: "y", fill: "name", r: 4 })],
      }),
    }),
    figure({
      title: "Sigma 0",
      text: `From ${short(sigmas[0]?.y)} \u00b5m to ${short(sigmas.at(-1)?.y)} \u00b5m in ${steps.length} iterations.`,
      chart: plot({
        x: { label: "Iteration", ...whole },
        y: { type: "log", label: "Sigma 0 [\u00b5m]", grid: true },
        marks: [Plot.line(sigmas, { x: "x", y: "y", stroke: kColours.check }), Plot.dot(sigmas, { x: "x", y: "y", fill: kColours.check, r: 4 })],
      }),
    }),
  ];
  const damped = steps.some((s) => defined(s.damping) && s.damping > 0);
  const rows_of = (f) => steps.map(f);
  const columns = [
    { head: "Iteration", values: rows_of((s) => s.iteration) },
    { head: "v'Pv", unit: "m\u00b2", values: rows_of((s) => short(s.vtpv_predicted, 4)) },
    { head: "Sigma 0", unit: "\u00b5m", values: rows_of((s) => (defined(s.sigma0_predicted) ? fixed(s.sigma0_predicted * 1e6, 3) : null)) },
    ...changes.map(([key, name]) => ({ head: `Largest change, ${name}`, values: rows_of((s) => short(s[key])) })),
  ];
  if (damped) columns.push({ head: "Damping", values: rows_of((s) => short(s.damping)) });
  return [element("div", { class: "charts" }, charts), plain_table("Iterations", columns, steps.length)];
}

/** Distribution of the points' standard deviations, worst points, variance components. */
export function precision(report) {
  const points = table(report.network.points);
  const result = [];
  if (rows(points) > 0 && points.sd_x) {
    const charts = ["x", "y", "z"].map((axis) => {
      const sds = points[`sd_${axis}`].filter((sd) => sd > 0);
      const unit = length_unit(quantile(sds, 0.5));
      const scaled = sds.map((sd) => sd * unit.factor);
      const cut = quantile(scaled, 0.995);
      return figure({
        title: `Standard deviations of points in ${axis.toUpperCase()}`,
        text: `Median ${short(quantile(scaled, 0.5))} ${unit.name}, largest ${short(scaled.reduce((a, b) => Math.max(a, b), 0))} ${unit.name}, ${count(scaled.length)} points.`,
        chart: histogram(bins_of(scaled.filter((v) => v <= cut)), { x_label: `Standard deviation [${unit.name}]` }),
        note: "The largest 0.5 % are not drawn.",
      });
    });
    result.push(element("div", { class: "charts" }, charts), worst_points(points));
  }
  if (report.groups.length > 0) result.push(...components(report.groups));
  return result;
}

function worst_points(points) {
  const order = Array.from(points.id, (_, i) => i)
    .map((i) => ({ i, size: Math.hypot(points.sd_x[i], points.sd_y[i], points.sd_z[i]) }))
    .sort((a, b) => b.size - a.size)
    .slice(0, 10);
  const axis = (name) => ({
    head: `Std. dev. ${name.toUpperCase()}`, unit: "m",
    values: order.map(({ i }) => fixed(points[`sd_${name}`][i], decimals_for(points[`sd_${name}`][i]))),
  });
  return plain_table("The ten least precise points", [
    { head: "Point", number: false, values: order.map(({ i }) => points.id[i]) },
    { head: "Rays", values: order.map(({ i }) => points.rays[i]) },
    axis("x"), axis("y"), axis("z"),
  ], order.length);
}

function components(groups) {
  const drawn = groups.filter((g) => defined(g.factor));
  const name = (g) => g.group.replaceAll("_", " ") + (g.id ? ` ${g.id}` : "");
  const chart = drawn.length === 0 ? [] : [
    figure({
      title: "Variance components",
      text: drawn.map((g) => `${name(g)}: factor ${short(g.factor)}`).join("; ") + ". 1 means: as good as assumed.",
      chart: plot({
        height: 60 + 28 * drawn.length,
        marginLeft: 190,
        x: { type: "log", label: "Factor of the a-priori variance", grid: true },
        y: { label: null, domain: drawn.map(name) },
        marks: [
          Plot.ruleX([1]),
          Plot.link(drawn.filter((g) => g.factor_lower > 0), { x1: "factor_lower", x2: "factor_upper", y1: name, y2: name, stroke: kColours.tie, strokeWidth: 5 }),
          Plot.dot(drawn.filter((g) => g.factor > 0), { x: "factor", y: name, r: 5, fill: kColours.check }),
        ],
      }),
      note: "Bar: 95 % band of the factor.",
    }),
  ];
  const values = (f) => groups.map(f);
  return [
    ...chart,
    plain_table("Groups of observations", [
      { head: "Group", number: false, values: values(name) },
      { head: "Observations", values: values((g) => count(g.observations)) },
      { head: "Redundancy", values: values((g) => fixed(g.redundancy, 1)) },
      { head: "Factor", values: values((g) => short(g.factor)) },
      { head: "Factor of std. dev.", values: values((g) => short(g.sd_factor)) },
    ], groups.length),
  ];
}
