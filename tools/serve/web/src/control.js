import { make, setText } from './dom.js';
import { Newest } from './newest.js';

// States of the daemon that were on their way before the answer would show the old value again.
const kSettle = 700;

/**
 * One setting: a label, what the user changes it with, and the daemon's objection beside it.
 *
 * While the user edits it, while it is on its way and while it is refused, what the daemon says
 * about the setting is kept for later and not shown.
 */
export class Control {
  constructor({ member, label }, patch) {
    this.member = member;
    this.held = false;
    this.settled = 0;
    this.error = make('p', { class: 'error', id: `error-${member}`, role: 'alert' });
    this.label = make('label', { for: member }, label);
    this.row = make('div', { class: 'setting', 'data-testid': `setting-${member}` });
    this.newest = new Newest({
      send: (value) => patch({ [member]: value }),
      onDone: (settings) => this.accept(settings[member]),
      onFailed: (failure) => this.refuse(failure),
    });
  }

  /** What the daemon says that is in force. */
  show(value) {
    this.inForce = value;
    if (this.held || performance.now() < this.settled) return;
    this.write(value);
  }

  hold() {
    this.held = true;
  }

  /** Ends an edit that changed nothing. */
  release() {
    if (!this.newest.busy && this.error.textContent === '') this.held = false;
  }

  push(value) {
    this.hold();
    this.newest.push(value);
  }

  /** Goes back to what is in force. */
  revert() {
    this.newest.cancel();
    this.fail('');
    this.held = false;
    this.write(this.inForce);
  }

  accept(value) {
    this.fail('');
    this.held = false;
    this.inForce = value;
    this.settled = performance.now() + kSettle;
    this.write(value);
  }

  refuse(failure) {
    this.fail(failure.text ?? String(failure));
  }

  fail(text) {
    setText(this.error, text);
    this.input.setAttribute('aria-invalid', text !== '');
  }

  /** For subclasses: the element that carries the value. */
  adopt(input) {
    this.input = input;
    input.id = this.member;
    input.setAttribute('aria-describedby', this.error.id);
    input.addEventListener('blur', () => this.release());
    input.addEventListener('keydown', (event) => {
      if (event.key === 'Escape') this.revert();
    });
  }
}
