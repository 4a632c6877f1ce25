// The operator's page: what the station does, and what a person at it has to do.

import { command } from "./api.js";
import { Questions } from "./dialogs.js";
import { button, byId, element, put, setAttribute, show } from "./dom.js";
import { timeOfDay } from "./format.js";
import { History } from "./history.js";
import { listenToKeys } from "./scanner.js";
import { Station } from "./state.js";
import { putSymbol, symbol } from "./symbols.js";
import { Technician } from "./technician.js";
import { texts } from "./texts.js";
import { Tiles } from "./tiles.js";

const kScanShown = 5000;  // ms
const kMostScans = 50;
const kTick = 200;  // ms

// The words that stand in the page from the beginning.
put(byId("show-history"), texts.history);
put(byId("show-technician"), texts.technician);
put(byId("stop-now"), texts.stopNow);
put(byId("number-label"), texts.number);
put(byId("number-take"), texts.take);
put(byId("connection"), texts.connecting);
putSymbol(byId("strip-symbol"), "scan");

// The panel beside the tiles

const panels = {};
let openPanel;

function makePanel(name, title) {
  const content = element("div.panel-content");
  const root = element("div", { hidden: true },
    element("div.panel-head", element("h2", title), button(texts.close, () => openOnly(undefined))), content);
  byId("panel").append(root);
  panels[name] = { root, opened() {} };
  return content;
}

function openOnly(name) {
  const inPanel = byId("panel").contains(document.activeElement);
  openPanel = name;
  for (const [each, panel] of Object.entries(panels)) {
    show(panel.root, each === name);
    const opener = byId(`show-${each}`);
    if (opener) setAttribute(opener, "aria-expanded", String(each === name));
  }
  show(byId("panel"), name !== undefined);
  if (name) panels[name].opened();
  else if (inPanel) document.activeElement?.blur();
  showSide();
}

function showSide() {
  show(byId("side"), !byId("panel").hidden || !byId("questions").hidden);
  byId("middle").classList.toggle("with-panel", !byId("panel").hidden);
}

const history = new History(makePanel("history", texts.history));
const technician = new Technician(makePanel("technician", texts.technician));
panels.history.opened = () => history.reset();
panels.technician.opened = () => technician.opened();
const noticeList = element("ul.notice-list");
const scanList = element("ul.notice-list");
makePanel("notices", texts.notices).append(noticeList, element("h3", texts.scans), scanList);
scanList.append(element("li.muted", texts.noScans));

const tiles = new Tiles(byId("tiles"), (run) => {
  openOnly("history");
  history.open(run);
});
const questions = new Questions(byId("questions"));

for (const name of ["history", "technician"]) {
  byId(`show-${name}`).addEventListener("click", () => openOnly(openPanel === name ? undefined : name));
}
byId("operator").addEventListener("click", () => openOnly("technician"));
document.addEventListener("keydown", (event) => {
  if (event.key !== "Escape") return;
  if (!byId("confirm-stop").hidden) closeConfirmation();
  else if (openPanel) openOnly(undefined);
});

// Stop now

function closeConfirmation() {
  document.activeElement?.blur();
  show(byId("confirm-stop"), false);
}

setAttribute(byId("confirm-stop"), "aria-label", texts.stopNow);
const stopProblem = element("span.refusal", { role: "alert", hidden: true });
byId("confirm-stop").append(
  element("p", { id: "confirm-stop-text" }, texts.stopNowAsks),
  element("div.buttons", Object.assign(button(texts.stopNowYes, async () => {
    const result = await command("stopNow");
    if (result.done) closeConfirmation();
    else put(stopProblem, result.message);
  }), { className: "danger" }), button(texts.cancel, closeConfirmation), stopProblem));
byId("stop-now").addEventListener("click", () => {
  put(stopProblem, "");
  show(byId("confirm-stop"), true);
});

// Scans

let waitsForDevice;  // the site whose label was scanned
let scanShown;  // the timer of what became of the last scan

function logScan(text, accepted) {
  if (scanList.firstChild?.classList.contains("muted")) scanList.replaceChildren();
  const at = element("time", timeOfDay(Date.now() * 1000));
  scanList.prepend(element(accepted ? "li.accepted" : "li.refusal", at, " ", text));
  while (scanList.childElementCount > kMostScans) scanList.lastChild.remove();
}

