// What a technician does at the station.

import { command } from "./api.js";
import { button, element, put, setAttribute, show } from "./dom.js";
import { readLog } from "./state.js";
import { putSymbolOfState } from "./symbols.js";
import { texts } from "./texts.js";

const kKinds = ["production", "golden", "study", "debug"];
const kLogLines = 200;
const kMostLogLines = 1000;

function section(title, ...parts) {
  return element("section.tech", element("h3", title), ...parts);
}

function textField(label, value = "") {
  const field = element("input", { type: "text", maxlength: "200", spellcheck: "false", autocomplete: "off",
    "aria-label": label, placeholder: label });
  field.value = value;
  return field;
}

export class Technician {
  #sites = new Map();
  #drawnInstruments = "";
  #logLoaded = false;

  constructor(root) {
    this.said = element("p", { role: "status", hidden: true });
    this.station = element("dl.facts-list");
    this.instruments = element("tbody");
    this.log = element("pre.log", { tabindex: "0", "aria-label": texts.log });
    this.siteList = element("div.site-list");
    root.append(this.said, section(texts.runsFromNow, this.#makeKinds()), section(texts.operatorName, this.#makeOperator()),
      section(texts.sites, this.siteList),
      section(texts.instruments, element("table.instruments", element("thead", element("tr",
        ...[texts.name, texts.address, texts.state, texts.calibration].map((name) => element("th", { scope: "col" }, name)))),
        this.instruments)),
      section(texts.log, this.log), section(texts.stationWord, this.station));
  }

  #makeKinds() {
    this.wanted = undefined;
    this.kinds = kKinds.map((kind) => button(texts.kinds[kind], () => this.#want(kind), { "data-kind": kind }));
    this.means = element("p.muted");
    this.reason = textField(texts.reasonFor);
    this.kindForm = element("form.inline", { submit: (event) => {
      event.preventDefault();
      this.#setKind();
    } }, this.reason, element("button.primary", texts.apply));
    const choice = element("div.segments", { role: "group", "aria-label": texts.kind }, ...this.kinds);
    return element("div", choice, this.means, this.kindForm);
  }

  #want(kind) {
    this.wanted = kind;
    this.#drawKind();
  }

  async #setKind() {
    const kind = this.wanted ?? this.kind;
    const parts = kind === "production" ? { kind } : { kind, reason: this.reason.value.trim() };
    if (await this.#do("mode", parts)) {
      this.reason.value = "";
      this.wanted = undefined;
    }
  }

  #drawKind() {
    const shown = this.wanted ?? this.kind;
    for (const each of this.kinds) setAttribute(each, "aria-pressed", String(each.dataset.kind === shown));
    put(this.means, texts.kindMeans[shown] ?? "");
    show(this.reason, shown !== "production");
    show(this.kindForm, this.wanted !== undefined && (this.wanted !== this.kind || this.wanted !== "production"));
  }

  #makeOperator() {
    this.operator = textField(texts.operatorName);
    return element("form.inline", { submit: (event) => {
      event.preventDefault();
      this.#do("operator", { name: this.operator.value.trim() });
    } }, this.operator, element("button", texts.apply));
  }

  async #do(name, parts) {
    const result = await command(name, parts);
    this.said.className = result.done ? "accepted" : "refusal";
    put(this.said, result.done ? texts.applied : result.message);
    return result.done;
  }

  #makeSite(site) {
    const mark = element("span.mark");
    const word = element("span.site-word");
    const reason = element("span.muted");
    const why = textField(texts.reasonFor);
    const enable = button(texts.enable, () => this.#do("enable", { site, ...this.#who() }));
    const form = element("form.inline", { submit: async (event) => {
      event.preventDefault();
      if (await this.#do("disable", { site, reason: why.value.trim(), ...this.#who() })) why.value = "";
    } }, why, element("button", texts.disable));
    const root = element("div.site-row", { "data-site": site }, element("strong", site), mark, word, reason, enable, form);
    return { root, update: (state) => {
      setAttribute(root, "data-state", state.state);
      putSymbolOfState(mark, state.state);
      put(word, texts.states[state.state] ?? state.state);
      put(reason, state.reason);
      show(enable, state.state === "DISABLED");
      show(form, state.state !== "DISABLED");
    } };
  }

  // Whoever works here, where the station knows.
  #who() {
    return this.name ? { who: this.name } : {};
  }

  update(state) {
    const { station } = state;
    this.kind = station.kind;
    this.#drawKind();
    if (this.name !== station.operator) {
      if (document.activeElement !== this.operator) this.operator.value = station.operator ?? "";
      this.name = station.operator;
    }
    for (const site of state.order) {
      if (!this.#sites.has(site)) {
        const row = this.#makeSite(site);
        this.#sites.set(site, row);
        this.siteList.append(row.root);
      }
      this.#sites.get(site).update(state.sites[site] ?? {});
    }
    for (const [site, row] of this.#sites) {
      if (state.order.includes(site)) continue;
      row.root.remove();
      this.#sites.delete(site);
    }
    this.#drawInstruments(state.instruments ?? []);
    this.#drawStation(station);
  }

  #drawInstruments(instruments) {
    const drawn = JSON.stringify(instruments);
    if (drawn === this.#drawnInstruments) return;
    this.#drawnInstruments = drawn;
    this.instruments.replaceChildren(...instruments.map((each) => element("tr",
      element("td", element("strong", each.name), element("div.muted", [each.site, each.class].filter(Boolean).join(" · "))),
      element("td.address", each.address ?? ""),
      element("td", { "data-instrument": each.state }, texts.instrumentStates[each.state] ?? each.state ?? "",
        each.problem ? element("div.refusal", each.problem) : undefined),
      element("td", { "data-calibration": each.calibration }, texts.calibrations[each.calibration] ?? each.calibration ?? "",
        each.due ? element("div.muted", texts.due(each.due)) : undefined))));
    if (instruments.length > 0) return;
    this.instruments.append(element("tr", element("td.muted", { colspan: "4" }, texts.noInstruments)));
  }

  #drawStation(station) {
    const bundle = [station.bundle, station.bundleVersion].filter(Boolean).join(" ");
    const facts = [[texts.stationWord, station.name], [texts.bundle, bundle],
      [texts.flowWord, station.flow], [texts.part, station.part], [texts.process, station.process],
      [texts.versionWord, station.version]].filter(([, value]) => value);
    const drawn = JSON.stringify(facts);
    if (this.station.dataset.drawn === drawn) return;
    this.station.dataset.drawn = drawn;
    this.station.replaceChildren(...facts.flatMap(([name, value]) => [element("dt", name), element("dd", value)]));
  }

  /// The panel is opened.
  async opened() {
    put(this.said, "");
    try {
      const { lines } = await readLog(kLogLines);
      this.log.textContent = "";
      this.#logLoaded = true;
      this.logged(lines);
    } catch (problem) {
      this.log.textContent = texts.cannotRead(problem.message);
    }
  }

  logged(lines) {
    if (!this.#logLoaded || lines.length === 0) return;
    // Whoever scrolled back reads on undisturbed.
    const atEnd = this.log.scrollHeight - this.log.scrollTop - this.log.clientHeight < 30;
    this.log.append(...lines.map((line) => `${line}\n`));
    while (this.log.childNodes.length > kMostLogLines) this.log.firstChild.remove();
    if (atEnd) this.log.scrollTop = this.log.scrollHeight;
  }
}
