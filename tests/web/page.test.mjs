// Opens the pages of the examples in headless Chromium and looks at them as a reader would.
//
//   scripts/test-page

import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import { cpSync, existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, before, test } from "node:test";
import { fileURLToPath, pathToFileURL } from "node:url";
import { chromium } from "playwright-core";

const vorn = process.env.VORN;
const executablePath = process.env.CHROMIUM ?? "/usr/bin/chromium";
const examples = fileURLToPath(new URL("../examples/", import.meta.url));
const projects = [
  ["aerial-block", "aerial-block.ctl"],
  ["close-range-calibration", "close-range-calibration.ctl"],
  ["pushbroom-strip", "pushbroom-strip.ctl"],
];
const kQuiet = ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync"];
const missing = !vorn ? "VORN does not name the command" : !existsSync(executablePath) ? "there is no Chromium" : false;

let browser;
let folder;

before(async () => {
  if (missing) return;
  folder = mkdtempSync(join(tmpdir(), "vorn-page-"));
  browser = await chromium.launch({ executablePath, args: kQuiet });
});

after(async () => {
  await browser?.close();
  if (folder) rmSync(folder, { recursive: true });
});

/** Runs an example; gives its page and its JSON. */
function adjusted(example, control) {
  const place = join(folder, example);
  if (!existsSync(place)) {
    cpSync(join(examples, example), place, { recursive: true });
    execFileSync(vorn, ["adjust", join(place, control), "--quality", "--json", "--html", join(folder, `${example}.html`)], { stdio: "ignore" });
  }
  return {
    page: join(folder, `${example}.html`),
    json: JSON.parse(readFileSync(join(place, control.replace(".ctl", ".quality.json")), "utf8")),
  };
}

async function open(file, options = {}) {
  const page = await browser.newPage({ viewport: { width: 1400, height: 900 }, ...options });
  const said = [];
  page.on("console", (message) => said.push(message.text()));
  page.on("pageerror", (error) => said.push(error.message));
  page.on("request", (request) => {
    if (!/^(file|data):/.test(request.url())) said.push(`request: ${request.url()}`);
  });
  await page.goto(pathToFileURL(file).href);
  await page.waitForFunction(() => document.documentElement.dataset.ready === "true");
  return { page, said };
}

const digits = (text) => Number(text.replace(/[^0-9.\-\u2212]/g, "").replace("\u2212", "-"));

for (const [example, control] of projects) {
  test(`the page of ${example}`, { skip: missing }, async (t) => {
    const { page: file, json } = adjusted(example, control);
    const { page, said } = await open(file);

    await t.test("draws every chart, silently", async () => {
      const charts = await page.$$eval("figure.chart", (figures) =>
        figures.map((f) => ({
          title: f.querySelector("figcaption").textContent,
          marks: f.querySelectorAll("svg path, svg circle, svg rect, svg line, svg image").length,
          canvas: [...f.querySelectorAll("canvas")].map((c) => new Set(c.getContext("2d").getImageData(0, 0, c.width, c.height).data).size),
          text: f.querySelector(".alternative").textContent,
        })),
      );
      assert.ok(charts.length >= 6);
      for (const chart of charts) {
        assert.ok(chart.marks > 3 || chart.canvas.some((colours) => colours > 2), `${chart.title} is empty`);
        assert.ok(chart.text.length > 10 && !/NaN|undefined|Infinity/.test(chart.text), `${chart.title}: ${chart.text}`);
      }
      assert.deepEqual(said, []);
    });

    await t.test("says what the JSON says", async () => {
      const facts = Object.fromEntries(
        await page.$$eval(".facts div", (rows) => rows.map((r) => [r.children[0].textContent, r.children[1].textContent])),
      );
      assert.equal(digits(facts["Sigma 0"]), Number((json.statistics.sigma0_posterior * 1e6).toFixed(3)));
      for (const [name, key] of [["Redundancy", "redundancy"], ["Images", "images"], ["Image points", "image_points"], ["Object points", "points"]]) {
        assert.equal(digits(facts[name]), json.statistics[key], name);
      }
      const worst = await page.$eval('[data-table="residuals"] tbody tr', (row) => [...row.cells].map((c) => c.textContent));
      const rows = json.tables.image_points;
      const at = rows.image.findIndex((image, i) => image === worst[0] && rows.point[i] === worst[1]);
      assert.equal(digits(worst[2]), Number((rows.vx[at] * 1e6).toFixed(2)));
      assert.equal(digits(worst[4]), Number(rows.wx[at].toFixed(2)));
      const largest = Math.max(...rows.wx.map(Math.abs), ...rows.wy.map(Math.abs));
      assert.equal(Math.max(Math.abs(rows.wx[at]), Math.abs(rows.wy[at])), largest);
      const lights = await page.$$eval(".lights li", (items) => items.map((i) => i.dataset.light));
      assert.equal(lights.length, 10);
    });

    await t.test("sorts and searches its tables", async () => {
      const table = page.locator('[data-table="points"]');
      await table.getByRole("searchbox").fill(json.tables.points.id[0]);
      assert.ok((await table.locator("tbody tr").count()) >= 1);
      await table.getByRole("searchbox").fill("no such point");
      assert.equal(await table.locator("tbody tr").count(), 0);
      await table.getByRole("searchbox").fill("");
      await table.getByRole("button", { name: "Rays" }).click();
      const rays = await table.locator("tbody tr td:nth-child(3)").allTextContents();
      assert.equal(digits(rays[0]), Math.max(...json.tables.points.rays));
    });

    await t.test("is reached and turned by the keyboard", async () => {
      const controls = await page.$$("a, button, input, select, canvas, .frame");
      for (const control of controls) {
        assert.ok((await control.evaluate((c) => c.tabIndex)) >= 0);
      }
      const canvas = page.locator("canvas").first();
      const drawn = () => canvas.evaluate((c) => c.toDataURL());
      const old = await drawn();
      await canvas.focus();
      await page.keyboard.press("ArrowLeft");
      assert.notEqual(await drawn(), old);
    });

    await t.test("prints whole", async () => {
      const pdf = await page.pdf({ format: "A4" });
      assert.ok(pdf.length > 50000);
      await page.emulateMedia({ media: "print" });
      await page.setViewportSize({ width: 680, height: 960 });
      const cut = await page.$$eval("figure.chart", (figures) =>
        figures.filter((f) => f.scrollWidth > f.clientWidth + 1).map((f) => f.textContent.slice(0, 40)));
      assert.deepEqual(cut, []);
    });
    await page.close();
  });
}

