import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

import { firstFrame, textIs, until } from '../browser.mjs';

const kLost = 'Connection lost, trying again …';

export const checks = {
  'a lost connection comes back by itself': async ({ browser, daemon }) => {
    const network = new Network();
    const page = await browser.open({ prepare: (fresh) => network.attach(fresh, daemon) });
    await firstFrame(page, 'profile');
    await network.break();
    await textIs(page, '#connection', kLost);
    await textIs(page, '#laser-state', 'Laser unknown');
    assert.equal(await page.isDisabled('#laser-button'), true);
    await daemon.patch({ power_percent: 17 });
    await page.waitForTimeout(3000);
    const id = await profileId(page);
    network.mend();
    const start = performance.now();
    await textIs(page, '#connection', 'Connected');
    const seconds = (performance.now() - start) / 1000;
    assert.ok(seconds < 20, `it took ${seconds} s`);
    await until(async () => (await profileId(page)) !== id, 'no profiles come');
    await until(async () => (await page.inputValue('#power_percent')) === '17', 'old settings');
    assert.equal(await page.isEnabled('#laser-button'), true);
    return `${seconds.toFixed(1)} s after the network was back`;
  },

  'a silent connection counts as lost': async ({ browser, daemon }) => {
    const network = new Network();
    const page = await browser.open({ prepare: (fresh) => network.attach(fresh, daemon) });
    await firstFrame(page, 'profile');
    network.silent = true;
    await textIs(page, '#connection', kLost);
    network.silent = false;
    await textIs(page, '#connection', 'Connected');
  },

  'a daemon that was started again is found': async ({ browser, daemon }) => {
    const restart = process.env.RESTART_DAEMON;
    if (!restart) return 'left out, RESTART_DAEMON is not set';
    const page = await browser.open();
    await firstFrame(page, 'profile');
    const { uptime } = await daemon.get('state');
    const lost = textIs(page, '#connection', kLost);
    await Promise.all([lost, promisify(execFile)('sh', ['-c', restart])]);
    await textIs(page, '#connection', 'Connected');
    await until(
      async () => (await page.evaluate(() => window.tessaline.state.uptime)) < uptime,
      'the daemon is still the old one',
    );
    await daemon.reset();
    const id = await profileId(page);
    await until(async () => (await profileId(page)) !== id, 'no profiles come');
    assert.equal(await page.isEnabled('#laser-button'), true);
  },

  'a reload goes on': async ({ browser, daemon }) => {
    await daemon.patch({ power_percent: 44 });
    const page = await browser.open();
    await page.reload();
    await textIs(page, '#connection', 'Connected');
    await firstFrame(page, 'profile');
    assert.equal(await page.inputValue('#power_percent'), '44');
  },
};

function profileId(page) {
  return page.evaluate(() => window.tessaline.profile.id);
}

/** A network between page and daemon that can be broken. */
class Network {
  constructor() {
    this.broken = false;
    this.silent = false;
    this.sockets = new Set();
  }

  async attach(page, daemon) {
    await page.routeWebSocket(/\/api\/v1\/stream\//, (socket) => {
      if (this.broken) {
        socket.close({ code: 1011 });
        return;
      }
      this.sockets.add(socket);
      const server = socket.connectToServer();
      server.onMessage((message) => {
        if (!this.silent) socket.send(message);
      });
    });
    await page.route(`${daemon.base}/api/**`, (route) =>
      this.broken ? route.abort() : route.continue(),
    );
  }

  async break() {
    this.broken = true;
    for (const socket of this.sockets) await socket.close({ code: 1011 });
    this.sockets.clear();
  }

  mend() {
    this.broken = false;
  }
}
