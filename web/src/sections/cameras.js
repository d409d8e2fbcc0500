import { column, table, rows } from "../data.js";
import { element, figure, choice, plain_table } from "../dom.js";
import { count, decimals_for, defined, fixed, quantile, round_down, short, unit_text } from "../format.js";
import { Plot, kColours, histogram, plan, plot, point_cloud, resolved } from "../plots.js";

/** One block for each camera. */
export function cameras(report) {
  return report.cameras.map((camera) => camera_block(camera));
}

function camera_block(camera) {
  const id = camera.id;
  const blocks = [element("h3", {}, `Camera ${id}`)];
  blocks.push(values_table(camera));
  const charts = [];
  if (camera.correlation && camera.correlation.parameter.length > 1) charts.push(correlations(camera));
  if (camera.field) charts.push(residual_field(camera));
  if (camera.residuals) charts.push(residual_points(camera));
  if (camera.profile) charts.push(profile(camera));
  if (camera.grid) charts.push(distortion_grid(camera));
  if (camera.w_histogram) charts.push(w_histogram(camera));
  blocks.push(element("div", { class: "charts" }, charts));
  return element("article", { class: "camera", "data-camera": id }, blocks);
}

/** Calibrated values in mm (or their own unit) and in pixels. */
function values_table(camera) {
  const v = table(camera.values);
  const n = rows(v);
  const columns = [
    { head: "Parameter", number: false, values: v.parameter },
    { head: "Value", values: index(n, (i) => scientific(v.value[i], v.sd?.[i])) },
    { head: "Std. dev.", values: index(n, (i) => (v.sd ? sd_text(v.sd[i]) : null)) },
    { head: "Unit", number: false, values: v.unit.map(unit_text) },
    { head: "Value", unit: "px", values: index(n, (i) => (v.value_px?.[i] == null ? null : fixed(v.value_px[i], decimals_for(v.sd_px?.[i])))) },
    { head: "Std. dev.", unit: "px", values: index(n, (i) => (v.sd_px?.[i] == null ? null : fixed(v.sd_px[i], decimals_for(v.sd_px[i])))) },
  ];
  // A camera measured in image coordinates has no pixels.
  if (!v.value_px?.some(defined)) columns.length -= 2;
  return plain_table(`Camera ${camera.id}, ${camera.type}: interior orientation and additional parameters`, columns, n);
}

const index = (n, f) => Array.from({ length: n }, (_, i) => f(i));

function scientific(value, sd) {
  const size = Math.abs(value);
  if (size === 0 || (size >= 1e-3 && size < 1e7)) return fixed(value, decimals_for(sd));
  const digits = sd > 0 ? Math.min(12, Math.max(2, Math.floor(Math.log10(size)) - Math.floor(Math.log10(sd)) + 2)) : 3;
  return short(value, digits);
}

function sd_text(sd) {
  if (sd === 0) return "held";
  return sd > 0 && sd < 1e-3 ? short(sd, 2) : fixed(sd, decimals_for(sd));
}

function correlations(camera) {
  const names = camera.correlation.parameter;
  const cells = names.flatMap((a, i) => names.map((b, j) => ({ a, b, i, j, r: camera.correlation.r[i][j] })));
  const pairs = cells.filter((c) => c.i < c.j).sort((p, q) => Math.abs(q.r) - Math.abs(p.r));
  const top = pairs.slice(0, 3).map((p) => `${p.a} with ${p.b} ${fixed(p.r, 2)}`);
  const size = Math.min(640, 140 + 34 * names.length);
  return figure({
    title: `Correlations of the additional parameters, camera ${camera.id}`,
    text: `Strongest: ${top.join(", ")}.`,
    chart: plot({
      height: size,
      marginLeft: 70,
      marginBottom: 20,
      marginTop: 40,
      x: { domain: names, axis: "top", label: null, tickSize: 0 },
      y: { domain: names, label: null, tickSize: 0 },
      color: { type: "diverging", scheme: "RdBu", domain: [-1, 1], reverse: true, legend: false },
      marks: [
        Plot.cell(cells, { x: "b", y: "a", fill: "r", inset: 0.5 }),
        names.length <= 16
          ? Plot.text(cells, { x: "b", y: "a", text: (c) => fixed(c.r, 2), fill: (c) => (Math.abs(c.r) > 0.6 ? "#fff" : "#000"), fontSize: 11 })
          : null,
      ],
    }),
    note: "Red: rise together; blue: one rises as the other falls; white: independent.",
  });
}

