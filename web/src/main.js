// The report page: reads the data in the page and builds its sections, in the order in which a
// reader needs them.

import { read_report } from "./data.js";
import { element, section } from "./dom.js";
import { failure, head, lights } from "./sections/head.js";
import { network } from "./sections/network.js";
import { cameras } from "./sections/cameras.js";
import { iterations, precision } from "./sections/course.js";
import { tables } from "./sections/tables.js";
import { settings } from "./sections/settings.js";

const kSections = [
  ["lights", "Can it be trusted?", lights],
  ["failure", "What went wrong", failure],
  ["network", "Network", network],
  ["cameras", "Cameras", cameras],
  ["iterations", "Iterations", iterations],
  ["precision", "Precision", precision],
  ["tables", "Tables", tables],
  ["settings", "Settings and glossary", settings],
];

function build() {
  const report = read_report();
  document.title = `${report.project.control_file}: ${report.ending}`;
  document.getElementById("head").append(...head(report));
  const content = document.getElementById("content");
  const contents = document.getElementById("contents");
  for (const [id, title, make] of kSections) {
    const parts = [make(report)].flat();
    if (parts.length === 0) continue;
    content.append(section(id, title, ...parts));
    contents.append(element("a", { href: `#${id}` }, title));
  }
  document.documentElement.dataset.ready = "true";
}

build();
