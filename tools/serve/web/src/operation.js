import { byId, setText } from './dom.js';

const kModes = { strips: 'mode-strips', images: 'mode-images' };

/** Laser, acquisition, mode and software trigger. */
export class Operation {
  /** @param onState  gets the state that the daemon answers with, before the stream brings it. */
  constructor({ api, messages, onState }) {
    Object.assign(this, { api, messages, onState });
    this.state = null;
    this.laserState = byId('laser-state');
    this.laserButton = byId('laser-button');
    this.acquisitionButton = byId('acquisition-button');
    this.laserButton.addEventListener('click', () => this.setLaser(!this.state.laser));
    this.acquisitionButton.addEventListener('click', () => this.toggleAcquisition());
    byId('trigger-button').addEventListener('click', () => this.trigger());
    for (const [mode, id] of Object.entries(kModes)) {
      byId(id).addEventListener('change', () => this.setMode(mode));
    }
  }

  show(state) {
    this.state = state;
    this.showLaser(state.laser ? 'on' : 'off');
    setText(this.laserButton, state.laser ? 'Switch laser off' : 'Switch laser on');
    setText(this.acquisitionButton, state.acquisition ? 'Stop acquisition' : 'Start acquisition');
    setText(byId('acquisition-state'), state.acquisition ? 'Acquisition runs' : 'Stopped');
    byId('acquisition-state').classList.toggle('active', state.acquisition);
    if (!this.switching) this.showMode(state.mode);
  }

  /** What was last heard of the laser says nothing once the connection is gone. */
  showUnknown() {
    this.showLaser('unknown');
  }

  showLaser(word) {
    this.laserState.dataset.laser = word;
    setText(this.laserState, `Laser ${word}`);
  }

  showMode(mode) {
    document.documentElement.dataset.mode = mode;
    byId(kModes[mode]).checked = true;
  }

  setLaser(on) {
    return this.put('laser', { on });
  }

  toggleAcquisition() {
    if (this.state) this.put('acquisition', { on: !this.state.acquisition });
  }

  async setMode(mode) {
    this.switching = true;
    setText(byId('mode-info'), 'Switching …');
    await this.put('mode', { mode });
    setText(byId('mode-info'), '');
    this.switching = false;
    // A refused mode leaves the one before.
    this.showMode(this.state.mode);
  }

  trigger() {
    return this.messages.attempt(
      () => this.api.json('POST', 'trigger', {}),
      () => 'Triggered once.',
    );
  }

  async put(what, body) {
    const state = await this.messages.attempt(() => this.api.json('PUT', what, body));
    if (state) this.onState(state);
  }
}