function showScan(text, accepted) {
  const strip = byId("strip");
  clearTimeout(scanShown);
  strip.className = accepted ? "accepted" : "refused";
  putSymbol(byId("strip-symbol"), accepted ? "pass" : "fail");
  setAttribute(byId("strip-text"), "role", accepted ? "status" : "alert");
  put(byId("strip-text"), text);
  logScan(text, accepted);
  scanShown = setTimeout(() => {
    scanShown = undefined;
    strip.className = "";
    putSymbol(byId("strip-symbol"), "scan");
    showInstruction();
  }, kScanShown);
}

function showInstruction() {
  if (scanShown !== undefined || !station?.state) return;
  const { state: condition, scan: mode } = station.state.station ?? {};
  if (condition !== "ready") return put(byId("strip-text"), texts.scanNothing);
  const way = mode === "site" ? texts.scanSite : texts.scanNext;
  put(byId("strip-text"), waitsForDevice ? texts.scanDevice(waitsForDevice) : way);
}

// One after the other: a label comes before its device.
let scans = Promise.resolve();

function scan(text) {
  scans = scans.then(() => takeScan(text));
}

async function takeScan(text) {
  // What waits for a station that comes back may meet another device in the fixture.
  if (!station.fresh) {
    showScan(texts.scanRefused(text, texts.scanWithoutStation), false);
    return;
  }
  const result = await command("scan", { text });
  waitsForDevice = result.done && result.expects === "device" ? result.site : undefined;
  if (!result.done) showScan(texts.scanRefused(text, result.message), false);
  else if (waitsForDevice) showScan(texts.scanDevice(waitsForDevice), true);
  else showScan(texts.scanTaken(text, result.site), true);
}

listenToKeys({
  onScan(text, field) {
    if (field) field.takeScan();
    else scan(text);
  },
  onDigit: (digit) => questions.digit(digit),
});

byId("strip").addEventListener("submit", (event) => {
  event.preventDefault();
  const field = byId("number");
  const text = field.value.trim();
  if (text === "") return;
  field.value = "";
  document.activeElement?.blur();
  scan(text);
});

// The station

function updateHead(state) {
  const { station: about, today } = state;
  document.title = texts.title(about.name ?? "");
  put(byId("station-name"), about.name);
  put(byId("flow"), about.flow ? texts.flow(about.flow) : "");
  const counts = (about.kind ?? "production") === "production";
  document.body.classList.toggle("does-not-count", !counts);
  const kind = texts.kinds[about.kind] ?? about.kind;
  const banner = counts ? kind : [texts.kindBanner(kind), about.reason].filter(Boolean).join(" · ");
  put(byId("kind"), banner);
  byId("operator").textContent = about.operator ? texts.operator(about.operator) : texts.noOperator;
  const number = today ? today.passed + today.failed + today.brokenOff : 0;
  const parts = today ? [texts.today(number), texts.todayPassed(today.passed)] : [];
  if (number > 0 && Number.isFinite(today.yield)) parts.push(texts.todayYield((100 * today.yield).toFixed(1)));
  put(byId("today"), parts.join(" · "));
  updateForwarding(state.forwarding);
}

/// What goes to the factory's server. It never keeps anybody from testing.
function updateForwarding(forwarding) {
  const shown = [];
  if (forwarding?.trouble) shown.push(texts.forwardTrouble(timeOfDay(forwarding.since), forwarding.trouble));
  if (forwarding?.waiting) shown.push(texts.forwardWaiting(forwarding.waiting, timeOfDay(forwarding.oldestAt)));
  if (forwarding?.parked) shown.push(texts.forwardParked(forwarding.parked));
  const words = byId("forwarding");
  put(words, shown.length > 0 || !forwarding ? shown.join(" · ") : texts.forwarded);
  words.title = forwarding ? [forwarding.server, ...shown].join("\n") : "";
  words.dataset.trouble = String(Boolean(forwarding?.trouble || forwarding?.parked));
}

const again = button(texts.loadAgain, async () => {
  const result = await command("reload");
  if (!result.done) put(againProblem, result.message);
});
const againProblem = element("span");
const problemWords = element("div.problem-words");
byId("problem").append(problemWords, again, againProblem);

