// Charts that several sections draw. Colours are custom properties of the page, so that they follow
// light, dark and print.

import * as Plot from "@observablehq/plot";

export const kColours = {
  control: "var(--control-mark)",
  check: "var(--check)",
  tie: "var(--tie)",
  suspect: "var(--suspect)",
  ink: "currentColor",
  image: "var(--image)",
};

const kStyle = { fontSize: "12px", background: "none", fontVariantNumeric: "tabular-nums" };

// Charts are drawn for a width and then follow that of the page; on a phone their text must not shrink
// below reading size.
const kPhone = 700;
const kNarrow = 380;
const chart_width = (wide) => (innerWidth < kPhone ? kNarrow : wide);

/** A chart in the page's style. */
export function plot(options) {
  return Plot.plot({ width: chart_width(640), height: 320, marginLeft: 60, marginBottom: 40, ...options, style: kStyle });
}

/** A chart whose axes have one scale: `extent` is [x min, x max, y min, y max]. */
export function plan(extent, options) {
  const [x0, x1, y0, y1] = padded(extent);
  const frame = { left: 60, right: 20, top: 20, bottom: 40 };
  const total = options.width ?? chart_width(640);
  const room = total - frame.left - frame.right;
  const ratio = (y1 - y0) / (x1 - x0);
  const height = Math.min(0.75 * total, Math.max(160, room * ratio));
  // Too tall for its width, the plan is widened to the full frame, so that one unit stays one unit.
  const width = Math.max(x1 - x0, ((y1 - y0) * room) / height);
  const deep = Math.max(y1 - y0, ((x1 - x0) * height) / room);
  const cx = (x0 + x1) / 2;
  const cy = (y0 + y1) / 2;
  const x = [cx - width / 2, cx + width / 2];
  const y = [cy - deep / 2, cy + deep / 2];
  return plot({
    marginLeft: frame.left,
    marginRight: frame.right,
    marginTop: frame.top,
    marginBottom: frame.bottom,
    height: height + frame.top + frame.bottom,
    ...options,
    x: { domain: x, grid: true, ...options.x },
    y: { domain: y, grid: true, ...options.y },
  });
}

function padded([x0, x1, y0, y1]) {
  const room = 0.04 * Math.max(x1 - x0, y1 - y0, 1e-9);
  return [x0 - room, x1 + room, y0 - room, y1 + room];
}

/** Many points as one picture behind the other marks: a mark for `plot`. */
export function point_cloud(x, y, colour_of, radius = 1.2) {
  return (index, scales, values, { width, height }) => {
    const canvas = document.createElement("canvas");
    const density = 2;
    canvas.width = width * density;
    canvas.height = height * density;
    const context = canvas.getContext("2d");
    context.scale(density, density);
    for (let i = 0; i < x.length; ++i) {
      const px = scales.x(x[i]);
      const py = scales.y(y[i]);
      if (!Number.isFinite(px) || !Number.isFinite(py)) continue;
      context.fillStyle = colour_of(i);
      context.fillRect(px - radius, py - radius, 2 * radius, 2 * radius);
    }
    const image = document.createElementNS("http://www.w3.org/2000/svg", "image");
    image.setAttribute("width", width);
    image.setAttribute("height", height);
    image.setAttribute("href", canvas.toDataURL());
    return image;
  };
}

/** The value of a colour for canvases, which know no custom properties. */
export function resolved(colour) {
  const name = /^var\((.*)\)$/.exec(colour);
  if (!name) return colour;
  return getComputedStyle(document.documentElement).getPropertyValue(name[1]).trim();
}

/** A histogram of finished bins, with a curve if one is given as [x, y] pairs. */
export function histogram({ from, step, counts }, { x_label, curve }) {
  const bins = counts.map((n, i) => ({ x1: from + i * step, x2: from + (i + 1) * step, n }));
  return plot({
    x: { label: x_label },
    y: { label: "Number", grid: true },
    marks: [
      Plot.rectY(bins, { x1: "x1", x2: "x2", y: "n", fill: kColours.check, insetLeft: 0.5, insetRight: 0.5 }),
      curve ? Plot.line(curve, { stroke: kColours.suspect, strokeWidth: 2 }) : null,
      Plot.ruleY([0]),
    ],
  });
}

/** Bins of numbers, about `wanted` of them. */
export function bins_of(values, wanted = 30) {
  const finite = Float64Array.from(values).filter(Number.isFinite);
  if (finite.length === 0) return { from: 0, step: 1, counts: [0] };
  const min = finite.reduce((a, b) => Math.min(a, b));
  const max = finite.reduce((a, b) => Math.max(a, b));
  const step = (max - min) / wanted || Math.abs(min) || 1;
  const counts = new Array(wanted).fill(0);
  for (const v of finite) counts[Math.min(wanted - 1, Math.floor((v - min) / step))] += 1;
  return { from: min, step, counts };
}

export { Plot, chart_width };
