// Reads the stream of profiles with a WebSocket client that this project did not write, and checks
// every message by the description of the format.
//   node read_stream.mjs BASE_URL TOKEN MESSAGES
// The package ws is looked for from the current folder on. Prints what it has seen, as JSON.
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import path from 'node:path';

const require = createRequire(path.join(process.cwd(), 'package.json'));
const WebSocket = require('ws');

const kHeader = 64;
const kMillimetres = 1;
const kPatience = 20_000;

function decode(data) {
  assert.ok(data.length >= kHeader, `a message of ${data.length} bytes`);
  assert.equal(data.toString('latin1', 0, 4), 'TSLP');
  assert.equal(data.readUInt16LE(4), 1, 'version of the layout');
  assert.equal(data.readUInt16LE(6), kHeader, 'size of the header');
  const points = data.readUInt32LE(40);
  assert.equal(data.length, kHeader + 9 * points, `bytes of ${points} points`);
  const floats = (from) =>
    Array.from({ length: points }, (_, i) => data.readFloatLE(kHeader + 4 * (from + i)));
  return {
    id: data.readBigUInt64LE(8),
    ticks: data.readBigUInt64LE(16),
    encoder: data.readBigUInt64LE(24),
    host: data.readDoubleLE(32),
    unit: data.readUInt32LE(44),
    region: [48, 50, 52, 54].map((at) => data.readUInt16LE(at)),
    step: data.readUInt32LE(56),
    generation: data.readUInt32LE(60),
    x: floats(0),
    z: floats(points),
    peaks: data.subarray(kHeader + 8 * points),
  };
}

function check(profile, before) {
  assert.equal(profile.unit, kMillimetres);
  assert.equal(profile.step, 0);
  assert.deepEqual(profile.region, [0, 0, 1456, 1088]);
  assert.ok(profile.x.length > 0, 'points');
  assert.ok(profile.x.every((x, i) => i === 0 || x > profile.x[i - 1]), 'x grows');
  assert.ok(profile.x.every((x) => Math.abs(x) < 36.5), 'x is in the field');
  assert.ok(profile.z.every((z) => z > -1 && z < 11), 'z is between belt and ball');
  assert.ok(profile.peaks.every((peak) => peak > 0), 'peaks are light');
  assert.ok(Math.abs(Date.now() / 1000 - profile.host) < 5, 'the host clock is ours');
  if (before === undefined) return;
  for (const member of ['id', 'ticks', 'host']) {
    assert.ok(profile[member] > before[member], `${member} grows`);
  }
  assert.ok(profile.encoder >= before.encoder, 'the encoder does not run back');
}

const [base, token, count] = process.argv.slice(2);
const address = `${base.replace(/^http/, 'ws')}/api/v1/stream/profile?rate=20`;
const socket = new WebSocket(address, ['tessaline.v1', `token.${token}`]);
const patience = setTimeout(() => {
  console.error(`fewer than ${count} messages in ${kPatience / 1000} s`);
  process.exit(1);
}, kPatience);

let before;
let messages = 0;
socket.on('message', (data, isBinary) => {
  if (messages === Number(count)) return;
  assert.ok(isBinary, 'profiles are binary');
  const profile = decode(data);
  check(profile, before);
  before = profile;
  messages += 1;
  if (messages === Number(count)) socket.close();
});
socket.on('close', (code) => {
  clearTimeout(patience);
  const { protocol, extensions } = socket;
  console.log(JSON.stringify({ messages, code, protocol, extensions, points: before?.x.length }));
});