/** Mean residual vectors of the cells of the format, over all images. */
function residual_field(camera) {
  const f = camera.field;
  const n = column(f.count);
  const vx = column(f.vx);
  const vy = column(f.vy);
  const mm = 1e3;
  const cells = [];
  for (let row = 0; row < f.rows; ++row) {
    for (let col = 0; col < f.columns; ++col) {
      const k = row * f.columns + col;
      cells.push({
        x1: mm * (-camera.width / 2 + (col * camera.width) / f.columns),
        x2: mm * (-camera.width / 2 + ((col + 1) * camera.width) / f.columns),
        y1: mm * (-camera.height / 2 + (row * camera.height) / f.rows),
        y2: mm * (-camera.height / 2 + ((row + 1) * camera.height) / f.rows),
        n: n[k], vx: vx[k], vy: vy[k],
      });
    }
  }
  const filled = cells.filter((c) => c.n > 0);
  const longest = filled.reduce((a, c) => Math.max(a, Math.hypot(c.vx, c.vy)), 0);
  const scale = longest > 0 ? (0.8 * mm * camera.width) / f.columns / longest : 0;
  const covered = filled.length;
  return figure({
    title: `Image residuals, mean of cells, camera ${camera.id}, \u00b5m`,
    text: `Longest mean vector ${short(longest * 1e6)} \u00b5m; ${covered} of ${cells.length} cells hold image points.`,
    chart: plan([cells[0].x1, cells.at(-1).x2, cells[0].y1, cells.at(-1).y2], {
      x: { label: "x [mm]" },
      y: { label: "y [mm]" },
      color: { scheme: "viridis", label: "Image points per cell", legend: true, type: "linear" },
      marks: [
        Plot.rect(cells, { x1: "x1", x2: "x2", y1: "y1", y2: "y2", fill: "n", fillOpacity: 0.55, stroke: "var(--line)" }),
        Plot.arrow(filled, {
          x1: (c) => (c.x1 + c.x2) / 2, y1: (c) => (c.y1 + c.y2) / 2,
          x2: (c) => (c.x1 + c.x2) / 2 + scale * c.vx, y2: (c) => (c.y1 + c.y2) / 2 + scale * c.vy,
          stroke: "currentColor", strokeWidth: 1.5, headLength: 5,
        }),
      ],
    }),
    note: `Vectors: a length of ${short((mm * camera.width) / f.columns / scale * 1e6 || 0)} \u00b5m spans a cell.`,
  });
}

/** The residuals of single image points over the format, with a choice of the part shown. */
function residual_points(camera) {
  const x = column(camera.residuals.x);
  const y = column(camera.residuals.y);
  const vx = column(camera.residuals.vx);
  const vy = column(camera.residuals.vy);
  const lengths = Float64Array.from(vx, (v, i) => Math.hypot(v, vy[i]));
  const limit = quantile(lengths, 0.98) || 1e-9;
  const chart = element("div");
  const draw = (part) => chart.replaceChildren(draw_residuals(camera, { x, y, vx, vy, lengths, limit }, part));
  draw("all");
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => draw("all"));
  return figure({
    title: `Residuals of single image points, camera ${camera.id}`,
    text: `${camera.residuals.step > 1 ? `One of ${camera.residuals.step} image points, ` : ""}${count(x.length)} image points; the darkest are longer than ${short(limit * 1e6)} \u00b5m.`,
    chart,
    controls: [
      choice("Part ", [["all", "whole format"], ["0,1", "upper left"], ["1,1", "upper right"], ["0,0", "lower left"], ["1,0", "lower right"], ["centre", "centre"]], draw),
    ],
  });
}

function part_extent(camera, part) {
  const w = 500 * camera.width;
  const h = 500 * camera.height;
  if (part === "all") return [-w, w, -h, h];
  if (part === "centre") return [-w / 2, w / 2, -h / 2, h / 2];
  const [i, j] = part.split(",").map(Number);
  return [i ? 0 : -w, i ? w : 0, j ? 0 : -h, j ? h : 0];
}

