import { byId, setText } from './dom.js';

/**
 * Whether things can be changed from here: it takes a connection and a token. Everything that
 * writes stands in a fieldset with data-write.
 */
export class Access {
  constructor(token) {
    this.token = token;
    this.connected = false;
    this.fieldsets = [...document.querySelectorAll('fieldset[data-write]')];
    this.form = byId('token-form');
    this.field = byId('token');
    this.form.addEventListener('submit', (event) => this.submit(event));
    token.whenChanged(() => this.update());
    this.update();
  }

  setConnected(connected) {
    this.connected = connected;
    this.update();
  }

  get allowed() {
    return this.connected && this.token.usable;
  }

  update() {
    this.form.hidden = this.token.usable;
    setText(
      byId('token-hint'),
      this.token.refused && this.token.value
        ? 'The daemon refused the token. It printed a new one if it was started anew.'
        : 'Open the address that the daemon printed, or enter its token, to change anything.',
    );
    if (this.fieldsets[0].disabled === !this.allowed) return;
    // A control that is disabled loses the focus. It gets it back after a short interruption.
    const focused = document.activeElement;
    if (!this.allowed && focused !== document.body) this.focused = focused;
    for (const fieldset of this.fieldsets) fieldset.disabled = !this.allowed;
    if (this.allowed && document.activeElement === document.body) this.focused?.focus();
  }

  submit(event) {
    event.preventDefault();
    const possible = this.token.set(this.field.value.trim());
    if (possible) this.field.value = '';
    else setText(byId('token-hint'), 'A token has letters, digits and - _ . ~ + only.');
  }
}
