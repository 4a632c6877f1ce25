// What the station does: a copy of its state, kept up to date from its events, and whether it still is.

import { read, refreshToken } from "./api.js";

const kOldAfter = 3000;  // ms without a word from the station
const kShortestPause = 200;
const kLongestPause = 2000;

/// Applies a JSON merge patch (RFC 7396) and returns the result.
export function mergePatch(target, patch) {
  if (patch === null || typeof patch !== "object" || Array.isArray(patch)) return patch;
  const merged = target !== null && typeof target === "object" && !Array.isArray(target) ? target : {};
  for (const [name, value] of Object.entries(patch)) {
    if (name === "__proto__") continue;
    if (value === null) delete merged[name];
    else merged[name] = mergePatch(merged[name], value);
  }
  return merged;
}

/// Calls `onEvent(name, data, id)` for each event of a stream until it ends.
export async function readEvents(body, onEvent) {
  const reader = body.pipeThrough(new TextDecoderStream()).getReader();
  let rest = "";
  let event = { name: "message", data: [], id: undefined };
  for (;;) {
    const { value, done } = await reader.read();
    if (done) return;
    const lines = (rest + value).split(/\r\n|\n|\r(?!$)/);
    rest = lines.pop();
    for (const line of lines) {
      if (line === "") {
        if (event.data.length > 0) onEvent(event.name, event.data.join("\n"), event.id);
        event = { name: "message", data: [], id: undefined };
        continue;
      }
      const colon = line.indexOf(":");
      const field = colon < 0 ? line : line.slice(0, colon);
      const text = colon < 0 ? "" : line.slice(colon + 1).replace(/^ /, "");
      if (field === "event") event.name = text;
      else if (field === "data") event.data.push(text);
      else if (field === "id") event.id = text;
    }
  }
}

export class Station {
  /// The whole state, as the station last told it; absent at first.
  state = undefined;
  /// Whether the station was heard of in the last three seconds.
  fresh = false;
  /// When it was last heard of (the time of this computer, ms since 1970), once it was.
  heardAt = undefined;

  #listeners;
  #heard = -Infinity;
  #clock = undefined;  // the station's time, and when it told it
  #id = undefined;
  #epoch = undefined;
  #version = undefined;
  #connection = undefined;
  #tried = 0;

  /// `changed(station)`: the state or its freshness did; `logged(lines)`: new lines of the log.
  constructor(listeners) {
    this.#listeners = listeners;
    setInterval(() => this.#watch(), 200);
    this.#stayConnected();
  }

  /// The station's time now, microseconds since 1970. It stands still while the state is old.
  now() {
    if (!this.#clock) return Date.now() * 1000;
    const until = this.fresh ? performance.now() : Math.min(this.#heard, performance.now());
    return this.#clock.time + Math.max(0, until - this.#clock.at) * 1000;
  }

  async #stayConnected() {
    for (let pause = kShortestPause; ; pause = Math.min(2 * pause, kLongestPause)) {
      const before = this.#heard;
      this.#connection = new AbortController();
      this.#tried = performance.now();
      try {
        const headers = this.#id ? { "Last-Event-ID": this.#id } : {};
        const answer = await fetch("/api/1/events", { headers, cache: "no-store", signal: this.#connection.signal });
        if (answer.status === 401) location.reload();  // The station wants the person to log in.
        if (answer.ok) await readEvents(answer.body, (name, data, id) => this.#take(name, JSON.parse(data), id));
        else this.#id = undefined;
      } catch {
        // The host is away, or fell silent: the page says so, and tries again.
      }
      this.#connection.abort();
      if (this.#heard > before) pause = kShortestPause;
      await new Promise((resolve) => setTimeout(resolve, pause));
    }
  }

  #take(name, data, id) {
    const wasFresh = this.fresh;
    this.#heard = performance.now();
    this.heardAt = Date.now();
    if (name === "log") {
      this.#listeners.logged(data.lines ?? []);
    } else if (name === "heartbeat") {
      this.#clock = { time: data.now, at: this.#heard };
    } else if (name === "snapshot") {
      this.state = data;
      this.#clock = { time: data.now, at: this.#heard };
      this.#id = id;
      this.#notice(data);
    } else if (name === "delta" && this.state) {
      this.state = mergePatch(this.state, data);
      this.#id = id;
    } else {
      return;
    }
    this.fresh = this.state !== undefined;
    if (name === "snapshot" || name === "delta" || !wasFresh) this.#tell();
  }

  #tell() {
    try {
      this.#listeners.changed(this);
    } catch (problem) {
      console.error(problem);  // A mistake of the page is none of the connection.
    }
  }

  // Another host than before has another token; another version of it, another page.
  #notice(state) {
    const version = state.station?.version;
    if (this.#version !== undefined && version !== this.#version) location.reload();
    this.#version = version;
    if (this.#epoch !== undefined && state.epoch !== this.#epoch) refreshToken().catch(() => {});
    this.#epoch = state.epoch;
  }

  #watch() {
    const now = performance.now();
    if (now - Math.max(this.#heard, this.#tried) >= kOldAfter) this.#connection?.abort();  // It may hang for ever.
    if (!this.fresh || now - this.#heard < kOldAfter) return;
    this.fresh = false;
    this.#tell();
  }
}

export const readRuns = (most, serial) =>
  read(`/api/1/runs?most=${most}${serial ? `&serial=${encodeURIComponent(serial)}` : ""}`);
export const readRun = (id) => read(`/api/1/runs/${encodeURIComponent(id)}`);
export const readLog = (lines) => read(`/api/1/log?lines=${lines}`);
