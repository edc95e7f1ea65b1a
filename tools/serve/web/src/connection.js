import { byId, setText } from './dom.js';
import { Stream } from './stream.js';

const kStateRate = 2;
const kSilence = 5000;

/** The stream of states: it tells whether the daemon is there at all. */
export class Connection {
  /**
   * @param onConnected  called once for every connection; gets the daemon's limits first.
   * @param onState, onLog  what the stream brings.
   * @param onLost  called when the connection is gone.
   */
  constructor({ api, token, onConnected, onState, onLog, onLost }) {
    Object.assign(this, { api, token, onConnected, onState, onLog, onLost });
    this.connected = false;
    this.stream = new Stream('state', {
      rate: kStateRate,
      token,
      silence: kSilence,
      onMessage: (text) => this.take(JSON.parse(text)),
      onOpen: () => this.greet(),
      onLost: () => this.lose(),
    });
    token.whenChanged(() => {
      if (!token.usable) return;
      this.stream.stop();
      this.start();
    });
  }

  start() {
    this.say('Connecting …', 'wait');
    this.stream.start();
  }

  // Messages wait for the limits, without which there are no controls to show them in.
  async greet() {
    this.waiting = [];
    try {
      await this.onConnected(await this.api.get('limits'));
    } catch {
      this.stream.restart();
      return;
    }
    this.connected = true;
    this.say('Connected', 'good');
    const waiting = this.waiting;
    this.waiting = null;
    waiting.forEach((message) => this.take(message));
  }

  take(message) {
    if (this.waiting) this.waiting.push(message);
    else if (message.type === 'log') this.onLog(message.lines);
    else this.onState(message);
  }

  lose() {
    if (this.connected) this.onLost();
    this.connected = false;
    this.say('Connection lost, trying again …', 'bad');
    this.askWhy();
  }

  // A WebSocket does not say why it was refused; a request does.
  async askWhy() {
    try {
      await this.api.get('state');
    } catch (error) {
      if (error.status !== 401) return;
      this.stream.stop();
      this.say('A token is needed', 'bad');
    }
  }

  say(text, kind) {
    const element = byId('connection');
    element.dataset.kind = kind;
    setText(element, text);
  }
}
