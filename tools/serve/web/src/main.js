import { Access } from './access.js';
import { Api } from './api.js';
import { CameraView } from './camera_view.js';
import { Connection } from './connection.js';
import { decode } from './decode.js';
import { byId, setText } from './dom.js';
import { Files } from './files.js';
import { number } from './format.js';
import { HeightMap } from './height_map.js';
import { LogPanel } from './log_panel.js';
import { Messages } from './messages.js';
import { Operation } from './operation.js';
import { ProfilePlot } from './profile_plot.js';
import { Recordings } from './recordings.js';
import { RegionEditor } from './region_editor.js';
import { SettingsPanel } from './settings_panel.js';
import { Shortcuts } from './shortcuts.js';
import { StatusPanel } from './status_panel.js';
import { Stream } from './stream.js';
import { Theme } from './theme.js';
import { Token } from './token.js';

const kProfileRate = 30;
const kImageRate = 15;
// Longer than that, and the two clocks differ rather than the picture is late.
const kLongestLatency = 60_000;

// For tests, and for people with the browser's console.
const seen = { profile: null, image: null, drawn: null, latency: null, state: null };
window.tessaline = seen;

const token = new Token();
const api = new Api(token);
const messages = new Messages();
const access = new Access(token);

const patch = async (members) => {
  const settings = await api.json('PATCH', 'settings', members);
  panel.show(settings);
  return settings;
};

const panel = new SettingsPanel(patch);
const status = new StatusPanel();
const log = new LogPanel();
const plot = new ProfilePlot({ onDrawn: (frame) => noteDrawn(frame, 'profile-info') });
const map = new HeightMap();
const camera = new CameraView({ onDrawn: (frame) => noteDrawn(frame, 'camera-info') });
const region = new RegionEditor({ view: camera, apply: (value) => patch({ region: value }) });
const operation = new Operation({ api, messages, onState: showState });
const recordings = new Recordings({ api, messages });
const files = new Files({ api, messages, patch, model: () => seen.state?.model ?? 'sensor' });
new Theme(() => {
  plot.recolour();
  camera.draw();
});

// Frames are drawn when the browser draws; of several in between, the newest counts.
let next = null;
function drawSoon(frame) {
  if (!next) requestAnimationFrame(drawNext);
  next = frame;
}
function drawNext() {
  const frame = next;
  next = null;
  if (frame.kind === 'image') camera.show(frame);
  else {
    plot.show(frame);
    map.draw();
  }
}

function takeFrame(message) {
  let frame;
  try {
    frame = decode(message);
  } catch (error) {
    messages.fail(`The page does not understand the daemon: ${error.message}. Reload the page.`);
    return;
  }
  seen[frame.kind] = frame;
  if (frame.kind === 'profile') map.add(frame);
  drawSoon(frame);
}

function noteDrawn(frame, info) {
  const latency = Date.now() - frame.clock * 1000;
  seen.drawn = frame.id;
  seen.latency = latency;
  const delay = Math.abs(latency) < kLongestLatency ? `, ${number(latency)} ms after capture` : '';
  setText(byId(info), `frame ${number(frame.id)}${delay}`);
}

const profiles = new Stream('profile', { rate: kProfileRate, token, onMessage: takeFrame });
const images = new Stream('image', { rate: kImageRate, token, onMessage: takeFrame });

function followMode(mode) {
  const [wanted, other] = mode === 'images' ? [images, profiles] : [profiles, images];
  other.stop();
  wanted.start();
  camera.setLive(mode === 'images');
}

function showState(state) {
  seen.state = state;
  document.title = `${state.model}${state.virtual ? ' (virtual board)' : ''} – Tessaline`;
  setText(byId('model'), state.model);
  setText(byId('sensor'), state.sensor);
  byId('virtual').hidden = !state.virtual;
  setText(byId('failure'), state.ready ? '' : `The sensor does not answer: ${state.failure ?? ''}`);
  operation.show(state);
  recordings.show(state);
  panel.show(state.settings);
  region.show(state.region);
  status.show(state);
  followMode(state.mode);
}

const connection = new Connection({
  api,
  token,
  onConnected: (limits) => {
    panel.setLimits(limits);
    region.setLimits(limits.region);
    camera.setSensor(limits.region);
    log.clear();
    access.setConnected(true);
    region.enabled = access.allowed;
  },
  onState: showState,
  onLog: (lines) => log.add(lines),
  onLost: () => {
    access.setConnected(false);
    region.enabled = false;
    operation.showUnknown();
    profiles.stop();
    images.stop();
  },
});
token.whenChanged(() => {
  region.enabled = access.allowed;
});

new Shortcuts({
  ' ': () => access.allowed && operation.toggleAcquisition(),
  // There is no key that switches the laser on.
  l: () => access.allowed && operation.setLaser(false),
  s: () => files.snapshot('png'),
  r: () => access.allowed && recordings.toggle(),
});

connection.start();
