// The symbol of each state, drawn, so that they are the same with every font.

const kPaths = {
  empty: "M4 9V4h5M15 4h5v5M20 15v5h-5M9 20H4v-5",
  ready: "M8 5l11 7-11 7z",
  waiting: "M12 3a9 9 0 1 0 .01 0M12 7v5l4 3",
  running: "fill:M7 4l13 8-13 8z",
  asking: "M8 8.5a4 4 0 1 1 5.6 3.6c-1.1.6-1.6 1.2-1.6 2.9M12 19.2v.6",
  stopping: "fill:M6 6h12v12H6z",
  saving: "M12 4v11M7 10.5l5 5 5-5M4 20h16",
  pass: "M4 12.5l5.5 5.5L20 7",
  fail: "M5.5 5.5l13 13M18.5 5.5l-13 13",
  broken: "M12 4v11M12 19.2v.8",
  unsafe: "M12 3L2 21h20zM12 10v5M12 18v.3",
  off: "M12 3a9 9 0 1 0 .01 0M5.7 5.7l12.6 12.6",
  ended: "M5 12h14",
  scan: "M3 5v14M7 5v14M10 5v14M14 5v14M16.5 5v14M21 5v14",
  unknown: "M12 3a9 9 0 1 0 .01 0",
};

const kOfStates = {
  "EMPTY": "empty", "READY": "ready", "WAITING": "waiting", "RUNNING": "running", "ASKING": "asking",
  "STOPPING": "stopping", "SAVING": "saving", "PASS": "pass", "FAIL": "fail", "BROKEN OFF": "broken",
  "UNSAFE": "unsafe", "DISABLED": "off", "NOT AVAILABLE": "off", "ENDED": "ended",
};

const kNamespace = "http://www.w3.org/2000/svg";

export function symbol(name) {
  const drawing = document.createElementNS(kNamespace, "svg");
  drawing.setAttribute("viewBox", "0 0 24 24");
  drawing.setAttribute("aria-hidden", "true");
  drawing.classList.add("symbol");
  const path = document.createElementNS(kNamespace, "path");
  const shape = kPaths[name] ?? kPaths.unknown;
  drawing.dataset.symbol = kPaths[name] ? name : "unknown";
  if (shape.startsWith("fill:")) drawing.classList.add("filled");
  path.setAttribute("d", shape.replace("fill:", ""));
  drawing.append(path);
  return drawing;
}

export function symbolOfState(state) {
  return symbol(kOfStates[state] ?? "unknown");
}

/// Shows another symbol in place of the one that `holder` shows.
export function putSymbol(holder, name) {
  if (holder.dataset.shows === name) return;
  holder.dataset.shows = name;
  holder.replaceChildren(symbol(name));
}

export function putSymbolOfState(holder, state) {
  putSymbol(holder, kOfStates[state] ?? "unknown");
}

/// The symbol of PASS, FAIL, BROKEN_OFF and the other verdicts of runs and records.
export function symbolOfVerdict(verdict) {
  const names = { PASS: "pass", FAIL: "fail", BROKEN_OFF: "broken", "BROKEN OFF": "broken", INCOMPLETE: "broken",
    RUNNING: "running" };
  return symbol(names[verdict] ?? "ended");
}
