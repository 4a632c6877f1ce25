// Making and changing elements. Whatever comes from outside gets into the page as text, never as markup.

/// Makes an element: `element("button.primary", {type: "button"}, "Start")`. Values that are functions become listeners.
export function element(spec, ...parts) {
  const [tag, ...classes] = spec.split(".");
  const made = document.createElement(tag);
  made.classList.add(...classes);
  for (const part of parts) {
    if (part === undefined || part === null) continue;
    if (typeof part === "string" || part instanceof Node) {
      made.append(part);
    } else {
      for (const [name, value] of Object.entries(part)) {
        if (typeof value === "function") made.addEventListener(name, value);
        else if (value === true) made.setAttribute(name, "");
        else if (value !== false && value !== undefined) made.setAttribute(name, value);
      }
    }
  }
  return made;
}

export function button(text, onPress, ...parts) {
  return element("button", { type: "button", click: onPress }, ...parts, text);
}

/// Shows a text, or hides the element where there is none.
export function put(target, text) {
  const shown = text === undefined || text === null ? "" : String(text);
  if (target.textContent !== shown) target.textContent = shown;
  show(target, shown !== "");
}

export function show(target, visible) {
  if (target.hidden === visible) target.hidden = !visible;
}

export function setAttribute(target, name, value) {
  if (target.getAttribute(name) !== value) target.setAttribute(name, value);
}

/// Shows an image of the station, or hides the element. Nothing is ever loaded from elsewhere.
export function putImage(target, address) {
  const valid = typeof address === "string" && address.startsWith("/api/1/images/");
  if (valid) setAttribute(target, "src", address);
  else target.removeAttribute("src");
  show(target, valid);
}

export function byId(id) {
  return document.getElementById(id);
}
