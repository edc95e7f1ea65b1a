/** The element with this id, which the page must have. */
export function byId(id) {
  const element = document.getElementById(id);
  if (!element) throw new Error(`the page has no element "${id}"`);
  return element;
}

/** Texts are only replaced when they differ: a screen reader repeats what is written again. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

/** An element with attributes and children; a child is an element or a text. */
export function make(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== undefined && value !== false) element.setAttribute(name, String(value));
  }
  element.append(...children);
  return element;
}

/** The value of a colour or length that the style sheet defines for the present theme. */
export function styleValue(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

/**
 * Makes a canvas as large as its box in device pixels.
 *
 * @return how many device pixels a CSS pixel has, and whether the size changed, which clears it.
 */
export function fitCanvas(canvas, width, height) {
  const ratio = window.devicePixelRatio || 1;
  const across = Math.max(1, Math.round(width * ratio));
  const down = Math.max(1, Math.round(height * ratio));
  const changed = canvas.width !== across || canvas.height !== down;
  if (changed) {
    canvas.width = across;
    canvas.height = down;
  }
  return { ratio, changed };
}
