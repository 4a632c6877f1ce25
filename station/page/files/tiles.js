// A tile for each site: all that a person at the site has to know, and what to do next.

import { command } from "./api.js";
import { button, element, put, putImage, setAttribute, show } from "./dom.js";
import { duration, limits, roughDuration, timeOfDay, withUnit } from "./format.js";
import { putSymbol, putSymbolOfState, symbol } from "./symbols.js";
import { texts } from "./texts.js";

const kTakesDevice = ["EMPTY", "PASS", "FAIL", "BROKEN OFF"];
const kEnded = ["PASS", "FAIL", "BROKEN OFF"];
const kCanStop = ["RUNNING", "ASKING"];
const kSureFor = 4000;  // ms in which a second press stops
const kProblemShown = 8000;  // ms
const kMostCardTiles = 6;  // so many tiles have room for a question with its picture

const kWord = { PASS: "pass", FAIL: "fail", NA: "ended" };

class Tile {
  constructor(site, showRun) {
    this.site = site;
    const span = (name) => element(`span.${name}`);
    const line = (name, ...parts) => element(`div.${name}`, { hidden: true }, ...parts);
    this.mark = span("mark");
    this.word = span("word");
    this.serial = span("serial");
    this.kind = element("span.chip.chip-kind", { hidden: true });
    this.attempt = element("span.chip", { hidden: true });
    this.device = span("device-time");
    this.test = span("test-name");
    this.testTime = span("test-time");
    this.testLine = line("test-line", this.test, this.testTime);
    this.fill = element("div.fill");
    this.bar = line("bar", this.fill);
    this.lastMark = span("mark");
    this.lastName = span("last-name");
    this.lastValue = span("last-value");
    this.lastLimits = span("last-limits");
    this.last = line("last", this.lastMark, this.lastName, this.lastValue, this.lastLimits);
    this.failure = line("failure");
    this.reason = line("reason");
    this.hook = line("reason");
    this.waits = line("waits");
    this.progressText = span("progress-text");
    this.progress = element("progress", { max: "1" });
    this.progressLine = line("progress", this.progress, this.progressText);
    this.shownText = element("p.shown-text");
    this.shownImage = element("img.shown-image", { alt: texts.imageAlt(site), hidden: true });
    this.shown = line("shown", this.shownText, this.shownImage);
    this.question = element("div.question");
    this.todo = span("todo");
    this.problem = element("div.tile-problem", { role: "alert", hidden: true });
    this.#makeButtons(showRun);
    this.form = element("div.tile-form", { hidden: true });
    this.root = element("section.tile", { "aria-label": site, "data-site": site },
      element("div.tile-in",
        element("div.tile-head", this.mark, this.word, element("h2.site", site)),
        element("div.tile-body",
          element("div.serial-line", this.serial, this.kind, this.attempt, this.device),
          this.testLine, this.bar, this.last, this.waits, this.failure, this.reason, this.hook, this.progressLine,
          this.shown, this.question),
        this.problem,
        element("div.tile-foot", this.todo, this.buttons),
        this.form));
  }

  #makeButtons(showRun) {
    const made = (name, action) => Object.assign(button(texts[name], action), { hidden: true, className: `do-${name}` });
    this.doNumber = made("enterNumber", () => this.#askNumber());
    this.doStart = made("start", () => this.#do("start"));
    this.doStart.classList.add("primary");
    this.doClear = made("clear", () => this.#do("clear"));
    this.doStop = made("stop", () => this.#stop());
    this.doDetails = made("details", () => showRun(this.verdictRun));
    this.doAcknowledge = made("acknowledge", () => this.#askName());
    this.doAcknowledge.classList.add("primary");
    this.buttons = element("span.tile-buttons", this.doDetails, this.doNumber, this.doClear, this.doStart, this.doStop,
      this.doAcknowledge);
  }

  async #do(name, parts = {}) {
    put(this.problem, "");
    const result = await command(name, { site: this.site, ...parts });
    if (!result.done) this.#complain(result.message);
    return result.done;
  }

  #complain(message) {
    put(this.problem, message);
    clearTimeout(this.complaint);
    this.complaint = setTimeout(() => put(this.problem, ""), kProblemShown);
  }

  // The first press asks, the second stops: a device is not lost by a sleeve on the screen.
  #stop() {
    clearTimeout(this.sure);
    if (this.doStop.classList.toggle("danger")) {
      put(this.doStop, texts.reallyStop);
      this.sure = setTimeout(() => this.#resetStop(), kSureFor);
      return;
    }
    this.#resetStop();
    this.#do("stop");
  }

  #resetStop() {
    clearTimeout(this.sure);
    this.doStop.classList.remove("danger");
    put(this.doStop, texts.stop);
  }

  #askNumber() {
    this.#ask("", texts.numberFor(this.site), texts.take, (serial) => this.#do("serial", { serial }));
  }