// Mistakes that end a run at its three stages: while reading, in the first solution, when the numbers
// cease to be finite.
const mistakes = [
  ["a word that is no number", (edit) => edit("image-coords.txt", /0\.001/, "0,001"), /image-coords\.txt:1: expected a number/],
  ["no control", (edit) => {
    edit("object-coords.txt", / 0\.030  0\.030  0\.050/g, " 1e31 1e31 1e31");
    edit("control.txt", /^[^]*$/, "stop-dep\n");
  }, /control/i],
  ["a camera at its points", (edit) => edit("orientations.txt", /1548/, "1e300"), /./],
];

/** The page of the aerial block with a mistake in it, and what the command said. */
function failed(mistake) {
  const place = mkdtempSync(join(folder, "failed-"));
  cpSync(join(examples, "aerial-block"), place, { recursive: true });
  mistake((name, from, to) => {
    const file = join(place, name);
    const old = readFileSync(file, "utf8");
    assert.match(old, from);
    writeFileSync(file, old.replace(from, to));
  });
  const page = join(place, "report.html");
  const run = () => spawnSync(vorn, ["report", "-q", join(place, "aerial-block.ctl"), "-o", page], { encoding: "utf8" });
  return { place, page, run };
}

for (const [name, mistake, reason] of mistakes) {
  test(`the page of a run that failed: ${name}`, { skip: missing }, async () => {
    const { place, page: file, run } = failed(mistake);
    assert.equal(run().status, 1);
    assert.match(run().stderr, new RegExp(`what went wrong: ${file}\n`), "a page of a failure is replaced");
    await fits(file, async (page) => {
      assert.match(await page.textContent(".ending"), /^Failed: /);
      const found = await page.$$eval("[data-finding]", (items) => items.map((i) => i.textContent));
      assert.ok(found.length > 0);
      assert.match(`${await page.textContent(".ending")} ${found.join(" ")}`, reason);
      assert.deepEqual(await page.$$eval(".lights [data-light]", (items) => items.map((i) => i.dataset.light)), ["end"]);
      assert.deepEqual(await page.$$eval("figure.chart", (figures) => figures.length), 0);
      const text = await page.textContent("main");
      assert.doesNotMatch(text, /NaN|undefined|Infinity/);
    });
    // A page of results is kept, as the results are.
    cpSync(adjusted(...projects[0]).page, file);
    const results = readFileSync(file, "utf8");
    assert.match(run().stderr, /report\.failed\.html/);
    assert.equal(readFileSync(file, "utf8"), results);
    cpSync(join(examples, "aerial-block"), place, { recursive: true });
    assert.equal(run().status, 0);
    assert.ok(!existsSync(join(place, "report.failed.html")), "it speaks of a failure that is no more");
  });
}

test("the page fits every width, light and dark", { skip: missing }, async () => {
  await fits(adjusted(...projects[1]).page);
});

/** Opens a page at three widths, light and dark, in silence; `look` sees each. */
async function fits(file, look = () => {}) {
  const papers = new Set();
  for (const width of [360, 800, 1400]) {
    for (const colorScheme of ["light", "dark"]) {
      const { page, said } = await open(file, { viewport: { width, height: 900 }, colorScheme });
      assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), `${width} px overflow`);
      papers.add(await page.evaluate(() => getComputedStyle(document.body).backgroundColor));
      await look(page);
      assert.deepEqual(said, []);
      await page.close();
    }
  }
  assert.equal(papers.size, 2);
}
