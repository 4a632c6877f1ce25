// Tells a scanner, which is a keyboard to the computer, from a person at the keyboard.
//
// Keys at most 30 ms apart, at least three, ended by Enter or Tab, are a scan. They never press a button, and what they
// typed into a field is taken out again. Only a field that says so, with `data-takes-scans`, gets a scan that the
// person has put the cursor there for.

const kLongestGap = 30;  // ms between two keys of a scan
const kShortest = 3;
const kSettled = 50;  // ms after which a key was a person's

const kPressed = "button, summary, a[href], input[type=checkbox], input[type=radio]";

function isField(target) {
  return target instanceof HTMLInputElement || target instanceof HTMLTextAreaElement;
}

/// Calls `onScan(text, field)` for each scan, `field` being the one it was meant for, if any; and `onDigit(digit)` for
/// a digit from 1 to 9 that a person pressed outside of fields.
export function listenToKeys({ onScan, onDigit }) {
  let keys = "";
  let last = -Infinity;
  let before;  // the field with what stood in it before the first of `keys`
  let settling;

  function later(work) {
    clearTimeout(settling);
    settling = setTimeout(work, kSettled);
  }

  function finishScan(event) {
    const text = keys;
    keys = "";
    swallow(event);
    const field = event.target;
    if (isField(field) && field.dataset.takesScans !== undefined && before?.field === field) {
      field.value = text;
      onScan(text, field);
      return;
    }
    if (before) {
      before.field.value = before.value;
      before.field.setSelectionRange(before.start, before.end);
    }
    // Half a word that a person has typed keeps its cursor.
    const active = document.activeElement;
    if (!isField(active) || active.value === "") active?.blur();
    onScan(text, undefined);
  }

  function onKeyDown(event) {
    if (event.isComposing || ["Shift", "CapsLock", "AltGraph"].includes(event.key)) return;
    const close = event.timeStamp - last <= kLongestGap;
    last = event.timeStamp;
    clearTimeout(settling);
    const ends = event.key === "Enter" || event.key === "Tab";
    if (ends && close && keys.length >= kShortest) {
      finishScan(event);
      return;
    }
    // What follows a scan, or a shorter burst, as fast belongs to it: a second end of line, say.
    if (ends && close && keys === "" && !event.repeat) {
      swallow(event);
      return;
    }
    const printable = event.key.length === 1 && !event.ctrlKey && !event.altKey && !event.metaKey;
    if (printable && !event.repeat) {
      if (!close || keys === "") {
        keys = "";
        before = isField(event.target)
          ? { field: event.target, value: event.target.value, start: event.target.selectionStart,
              end: event.target.selectionEnd }
          : undefined;
      }
      keys += event.key;
    } else {
      keys = "";
    }
    if (isField(event.target)) return;
    const pressed = event.target.closest?.(kPressed);
    if (pressed && (event.key === "Enter" || event.key === " ")) {
      swallow(event);
      if (!close && !event.repeat) later(() => pressed.isConnected && pressed.click());
    } else if (event.key === "Enter" || event.key === " ") {
      swallow(event);
    } else if (printable && !close && !event.repeat && event.key >= "1" && event.key <= "9") {
      later(() => onDigit(Number(event.key)));
    }
  }

  function swallow(event) {
    event.preventDefault();
    event.stopImmediatePropagation();
  }

  document.addEventListener("keydown", onKeyDown, { capture: true });
  document.addEventListener("keyup", (event) => {
    if (event.key === " " && event.target.closest?.(kPressed)) event.preventDefault();
  }, { capture: true });
}
