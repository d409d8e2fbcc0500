// A made-up report with everything that a page can show, for looking at the page and testing it
// without the command.

function random(seed) {
  let s = seed >>> 0;
  return () => {
    s = (Math.imul(s, 1664525) + 1013904223) >>> 0;
    return (s + 0.5) / 4294967296;
  };
}

function normal(next) {
  return Math.sqrt(-2 * Math.log(next())) * Math.cos(2 * Math.PI * next());
}

const f32 = (values) => ({ f32: Buffer.from(Float32Array.from(values).buffer).toString("base64") });

function network(num_points, next) {
  const points = {
    id: [], role: [], x: [], y: [], z: [], dx: [], dy: [], dz: [], sd_x: [], sd_y: [], sd_z: [],
    cov_xy: [], cov_xz: [], cov_yz: [], rays: [], angle: [],
  };
  for (let i = 0; i < num_points; ++i) {
    const role = i % 40 === 0 ? 1 : i % 67 === 0 ? 2 : 0;
    const push = (row) => Object.entries(row).forEach(([k, v]) => points[k].push(v));
    const sd = 0.02 + 0.01 * next();
    push({
      id: String(1000 + i), role, x: 5000 + 1200 * next(), y: 9000 + 700 * next(), z: 300 + 60 * next(),
      dx: role ? 0.03 * normal(next) : 0, dy: role ? 0.03 * normal(next) : 0, dz: role ? 0.05 * normal(next) : 0,
      sd_x: sd, sd_y: sd * 0.9, sd_z: 2 * sd, cov_xy: 0.2 * sd * sd, cov_xz: 0, cov_yz: 0,
      rays: 2 + Math.floor(6 * next()), angle: 20 + 40 * next(),
    });
  }
  const images = { id: [], camera: [], x: [], y: [], z: [], c: [], width: [], height: [], points: [] };
  for (let k = 0; k < 9; ++k) images[`r${Math.floor(k / 3)}${k % 3}`] = [];
  for (let strip = 0; strip < 3; ++strip) {
    for (let i = 0; i < 6; ++i) {
      images.id.push(`P${strip}${i}`);
      images.camera.push("c4040z");
      images.x.push(5100 + 200 * i);
      images.y.push(9100 + 250 * strip);
      images.z.push(1300);
      images.c.push(0.1);
      images.width.push(0.06);
      images.height.push(0.04);
      images.points.push(80);
      for (let r = 0; r < 3; ++r) for (let c = 0; c < 3; ++c) images[`r${r}${c}`].push(r === c ? 1 : 0);
    }
  }
  return { points, images };
}

function camera(num, next) {
  const x = Array.from({ length: num }, () => 0.06 * (next() - 0.5));
  const y = Array.from({ length: num }, () => 0.04 * (next() - 0.5));
  const names = ["dxp", "dyp", "dc", "K1", "K2", "K3", "P1", "P2"];
  const counts = new Array(40).fill(0);
  for (let i = 0; i < 2 * num; ++i) counts[Math.min(39, Math.max(0, Math.floor((normal(next) + 5) / 0.25)))] += 1;
  const nodes = Array.from({ length: 77 }, (_, i) => [-0.03 + (0.06 * (i % 11)) / 10, -0.02 + (0.04 * Math.floor(i / 11)) / 6]);
  return {
    id: "c4040z", type: "CCD", width: 0.06, height: 0.04,
    values: {
      parameter: ["c", "xp", "yp", ...names], value: [100.0123, 0.01, -0.02, ...names.map((_, i) => 10 ** -i * 1.2345)], sd: [0.002, 0.001, 0.001, ...names.map((_, i) => 10 ** (-i - 3))],
      unit: ["mm", "mm", "mm", "mm", "mm", "mm", "1/mm\u00b2", "1/mm\u2074", "1/mm\u2076", "1/mm", "1/mm"],
      value_px: [20002.46, 2, -4, 0.1, 0.2, 0.3], sd_px: [0.4, 0.2, 0.2, 0.1, 0.1, 0.1],
    },
    correlation: { parameter: names, r: names.map((_, i) => names.map((_, j) => (i === j ? 1 : Math.cos(i * j) * 0.9))) },
    field: { columns: 8, rows: 6, count: Array.from({ length: 48 }, (_, i) => (i === 5 ? 0 : 20 + i)), vx: Array.from({ length: 48 }, () => 4e-7 * normal(next)), vy: Array.from({ length: 48 }, () => 4e-7 * normal(next)) },
    residuals: { x: f32(x), y: f32(y), vx: f32(x.map(() => 2e-6 * normal(next))), vy: f32(y.map(() => 2e-6 * normal(next))) },
    profile: { r: Array.from({ length: 20 }, (_, i) => 0.0019 * i), dr: Array.from({ length: 20 }, (_, i) => 1e-9 * i ** 3), sd: Array.from({ length: 20 }, (_, i) => 1e-8 * i) },
    grid_columns: 11,
    grid: { x: nodes.map((p) => p[0]), y: nodes.map((p) => p[1]), dx: nodes.map(([a, b]) => a * (a * a + b * b) * 30), dy: nodes.map(([a, b]) => b * (a * a + b * b) * 30) },
    w_histogram: { from: -5, step: 0.25, counts },
  };
}