  #askName() {
    this.#ask(texts.acknowledgeAsks, texts.yourName, texts.acknowledgeYes, (who) => this.#do("acknowledge", { who }));
  }

  // Asks for a text in the tile. Only whoever pressed the button gets here, so the cursor may go along.
  #ask(explanation, label, action, take) {
    const field = element("input", { type: "text", maxlength: "200", spellcheck: "false", autocomplete: "off",
      "aria-label": label, placeholder: label });
    const close = () => {
      document.activeElement?.blur();
      show(this.form, false);
      this.form.replaceChildren();
    };
    this.form.replaceChildren(element("form", {
      submit: (event) => {
        event.preventDefault();
        if (field.value.trim() === "") return;
        const text = field.value;
        close();
        take(text);
      },
      keydown: (event) => event.key === "Escape" && close(),
    }, explanation ? element("p", explanation) : undefined, field,
      element("span.tile-buttons", button(texts.cancel, close), element("button.primary", action))));
    show(this.form, true);
    field.focus();
  }

  update(site) {
    this.shownSite = site;
    setAttribute(this.root, "data-state", site.state);
    const word = texts.states[site.state] ?? site.state;
    put(this.word, word);
    // What has to fit in a line: the word, the symbol, and the smaller name of the site.
    this.root.style.setProperty("--state-letters", word.length);
    this.root.style.setProperty("--letters", word.length + 2.2 + 0.7 * this.site.length);
    putSymbolOfState(this.mark, site.state);
    const verdict = kEnded.includes(site.state) ? site.verdict : undefined;
    this.verdictRun = verdict?.run;
    put(this.serial, site.serial ?? verdict?.serial);
    put(this.kind, site.kind && site.kind !== "production" ? texts.kinds[site.kind] ?? site.kind : "");
    put(this.attempt, site.attempt > 1 ? texts.attempt(site.attempt) : "");
    this.#updateTest(site);
    const failure = verdict?.firstFailure ?? site.firstFailure;
    put(this.failure, failure ? texts.firstFailure(failure) : "");
    put(this.reason, verdict?.brokenOff ?? site.reason);
    put(this.hook, verdict?.hookProblem ? texts.hookProblem(verdict.hookProblem) : "");
    put(this.waits, site.waitsFor ? texts.waitsFor(site.waitsFor) : "");
    put(this.todo, site.todo);
    const asksHere = site.question !== undefined && this.question.childElementCount > 0;
    put(this.shownText, site.shown?.text);
    putImage(this.shownImage, site.shown?.image);
    show(this.shown, site.shown !== undefined && !asksHere);
    show(this.progressLine, site.progress !== undefined);
    if (site.progress) {
      this.progress.value = site.progress.fraction ?? 0;
      put(this.progressText, site.progress.text);
    }
    this.#updateButtons(site);
  }

  #updateTest(site) {
    show(this.testLine, site.test !== undefined);
    show(this.bar, site.test !== undefined);
    if (site.test) put(this.test, texts.testOf(site.test.index, site.test.count, site.test.name));
    show(this.last, site.last !== undefined && !kEnded.includes(site.state));
    if (site.last) {
      setAttribute(this.last, "data-verdict", site.last.verdict ?? "NA");
      putSymbol(this.lastMark, kWord[site.last.verdict] ?? "ended");
      setAttribute(this.lastMark, "title", texts.verdicts[site.last.verdict] ?? "");
      put(this.lastName, site.last.name);
      put(this.lastValue, withUnit(site.last.value, site.last.unit));
      put(this.lastLimits, limits(site.last));
    }
  }

  #updateButtons(site) {
    show(this.doNumber, kTakesDevice.includes(site.state));
    show(this.doStart, site.state === "READY");
    show(this.doClear, site.state === "READY");
    show(this.doDetails, this.verdictRun !== undefined);
    show(this.doAcknowledge, site.state === "UNSAFE");
    const canStop = kCanStop.includes(site.state);
    if (!canStop && !this.doStop.hidden) this.#resetStop();
    show(this.doStop, canStop);
  }

  /// Moves the times on.
  tick(now) {
    const site = this.shownSite;
    if (!site) return;
    const elapsed = (since) => Math.max(0, now - since) / 1e6;
    const beside = (since, usual) => {
      if (since === undefined) return "";
      const seconds = elapsed(since);
      if (!usual) return roughDuration(seconds);
      return (seconds > 1.5 * usual + 1 ? texts.longer : texts.usual)(roughDuration(seconds), roughDuration(usual));
    };
    if (kEnded.includes(site.state)) {
      const verdict = site.verdict;
      put(this.device, verdict ? texts.tookAt(duration(verdict.seconds), timeOfDay(verdict.endedAt)) : "");
    } else {
      put(this.device, beside(site.startedAt, site.usualSeconds));
    }
    if (!site.test) return;
    const { startedAt, usualSeconds, limitSeconds, index, count } = site.test;
    const time = beside(startedAt, usualSeconds);
    put(this.testTime, limitSeconds ? `${time}, ${texts.limit(duration(limitSeconds))}` : time);
    const part = startedAt === undefined ? 0 : Math.min(0.95, elapsed(startedAt) / (usualSeconds || 10));
    this.fill.style.transform = `scaleX(${count ? Math.min(1, (index - 1 + part) / count) : 0})`;
  }
}

