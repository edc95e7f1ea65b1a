import { byId, make, setText } from './dom.js';
import { duration, number, withUnit } from './format.js';

/** Starts and stops recordings, and lists the files. */
export class Recordings {
  constructor({ api, messages }) {
    this.api = api;
    this.messages = messages;
    this.button = byId('record');
    this.button.addEventListener('click', () => this.toggle());
    byId('recordings-box').addEventListener('toggle', (event) => {
      if (event.target.open) this.list();
    });
  }

  show({ recording, recordings_possible: possible, recording_failure: failure }) {
    const before = this.running;
    this.running = Boolean(recording);
    this.noteFailure(failure);
    this.button.disabled = !possible && !recording;
    this.button.classList.toggle('active', this.running);
    setText(this.button, this.running ? 'Stop recording' : 'Record');
    setText(byId('record-info'), this.info(recording, possible));
    byId('recordings-box').hidden = !possible;
    if (before && !this.running && byId('recordings-box').open) this.list();
  }

  info(recording, possible) {
    if (!recording) return possible ? '' : 'No folder was given for recordings.';
    const { file, seconds, megabytes, frames, dropped } = recording;
    const lost = dropped > 0 ? `, ${number(dropped)} frames dropped` : '';
    return (
      `${file}: ${duration(seconds)}, ${withUnit(megabytes, 'MB', 1)}, ` +
      `${number(frames)} frames${lost}`
    );
  }

  // The daemon has a program of its own for recordings, which may end before it is asked to.
  noteFailure(failure) {
    const news = failure && this.failure !== undefined && failure !== this.failure;
    if (news) this.messages.fail(`${failure[0].toUpperCase()}${failure.slice(1)}`);
    this.failure = failure;
  }

  async toggle() {
    if (this.busy || this.button.matches(':disabled')) return;
    this.busy = true;
    if (this.running) {
      await this.messages.attempt(
        () => this.api.json('DELETE', 'recordings/current'),
        ({ file, frames }) => `Recorded ${number(frames)} frames to ${file}.`,
      );
    } else {
      await this.messages.attempt(
        () => this.api.json('POST', 'recordings', {}),
        ({ file }) => `Recording to ${file}.`,
      );
    }
    this.busy = false;
  }

  async list() {
    const answer = await this.messages.attempt(() => this.api.get('recordings'));
    if (!answer) return;
    setText(byId('recordings-folder'), answer.folder ?? '');
    const files = answer.files.map(({ file, megabytes }) =>
      make('li', {}, `${file}, ${withUnit(megabytes, 'MB', 1)}`),
    );
    byId('recordings').replaceChildren(...files);
  }
}