function updateProblem(state) {
  const { state: condition, problem } = state.station;
  const words = { loading: texts.loading, stopping: texts.stopping, broken: problem ? "" : texts.broken }[condition] ?? "";
  const shown = [words, problem?.text, problem?.advice].filter(Boolean);
  if (problemWords.dataset.shown !== shown.join("\n")) {
    problemWords.dataset.shown = shown.join("\n");
    problemWords.replaceChildren(...shown.map((text, index) => element(index === 0 ? "strong" : "span", text)));
    put(againProblem, "");
  }
  byId("problem").className = problem || condition === "broken" ? "is-problem" : "is-note";
  show(again, condition === "broken");
  show(byId("problem"), shown.length > 0);
}

let drawnNotices = "[]";

function updateNotices(notices) {
  const drawn = JSON.stringify(notices);
  if (drawn === drawnNotices) return;
  drawnNotices = drawn;
  const line = (notice) => [
    symbol(notice.kind === "problem" ? "broken" : "unsafe"),
    element("strong", texts.notice(notice.kind)), element("time", timeOfDay(notice.at)), element("span", notice.text),
    notice.advice ? element("span.advice", notice.advice) : undefined];
  noticeList.replaceChildren(...(notices.length > 0
    ? notices.map((notice) => element("li", { "data-notice": notice.kind }, ...line(notice)))
    : [element("li.muted", texts.noNotices)]));
  const footer = byId("notices");
  show(footer, notices.length > 0);
  if (notices.length === 0) return footer.replaceChildren();
  setAttribute(footer, "data-notice", notices[0].kind);
  footer.replaceChildren(element("div.newest", ...line(notices[0])),
    button(texts.allNotices(notices.length), () => openOnly(openPanel === "notices" ? undefined : "notices")));
}
noticeList.append(element("li.muted", texts.noNotices));

// What changed is told to those who do not see it.
const spokenStates = new Map();

function speak(state) {
  for (const site of state.order) {
    const { state: now, verdict, question, reason } = state.sites[site] ?? {};
    const before = spokenStates.get(site);
    spokenStates.set(site, now);
    if (before === undefined || before === now) continue;
    if (!["PASS", "FAIL", "BROKEN OFF", "ASKING", "UNSAFE", "DISABLED"].includes(now)) continue;
    const more = now === "ASKING" ? question?.text : verdict?.firstFailure ?? verdict?.brokenOff ?? reason;
    byId("spoken").append(element("p", [`${site}: ${texts.states[now] ?? now}`, more].filter(Boolean).join(". ")));
    while (byId("spoken").childElementCount > 10) byId("spoken").firstChild.remove();
  }
}

// The seconds go on without being spoken each time.
const oldWords = element("span");
const oldSince = element("span", { "aria-hidden": "true" });
byId("old").append(oldWords, " ", oldSince);

function updateFreshness() {
  const { fresh, heardAt, state } = station;
  document.body.classList.toggle("old", !fresh && state !== undefined);
  document.body.classList.toggle("connecting", state === undefined);
  const missed = !fresh && (state !== undefined || performance.now() > 3000);
  put(byId("connection"), fresh ? texts.connected : missed ? texts.disconnected : texts.connecting);
  setAttribute(byId("connection"), "data-fresh", String(fresh));
  put(oldWords, state ? texts.old(timeOfDay(heardAt * 1000)) : texts.neverConnected);
  oldSince.textContent = missed && state ? texts.oldSince(Math.round((Date.now() - heardAt) / 1000)) : "";
  show(byId("old"), missed);
}

function update() {
  updateFreshness();
  const { state } = station;
  if (!state?.station) return;
  const order = state.order ?? Object.keys(state.sites ?? {});
  const sites = state.sites ?? {};
  updateHead(state);
  updateProblem(state);
  updateNotices(state.notices ?? []);
  tiles.update(order, sites);
  questions.update(order, sites, station.now(), (site) => tiles.holderOf(site));
  showSide();
  showInstruction();
  history.update(state.recent);
  technician.update({ ...state, order, sites });
  speak({ order, sites });
  tiles.tick(station.now());
}

const station = new Station({ changed: update, logged: (lines) => technician.logged(lines) });
setInterval(() => {
  updateFreshness();
  const { state } = station;
  if (!state?.station || !station.fresh) return;
  tiles.tick(station.now());
  questions.update(state.order ?? [], state.sites ?? {}, station.now(), (site) => tiles.holderOf(site));
}, kTick);
