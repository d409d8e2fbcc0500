import { rows } from "../data.js";
import { element, figure, toggle } from "../dom.js";
import { count, quantile } from "../format.js";
import { kColours, resolved } from "../plots.js";

const kTurn = Math.PI / 24;

/** The network in space, turned with the mouse, a finger or the arrow keys. */
export function orbit(points, images) {
  const canvas = element("canvas", {
    width: 1280, height: 840, tabindex: "0", role: "img",
    "aria-label": "Network in space. Arrow keys turn it, plus and minus change its size.",
  });
  const view = { azimuth: -0.6, elevation: 0.55, zoom: 1, shown: { points: true, images: true } };
  const scene = scene_of(points, images);
  const draw = () => draw_scene(canvas, scene, points, images, view);
  const turn = (azimuth, elevation) => {
    view.azimuth += azimuth;
    view.elevation = Math.min(Math.PI / 2, Math.max(-Math.PI / 2, view.elevation + elevation));
    draw();
  };
  const zoom = (factor) => {
    view.zoom = Math.min(50, Math.max(0.2, view.zoom * factor));
    draw();
  };
  attach(canvas, turn, zoom);
  const button = (label, name, act) => element("button", { type: "button", "aria-label": name, onclick: act }, label);
  const controls = [
    button("\u2190", "Turn left", () => turn(-kTurn, 0)),
    button("\u2192", "Turn right", () => turn(kTurn, 0)),
    button("\u2191", "Tilt up", () => turn(0, kTurn)),
    button("\u2193", "Tilt down", () => turn(0, -kTurn)),
    button("+", "Larger", () => zoom(1.25)),
    button("\u2212", "Smaller", () => zoom(0.8)),
    toggle("Points", true, (on) => { view.shown.points = on; draw(); }),
    toggle("Images", true, (on) => { view.shown.images = on; draw(); }),
  ];
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", draw);
  queueMicrotask(draw);
  return figure({
    title: "Network in space",
    text: `${count(rows(points))} points and ${count(rows(images))} images with their viewing directions; control orange, check blue.`,
    chart: canvas,
    controls,
    note: "Drag to turn, Ctrl and wheel to change the size; arrow keys, plus and minus do the same.",
  });
}

function attach(canvas, turn, zoom) {
  let last = null;
  canvas.addEventListener("pointerdown", (event) => {
    last = [event.clientX, event.clientY];
    canvas.setPointerCapture(event.pointerId);
  });
  canvas.addEventListener("pointermove", (event) => {
    if (!last) return;
    turn((event.clientX - last[0]) * 0.008, (event.clientY - last[1]) * 0.008);
    last = [event.clientX, event.clientY];
  });
  for (const end of ["pointerup", "pointercancel"]) canvas.addEventListener(end, () => { last = null; });
  canvas.addEventListener("wheel", (event) => {
    if (!event.ctrlKey) return;
    event.preventDefault();
    zoom(event.deltaY < 0 ? 1.15 : 1 / 1.15);
  }, { passive: false });
  const keys = {
    ArrowLeft: () => turn(-kTurn, 0), ArrowRight: () => turn(kTurn, 0),
    ArrowUp: () => turn(0, kTurn), ArrowDown: () => turn(0, -kTurn),
    "+": () => zoom(1.25), "-": () => zoom(0.8),
  };
  canvas.addEventListener("keydown", (event) => {
    if (!keys[event.key]) return;
    event.preventDefault();
    keys[event.key]();
  });
}

/** Middle and size of what is shown, without far outliers. */
function scene_of(points, images) {
  const centre = ["x", "y", "z"].map((axis) => quantile(points[axis], 0.5));
  const all = Array.from(points.x, (_, i) => Math.hypot(points.x[i] - centre[0], points.y[i] - centre[1], points.z[i] - centre[2]));
  for (let i = 0; i < rows(images); ++i) {
    all.push(Math.hypot(images.x[i] - centre[0], images.y[i] - centre[1], images.z[i] - centre[2]));
  }
  return { centre, size: quantile(all, 0.98) || 1 };
}

function draw_scene(canvas, scene, points, images, view) {
  const context = canvas.getContext("2d");
  context.clearRect(0, 0, canvas.width, canvas.height);
  const scale = (0.45 * canvas.height * view.zoom) / scene.size;
  const [sa, ca] = [Math.sin(view.azimuth), Math.cos(view.azimuth)];
  const [se, ce] = [Math.sin(view.elevation), Math.cos(view.elevation)];
  const project = (x, y, z) => {
    const dx = x - scene.centre[0];
    const dy = y - scene.centre[1];
    const dz = z - scene.centre[2];
    const right = ca * dx - sa * dy;
    const deep = sa * dx + ca * dy;
    return [canvas.width / 2 + scale * right, canvas.height / 2 - scale * (ce * dz + se * deep)];
  };
  if (view.shown.images) draw_images(context, images, project, scene.size);
  if (view.shown.points) draw_points(context, points, project);
  draw_axes(context, canvas, [ca, sa], [ce, se]);
}

function draw_points(context, points, project) {
  const colours = [kColours.tie, kColours.control, kColours.check].map(resolved);
  for (const role of [0, 1, 2]) {
    context.fillStyle = colours[role];
    const size = role === 0 ? (points.x.length > 20000 ? 1.5 : 3) : 10;
    for (let i = 0; i < points.x.length; ++i) {
      if (points.role[i] !== role) continue;
      const [x, y] = project(points.x[i], points.y[i], points.z[i]);
      context.fillRect(x - size / 2, y - size / 2, size, size);
    }
  }
}

function draw_images(context, images, project, size) {
  context.strokeStyle = resolved(kColours.image);
  context.lineWidth = 1.5;
  const length = 0.06 * size;
  context.beginPath();
  for (let i = 0; i < images.x.length; ++i) {
    const centre = [images.x[i], images.y[i], images.z[i]];
    const axis = (k, f) => [0, 1, 2].map((r) => f * images[`r${r}${k}`][i]);
    const to = (...d) => project(...centre.map((c, r) => c + d.reduce((sum, v) => sum + v[r], 0)));
    const half = (0.35 * length * images.width[i]) / images.c[i];
    const tall = (0.35 * length * images.height[i]) / images.c[i];
    const front = axis(2, -length * 0.7);
    const corners = [[-1, -1], [1, -1], [1, 1], [-1, 1]].map(([a, b]) => to(front, axis(0, a * half), axis(1, b * tall)));
    context.moveTo(...corners[3]);
    for (const corner of corners) context.lineTo(...corner);
    for (const corner of corners) {
      context.moveTo(...project(...centre));
      context.lineTo(...corner);
    }
  }
  context.stroke();
}

/** The directions of the object axes, in the lower left corner. */
function draw_axes(context, canvas, [ca, sa], [ce, se]) {
  context.strokeStyle = resolved("var(--ink)");
  context.fillStyle = resolved("var(--ink)");
  context.font = "24px sans-serif";
  const origin = [90, canvas.height - 90];
  const axes = { X: [ca, -se * sa], Y: [-sa, -se * ca], Z: [0, -ce] };
  for (const [name, [x, y]] of Object.entries(axes)) {
    context.beginPath();
    context.moveTo(...origin);
    context.lineTo(origin[0] + 60 * x, origin[1] + 60 * y);
    context.stroke();
    context.fillText(name, origin[0] + 75 * x - 8, origin[1] + 75 * y + 8);
  }
}
