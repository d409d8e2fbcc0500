// Bundles script, style and page into one HTML file without references to the outside. The place of
// the data is marked by a comment that the command replaces.
//
//   node build.mjs OUTPUT.html

import { build } from "esbuild";
import { readFile, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const folder = dirname(fileURLToPath(import.meta.url));
const output = process.argv[2] ?? join(folder, "dist", "report.html");

const bundle = await build({
  entryPoints: [join(folder, "src", "main.js")],
  bundle: true,
  write: false,
  minify: true,
  format: "iife",
  target: "es2020",
  charset: "ascii",
  legalComments: "none",
});
// A script ends at the first end tag, wherever it stands.
const script = bundle.outputFiles[0].text.replaceAll("</script", "<\\/script");
const style = await readFile(join(folder, "src", "style.css"), "utf8");
const page = await readFile(join(folder, "src", "page.html"), "utf8");
await writeFile(
  output,
  page.replace("/* style */", () => style).replace("/* script */", () => script),
);
