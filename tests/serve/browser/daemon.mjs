// The daemon as another program sees it: requests and streams, without the page.

const kHeader = 64;

export class Daemon {
  constructor(base, token) {
    this.base = base;
    this.token = token;
  }

  get address() {
    return `${this.base}/#token=${this.token}`;
  }

  async request(method, path, body) {
    const answer = await fetch(`${this.base}/api/v1/${path}`, {
      method,
      headers: { Authorization: `Bearer ${this.token}`, 'Content-Type': 'application/json' },
      body: body === undefined ? undefined : JSON.stringify(body),
    });
    if (!answer.ok) throw new Error(`${method} ${path}: ${answer.status} ${await answer.text()}`);
    return answer.json();
  }

  get(path) {
    return this.request('GET', path);
  }

  patch(members) {
    return this.request('PATCH', 'settings', members);
  }

  put(what, body) {
    return this.request('PUT', what, body);
  }

  async setMode(mode) {
    if ((await this.get('state')).mode !== mode) await this.put('mode', { mode });
  }

  /** What every check begins with: the whole line comes, twenty times a second. */
  async reset() {
    await this.setMode('strips');
    const { region, gain } = await this.get('limits');
    await this.patch({
      region: { x: 0, y: 0, width: region.sensor_width, height: region.sensor_height },
      exposure_us: [320],
      gain: gain.low,
      power_percent: 50,
      trigger: 'timer',
      spacing: 50_000,
      led: 'off',
    });
    await this.put('laser', { on: true });
    await this.put('acquisition', { on: true });
  }

  /** Puts back what the state and the settings were before. */
  async restore({ mode, laser, acquisition }, settings) {
    await this.setMode(mode);
    await this.patch(settings);
    await this.put('laser', { on: laser });
    await this.put('acquisition', { on: acquisition });
  }

  /** Follows the stream of profiles, decoded here on its own. Stop it with close(). */
  profiles() {
    const seen = new Map();
    const address = `${this.base.replace(/^http/, 'ws')}/api/v1/stream/profile?rate=120`;
    const socket = new WebSocket(address, ['tessaline.v1', `token.${this.token}`]);
    socket.binaryType = 'arraybuffer';
    socket.onmessage = ({ data }) => {
      const view = new DataView(data);
      const points = view.getUint32(40, true);
      const float = (i) => view.getFloat32(kHeader + 4 * i, true);
      const x = Array.from({ length: points }, (_, i) => float(i));
      const z = Array.from({ length: points }, (_, i) => float(points + i));
      seen.set(Number(view.getBigUint64(8, true)), { x, z });
    };
    return { seen, close: () => socket.close() };
  }
}
