const kFirstPause = 250;
const kLongestPause = 2000;

/**
 * A WebSocket that comes back by itself.
 *
 * @param silence  Milliseconds without a message after which the connection counts as lost; a
 *                 cable that is pulled out closes nothing. 0: silence is normal.
 */
export class Stream {
  constructor(kind, { rate, token, silence = 0, onMessage, onOpen, onLost }) {
    Object.assign(this, { kind, rate, token, silence, onMessage, onOpen, onLost });
    this.wanted = false;
    this.pause = kFirstPause;
    this.socket = null;
  }

  start() {
    if (this.wanted) return;
    this.wanted = true;
    this.connect();
  }

  stop() {
    this.wanted = false;
    clearTimeout(this.retry);
    this.drop();
  }

  /** Begins anew at once, for example with another token. */
  restart() {
    if (!this.wanted) return;
    this.stop();
    this.pause = kFirstPause;
    this.start();
  }

  connect() {
    const scheme = location.protocol === 'https:' ? 'wss:' : 'ws:';
    const address = `${scheme}//${location.host}/api/v1/stream/${this.kind}?rate=${this.rate}`;
    // Browsers cannot send headers with a WebSocket; a second protocol carries the token.
    const protocols = ['tessaline.v1'];
    if (this.token.value) protocols.push(`token.${this.token.value}`);
    const socket = new WebSocket(address, protocols);
    socket.binaryType = 'arraybuffer';
    this.socket = socket;
    this.watch();
    socket.onopen = () => {
      this.watch();
      this.onOpen?.();
    };
    socket.onmessage = (event) => {
      this.pause = kFirstPause;
      this.watch();
      this.onMessage(event.data);
    };
    socket.onclose = () => this.lose(socket);
  }

  watch() {
    if (!this.silence) return;
    clearTimeout(this.silent);
    this.silent = setTimeout(() => this.lose(this.socket), this.silence);
  }

  lose(socket) {
    if (socket !== this.socket) return;
    this.drop();
    if (!this.wanted) return;
    this.onLost?.();
    this.retry = setTimeout(() => this.connect(), this.pause);
    this.pause = Math.min(this.pause * 2, kLongestPause);
  }

  drop() {
    clearTimeout(this.silent);
    const socket = this.socket;
    this.socket = null;
    if (!socket) return;
    socket.onopen = socket.onmessage = socket.onclose = null;
    socket.close();
  }
}