function draw_residuals(camera, r, part) {
  const [x0, x1, y0, y1] = part_extent(camera, part);
  const inside = [];
  for (let i = 0; i < r.x.length; ++i) {
    if (1e3 * r.x[i] >= x0 && 1e3 * r.x[i] <= x1 && 1e3 * r.y[i] >= y0 && 1e3 * r.y[i] <= y1) inside.push(i);
  }
  const options = { x: { label: "x [mm]" }, y: { label: "y [mm]" } };
  if (inside.length > 2000) {
    const colours = [resolved(kColours.tie), resolved(kColours.check), resolved(kColours.suspect)];
    const level = (i) => (r.lengths[i] > r.limit ? 2 : r.lengths[i] > 0.5 * r.limit ? 1 : 0);
    const ordered = inside.slice().sort((a, b) => level(a) - level(b));
    return plan([x0, x1, y0, y1], {
      ...options,
      marks: [point_cloud(ordered.map((i) => 1e3 * r.x[i]), ordered.map((i) => 1e3 * r.y[i]), (k) => colours[level(ordered[k])], 0.8)],
    });
  }
  const scale = round_down((0.04 * (x1 - x0)) / r.limit);
  return plan([x0, x1, y0, y1], {
    ...options,
    marks: [
      Plot.link(inside, {
        x1: (i) => 1e3 * r.x[i], y1: (i) => 1e3 * r.y[i],
        x2: (i) => 1e3 * r.x[i] + scale * r.vx[i], y2: (i) => 1e3 * r.y[i] + scale * r.vy[i],
        stroke: (i) => (r.lengths[i] > r.limit ? kColours.suspect : kColours.check), strokeWidth: 1,
      }),
      Plot.dot(inside, { x: (i) => 1e3 * r.x[i], y: (i) => 1e3 * r.y[i], r: 1.2, fill: kColours.tie }),
    ],
  });
}

function profile(camera) {
  const p = table(camera.profile);
  const r = Array.from(p.r, (v) => v * 1e3);
  const dr = Array.from(p.dr, (v) => v * 1e6);
  const band = p.sd ? Array.from(p.sd, (v) => v * 1e6) : null;
  const data = r.map((x, i) => ({ x, y: dr[i], lo: band ? dr[i] - 2 * band[i] : 0, hi: band ? dr[i] + 2 * band[i] : 0 }));
  return figure({
    title: `Distortion along the diagonal, camera ${camera.id}`,
    text: `${short(dr.at(-1))} \u00b5m in the corner, ${short(r.at(-1))} mm from the principal point.`,
    chart: plot({
      x: { label: "Distance from the principal point [mm]" },
      y: { label: "Radial correction [\u00b5m]", grid: true },
      marks: [
        Plot.ruleY([0]),
        band ? Plot.areaY(data, { x: "x", y1: "lo", y2: "hi", fill: kColours.check, fillOpacity: 0.2 }) : null,
        Plot.line(data, { x: "x", y: "y", stroke: kColours.check, strokeWidth: 2 }),
      ],
    }),
  });
}

/** A grid over the format, and where the adjusted parameters put its nodes. */
function distortion_grid(camera) {
  const g = table(camera.grid);
  const n = rows(g);
  const longest = index(n, (i) => Math.hypot(g.dx[i], g.dy[i])).reduce((a, b) => Math.max(a, b), 0);
  const scale = longest > 0 ? round_down((0.06 * camera.width) / longest) : 1;
  const lines = [];
  const columns = camera.grid_columns;
  const node = (i, f, z) => ({ x: 1e3 * (g.x[i] + f * g.dx[i]), y: 1e3 * (g.y[i] + f * g.dy[i]), z });
  for (const f of [0, scale]) {
    const family = [];
    for (let i = 0; i < n; ++i) {
      family.push(node(i, f, `r${Math.floor(i / columns)}`));
    }
    for (let c = 0; c < columns; ++c) {
      for (let i = c; i < n; i += columns) family.push(node(i, f, `c${c}`));
    }
    lines.push(family);
  }
  const w = 500 * camera.width;
  const h = 500 * camera.height;
  return figure({
    title: `Format with and without the additional parameters, camera ${camera.id}`,
    text: `Largest effect ${short(longest * 1e6)} \u00b5m, drawn ${count(scale)} times enlarged.`,
    chart: plan([-w, w, -h, h], {
      x: { label: "x [mm]" },
      y: { label: "y [mm]" },
      marks: [
        Plot.line(lines[0], { x: "x", y: "y", z: "z", stroke: kColours.tie, strokeDasharray: "3,3" }),
        Plot.line(lines[1], { x: "x", y: "y", z: "z", stroke: kColours.check, strokeWidth: 1.5 }),
      ],
    }),
    note: "Dashed: without; solid: with the adjusted parameters.",
  });
}

function w_histogram(camera) {
  const h = camera.w_histogram;
  const total = h.counts.reduce((a, b) => a + b, 0);
  const curve = Array.from({ length: 101 }, (_, i) => {
    const x = -5 + i * 0.1;
    return [x, (total * h.step * Math.exp((-x * x) / 2)) / Math.sqrt(2 * Math.PI)];
  });
  const outside = h.counts[0] + h.counts.at(-1);
  return figure({
    title: `Normalised residuals w, camera ${camera.id}`,
    text: `${count(total)} coordinates, ${count(outside)} of them in the outermost bars (|w| above 4.75); the line is the normal distribution.`,
    chart: histogram(h, { x_label: "w", curve }),
  });
}
