// Writes the bundled page as C++ source: text before and after the place of the data.
//
//   node embed.mjs PAGE.html OUTPUT.cpp

import { readFile, writeFile } from "node:fs/promises";

const kMark = "<!-- report data -->";
const kPiece = 8000; // compilers limit the length of one literal

function literal(text) {
  const pieces = [];
  for (let i = 0; i < text.length; i += kPiece) {
    pieces.push(`R"vorn(${text.slice(i, i + kPiece)})vorn"`);
  }
  return pieces.join("\n");
}

const [, , page_name, output] = process.argv;
const page = await readFile(page_name, "utf8");
const at = page.indexOf(kMark);
if (at < 0) throw new Error(`${page_name} has no place for the data`);
await writeFile(
  output,
  `#include "app/report_page/page_template.h"

namespace vorn::app {

const char kPageHead[] = ${literal(page.slice(0, at))};
const char kPageTail[] = ${literal(page.slice(at + kMark.length))};

}  // namespace vorn::app
`,
);