export class Tiles {
  #tiles = new Map();
  #root;
  #showRun;
  #order = "";

  constructor(root, showRun) {
    this.#root = root;
    this.#showRun = showRun;
    new ResizeObserver(() => this.#layOut()).observe(root);
  }

  update(order, sites) {
    if (order.join("\n") !== this.#order) {
      this.#order = order.join("\n");
      for (const [site, tile] of this.#tiles) {
        if (order.includes(site)) continue;
        tile.root.remove();
        this.#tiles.delete(site);
      }
      for (const site of order) {
        if (!this.#tiles.has(site)) this.#tiles.set(site, new Tile(site, this.#showRun));
      }
      this.#root.replaceChildren(...order.map((site) => this.#tiles.get(site).root));
      this.#layOut();
    }
    for (const site of order) this.#tiles.get(site).update(sites[site] ?? {});
  }

  tick(now) {
    for (const tile of this.#tiles.values()) tile.tick(now);
  }

  /// The place for a question in the tile of a site; absent where it has no room.
  holderOf(site) {
    return this.#tiles.size <= kMostCardTiles ? this.#tiles.get(site)?.question : undefined;
  }

  // As many columns as make the tiles largest, best half as high again as wide.
  #layOut() {
    const number = this.#tiles.size;
    if (number === 0) return;
    const { clientWidth: width, clientHeight: height } = this.#root;
    let best = 1;
    let largest = -1;
    for (let columns = 1; columns <= number; ++columns) {
      const rows = Math.ceil(number / columns);
      const size = Math.min(width / columns / 1.7, height / rows);
      const value = size * (number / (columns * rows)) ** 1.5;  // An empty corner is lost room.
      if (value > largest) [best, largest] = [columns, value];
    }
    this.#root.style.gridTemplateColumns = `repeat(${best}, minmax(0, 1fr))`;
    this.#root.style.gridTemplateRows = `repeat(${Math.ceil(number / best)}, minmax(0, 1fr))`;
  }
}
