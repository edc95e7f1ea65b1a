import { byId } from './dom.js';

/** Single keys, which work where nothing is typed. They can be switched off. */
export class Shortcuts {
  /** @param keys  what each key does: {' ': action, l: action} */
  constructor(keys) {
    this.keys = keys;
    this.dialog = byId('help');
    this.enabled = byId('shortcuts-enabled');
    byId('help-open').addEventListener('click', () => this.dialog.showModal());
    document.addEventListener('keydown', (event) => this.press(event));
  }

  press(event) {
    const blocked = event.ctrlKey || event.metaKey || event.altKey || event.repeat;
    if (blocked || !this.enabled.checked || this.dialog.open) return;
    if (typesInto(event.target) || (event.key === ' ' && pressedBySpace(event.target))) return;
    const action = event.key === '?' ? () => this.dialog.showModal() : this.action(event.key);
    if (!action) return;
    event.preventDefault();
    action();
  }

  action(key) {
    return this.keys[key.toLowerCase()];
  }
}

function typesInto(element) {
  const quiet = ['range', 'checkbox', 'radio', 'button', 'file'];
  if (element.tagName === 'INPUT') return !quiet.includes(element.type);
  return ['SELECT', 'TEXTAREA'].includes(element.tagName);
}

function pressedBySpace(element) {
  return element.closest('button, summary, a, input, label') !== null;
}
