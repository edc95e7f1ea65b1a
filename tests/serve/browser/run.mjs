// Tests the page of a running tessaline serve in a browser.
//   node run.mjs BASE_URL TOKEN [--short] [--screenshots DIR] [--only TEXT]
// The packages of package.json are looked for from the current folder on. The command in
// RESTART_DAEMON stops the daemon and starts it again with the same address and token. The daemon
// listens on loopback, where reading needs no token. Its settings are changed, and put back at the
// end. --short leaves all out but a dozen checks.
import { spawnSync } from 'node:child_process';
import { parseArgs } from 'node:util';

import { Browser } from './browser.mjs';
import { Daemon } from './daemon.mjs';
import * as access from './checks/access.mjs';
import * as files from './checks/files.mjs';
import * as loading from './checks/loading.mjs';
import * as operation from './checks/operation.mjs';
import * as pictures from './checks/pictures.mjs';
import * as recovery from './checks/recovery.mjs';
import * as region from './checks/region.mjs';
import * as settings from './checks/settings.mjs';

const kSubjects = [loading, pictures, region, settings, operation, files, access, recovery];
const kShort = [
  'the page loads without an error',
  "the curve is the stream's profile",
  'the height map has colours and scrolls',
  'the camera image is drawn in its shape',
  'how late pictures are (measured, not judged)',
  'a region drawn with the mouse arrives',
  'the exposure slider arrives',
  'two windows agree',
  'the laser button switches the laser',
  'without a token nothing can be changed',
  'a lost connection comes back by itself',
  'a reload goes on',
];

// Node 20 has its WebSocket behind a flag.
if (!globalThis.WebSocket) {
  const args = ['--experimental-websocket', '--no-warnings', ...process.argv.slice(1)];
  const again = spawnSync(process.execPath, args, { stdio: 'inherit' });
  process.exit(again.status ?? 1);
}

const { values: options, positionals } = parseArgs({
  allowPositionals: true,
  options: {
    short: { type: 'boolean', default: false },
    screenshots: { type: 'string' },
    only: { type: 'string', default: '' },
  },
});
const [base, token] = positionals;
if (!base || !token) {
  console.error('usage: run.mjs BASE_URL TOKEN [--short] [--screenshots DIR] [--only TEXT]');
  process.exit(2);
}

const daemon = new Daemon(base.replace(/\/$/, ''), token);
const browser = await Browser.launch(daemon);
const before = [await daemon.get('state'), await daemon.get('settings')];
const all = kSubjects.flatMap(({ checks }) => Object.entries(checks));
const names = options.short ? kShort : all.map(([name]) => name);
const chosen = names.filter((name) => name.includes(options.only));
let failed = 0;
for (const name of chosen) {
  const check = Object.fromEntries(all)[name];
  const start = performance.now();
  const seconds = () => `${((performance.now() - start) / 1000).toFixed(1)} s`;
  try {
    await daemon.reset();
    const said = await check({ daemon, browser, options });
    console.log(`ok    ${name} (${seconds()})${said ? `: ${said}` : ''}`);
  } catch (error) {
    failed += 1;
    console.log(`FAIL  ${name} (${seconds()}): ${error.message}`);
  }
  await browser.closePages();
}
await browser.close();
await daemon.restore(...before);
console.log(failed === 0 ? `all ${chosen.length} passed` : `${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