/** A finished report with `num_points` points and as many image points in its camera. */
export function report(num_points = 600) {
  const next = random(7);
  const light = (name, title, colour) => ({ name, title, light: colour, value: "1.02", limits: "green 0.95 to 1.05, amber 0.5 to 2", sentence: "The image coordinates are as good as assumed." });
  const iterations = [1, 2, 3, 4].map((iteration) => ({
    iteration, vtpv_predicted: 1e-8 / iteration, sigma0_predicted: 4e-6 * (1 + 10 ** (3 - 2 * iteration)),
    max_change_point: 10 ** (2 - 2 * iteration), max_change_centre: 3 * 10 ** (2 - 2 * iteration), max_change_rotation: 10 ** (-2 * iteration), max_change_geometry: null,
  }));
  const group = (name, factor) => ({ group: name, id: null, observations: 1000, redundancy: 612.3, vtpv: 1e-8, factor, factor_lower: factor * 0.9, factor_upper: factor * 1.1, sd_factor: Math.sqrt(factor) });
  const net = network(num_points, next);
  return {
    format: "vorn-report", format_version: "1.0", program: { name: "vorn", version: "0.1.0" },
    project: { control_file: "aerial-block.ctl" }, status: "converged", ending: "Converged after 4 iterations",
    statistics: { images: 18, points: num_points, image_points: 1440, redundancy: 752, sigma0_posterior: 4.15e-6 },
    counts: { control: 15, check: 9 }, settings: { derivatives: "rigorous", sigma0_prior: 4e-6, datum: "given", alpha: 0.001 },
    lights: [light("end", "End", "green"), light("sigma0", "Sigma 0", "amber"), light("suspects", "Suspects", "red"), light("check_points", "Check points", "grey")],
    network: net, cameras: [camera(num_points, next)], iterations,
    groups: [group("image_coordinates", 1.08), group("control_horizontal", 0.4), group("control_height", 2.5)],
    tables: [
      {
        name: "points", title: "Object points",
        columns: [{ name: "id", head: "Point", kind: "text" }, { name: "rays", head: "Rays", kind: "count" }, { name: "x", head: "X", unit: "m", kind: "number", decimals: 3 }, { name: "sd_x", head: "Std. dev. X", unit: "mm", factor: 1000, kind: "number", decimals: 1 }],
        rows: { id: { of: "points" }, rays: { of: "points" }, x: { of: "points" }, sd_x: { of: "points" } },
      },
      { name: "removed", title: "Removed objects", columns: [{ name: "id", head: "Object", kind: "text" }, { name: "reason", head: "Reason", kind: "text", wide: true }], rows: { id: [], reason: [] } },
    ],
  };
}
