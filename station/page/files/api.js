// Asking the station, and telling it what to do.

import { texts } from "./texts.js";

const kPatience = 10000;  // ms until a command that gets no answer is given up
const kAnswerTime = 6000;  // ms for one attempt

let token = tokenOf(document);

function tokenOf(page) {
  return page.querySelector('meta[name="quillon-token"]')?.content ?? "";
}

/// Takes the token of the host that runs now. True when it is another one than before, so another host.
export async function refreshToken() {
  const answer = await fetch("/", { cache: "no-store", signal: AbortSignal.timeout(kAnswerTime) });
  const page = new DOMParser().parseFromString(await answer.text(), "text/html");
  const fresh = tokenOf(page);
  if (!fresh) location.reload();  // The station wants the person to log in first.
  const changed = fresh !== token;
  token = fresh;
  return changed;
}

/// Reads from the station. Throws where it cannot.
export async function read(path) {
  const answer = await fetch(path, { cache: "no-store", signal: AbortSignal.timeout(kAnswerTime) });
  const body = await answer.json();
  if (!answer.ok) throw new Error(body.message ?? String(answer.status));
  return body;
}

// crypto.randomUUID exists only where the page came over a loopback address or TLS.
function uniqueId() {
  const bytes = crypto.getRandomValues(new Uint8Array(16));
  return Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join("");
}

const wait = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

/// Gives a command, again with the same id as long as the network fails: the station does it once. Never throws:
/// {done, message, ...} as the station answered.
export async function command(name, parts = {}) {
  const body = JSON.stringify({ id: uniqueId(), command: name, ...parts });
  const until = performance.now() + kPatience;
  for (let pause = 200; ; pause = Math.min(2 * pause, 2000)) {
    try {
      const answer = await fetch("/api/1/commands", {
        method: "POST",
        headers: { "Content-Type": "application/json", "X-Quillon-Token": token },
        body,
        signal: AbortSignal.timeout(kAnswerTime),
      });
      if (answer.status !== 429 && answer.status !== 503) return await understood(answer);
    } catch {
      // The network, or the host, is away: below.
    }
    if (performance.now() + pause > until) return { done: false, message: texts.noAnswer };
    await wait(pause);
  }
}

async function understood(answer) {
  if (answer.status === 200 || answer.status === 409) {
    return { done: answer.status === 200, ...(await answer.json()) };  // Half an answer is none.
  }
  const body = await answer.json().catch(() => ({}));
  // A host that was started anew knows nothing of this command's id, and perhaps did it before it ended: a person decides.
  if (answer.status === 403 && (await refreshToken())) return { done: false, message: texts.restarted };
  return { done: false, message: body.message ?? texts.refused(answer.status) };
}
