// The last devices, and one of them with all its rows.

import { button, element, put, show } from "./dom.js";
import { duration, limits, shortNumber, timeOfDay, withUnit } from "./format.js";
import { readRun, readRuns } from "./state.js";
import { symbolOfVerdict } from "./symbols.js";
import { texts } from "./texts.js";

const kMore = 200;

function verdictCell(verdict) {
  const word = texts.verdicts[verdict] ?? String(verdict);
  return element("td.verdict", { "data-verdict": verdict }, symbolOfVerdict(verdict), word);
}

function head(...names) {
  return element("thead", element("tr", ...names.map((name) => element("th", { scope: "col" }, name))));
}

function cell(text, spec = "td") {
  return element(spec, text === undefined || text === null ? "" : String(text));
}

export class History {
  #listed = undefined;  // what was searched for; absent: the station's own last ones
  #open = undefined;  // the id of the run that is shown
  #recent = [];
  #drawn = "";

  constructor(root) {
    this.serial = element("input", { type: "search", maxlength: "200", spellcheck: "false", "aria-label": texts.search,
      placeholder: texts.search });
    this.problem = element("p.refusal", { role: "alert", hidden: true });
    this.rows = element("tbody");
    // Whole pages of their own, for print as well.
    this.reports = element("p.reports", texts.reports, ...["yield", "pareto", "capability", "versions", "runs"].map((name) =>
      element("a", { href: `/reports/${name}?since=7d`, target: "_blank" }, texts.reportNames[name])));
    this.none = element("p.muted", { hidden: true }, texts.noRuns);
    this.list = element("div",
      element("form.inline", { submit: (event) => {
        event.preventDefault();
        this.#search(this.serial.value.trim());
      } }, this.serial, element("button", texts.find), button(texts.more, () => this.#search(""))),
      element("table.runs", head(texts.time, texts.site, texts.serial, texts.verdict, texts.why), this.rows), this.none);
    this.run = element("div.run", { hidden: true });
    root.append(this.problem, this.list, this.run, this.reports);
  }

  /// Takes the station's last runs. Those that were searched for stay.
  update(recent) {
    this.#recent = recent ?? [];
    if (this.#listed === undefined) this.#draw(this.#recent);
  }

  async #search(serial) {
    put(this.problem, "");
    try {
      const { runs } = await readRuns(kMore, serial || undefined);
      this.#listed = serial;
      this.#draw(runs);
    } catch (problem) {
      put(this.problem, texts.cannotRead(problem.message));
    }
  }

  /// The next time the panel opens it shows the last runs again.
  reset() {
    this.#listed = undefined;
    this.serial.value = "";
    put(this.problem, "");
    this.#close();
    this.#draw(this.#recent);
  }

  #draw(runs) {
    const drawn = JSON.stringify(runs);
    if (drawn === this.#drawn) return;
    this.#drawn = drawn;
    // Whoever stands on a device with the keyboard stays on it.
    const at = this.rows.contains(document.activeElement) ? document.activeElement.dataset.run : undefined;
    this.rows.replaceChildren(...runs.map((run) => element("tr", { "data-verdict": run.verdict },
      cell(timeOfDay(run.startedAt)), cell(run.site),
      element("td", Object.assign(button(run.serial || "–", () => this.open(run.id)), { className: "link" }),
        run.kind && run.kind !== "production" ? element("span.chip", texts.kinds[run.kind] ?? run.kind) : undefined),
      verdictCell(run.verdict), cell(run.firstFailure ?? run.message))));
    runs.forEach((run, index) => {
      const link = this.rows.rows[index].querySelector("button");
      link.dataset.run = run.id;
      if (run.id === at) link.focus();
    });
    show(this.none, runs.length === 0);
  }

  #close() {
    this.#open = undefined;
    show(this.run, false);
    show(this.list, true);
  }

  /// Shows a run with all its rows.
  async open(id) {
    this.#open = id;
    show(this.list, false);
    show(this.run, true);
    const back = button(texts.back, () => this.#close());
    this.run.replaceChildren(back, element("p.muted", texts.loadingRows));
    try {
      const run = await readRun(id);
      if (this.#open === id) this.run.replaceChildren(back, ...describe(run));
    } catch (problem) {
      if (this.#open !== id) return;
      this.run.replaceChildren(back, element("p.refusal", { role: "alert" }, texts.cannotRead(problem.message)));
    }
  }
}

function valueOf(record) {
  return record.value === undefined ? record.text ?? "" : withUnit(shortNumber(record.value), record.unit);
}

function nameOf(record) {
  return record.subTest ?? record.name ?? "";
}

function describe(run) {
  const facts = [
    [texts.site, run.site], [texts.started, timeOfDay(run.startedAt)], [texts.ended, timeOfDay(run.endedAt)],
    [texts.operatorWord, run.operator], [texts.kind, texts.kinds[run.kind] ?? run.kind], [texts.reason, run.reason],
    [texts.flowWord, run.flow], [texts.bundle, [run.bundle, run.bundleVersion].filter(Boolean).join(" ")],
    [texts.first, run.firstFailure], [texts.message, run.message], [texts.run, run.id], [texts.traffic, run.traffic],
  ].filter(([, value]) => value);
  const title = element("h3.run-title", { "data-verdict": run.verdict }, symbolOfVerdict(run.verdict),
    element("span", texts.verdicts[run.verdict] ?? String(run.verdict)), element("span.serial", run.serial));
  const list = element("dl.facts-list", ...facts.flatMap(([name, value]) => [element("dt", name), cell(value, "dd")]));
  const table = element("table.rows", head("", texts.name, texts.value, texts.limits, texts.verdict), ...rowsOf(run));
  const isEmpty = (run.measurements ?? []).length === 0;
  return [title, list, table, ...(isEmpty ? [element("p.muted", texts.noRecords)] : [])];
}

// A body for each step: a row that names it, and its records.
function rowsOf(run) {
  const measurements = run.measurements ?? [];
  return (run.steps ?? []).map((step) => {
    const seconds = (step.endedAt - step.startedAt) / 1e6;
    const own = measurements.filter((record) => record.step === step.step && record.attempt === step.attempt);
    return element("tbody",
      element("tr.step", { "data-verdict": step.verdict },
        element("th", { scope: "rowgroup", colspan: "3" }, texts.step(step.step, step.test),
          step.attempt > 1 ? element("span.chip", texts.attempt(step.attempt)) : undefined),
        cell(duration(seconds)), verdictCell(step.verdict)),
      step.error ? element("tr", element("td"), element("td.refusal", { colspan: "4" }, step.error)) : undefined,
      ...own.map(recordRow));
  });
}

function recordRow(record) {
  return element("tr", { "data-verdict": record.verdict, class: record.superseded ? "superseded" : "" },
    cell(record.number), element("td", nameOf(record), record.message ? element("div.muted", record.message) : undefined),
    element("td.value", valueOf(record),
      record.superseded ? element("span.chip", texts.superseded) : undefined),
    cell(limits(record)), verdictCell(record.verdict));
}
