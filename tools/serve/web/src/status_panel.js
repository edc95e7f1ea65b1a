import { byId, make, setText } from './dom.js';
import { duration, number, regionText, withUnit } from './format.js';

const losses = (member) => (state) => ({
  text: number(state.counters?.[member]),
  bad: state.counters?.[member] > 0,
});
const figure = (group, member, unit, decimals) => (state) => ({
  text: withUnit(state[group]?.[member], unit, decimals),
});
const kLosses = ['missing_ids', 'malformed', 'fpga_lost', 'triggers_lost'];
const bytes = (count) => withUnit(count / 1e6, 'MB', 1);

const kFigures = {
  'figures-rates': [
    ['Profiles', figure('rates', 'profiles', 'per s', 1)],
    ['Images', figure('rates', 'images', 'per s', 1)],
    ['Data', figure('rates', 'megabytes', 'MB per s', 1)],
    ['Profiles so far', figure('counters', 'strips', '', 0)],
    ['Images so far', figure('counters', 'images', '', 0)],
  ],
  'figures-losses': [
    ['Missing frame ids', losses('missing_ids')],
    ['Malformed frames', losses('malformed')],
    ['Lost in the FPGA', losses('fpga_lost')],
    ['Triggers lost', losses('triggers_lost')],
  ],
  'figures-quality': [
    ['Points', figure('quality', 'points', '', 0)],
    ['Missing', figure('quality', 'missing_percent', '%', 1)],
    ['Saturated', figure('quality', 'saturated_percent', '%', 1)],
    ['Mean peak', figure('quality', 'mean_peak', 'of 255', 0)],
  ],
  'figures-device': [
    ['Laser on for', (state) => ({ text: duration(state.laser_seconds) })],
    ['Region', (state) => ({ text: state.region ? regionText(state.region) : '–' })],
    ['Calibration', (state) => ({ text: calibration(state.calibration) })],
    ['Daemon runs for', (state) => ({ text: duration(state.uptime) })],
    ['Version', (state) => ({ text: state.version ?? '–' })],
  ],
};

/** Rates, losses, line quality, temperatures, and who else looks on. */
export class StatusPanel {
  constructor() {
    this.figures = Object.entries(kFigures).flatMap(([box, figures]) =>
      figures.map(([name, read]) => ({ read, value: addFigure(byId(box), name) })),
    );
    this.temperatures = new Map();
  }

  show(state) {
    for (const { read, value } of this.figures) showFigure(value, read(state));
    for (const [name, degrees] of Object.entries(state.temperatures ?? {})) {
      this.temperature(name, degrees);
    }
    showClients(state.clients ?? []);
    setText(byId('summary'), summary(state));
  }

  temperature(name, degrees) {
    if (!this.temperatures.has(name)) {
      const label = `${name[0].toUpperCase()}${name.slice(1).replaceAll('_', ' ')}`;
      this.temperatures.set(name, addFigure(byId('figures-temperatures'), label));
    }
    showFigure(this.temperatures.get(name), { text: withUnit(degrees, '°C', 1) });
  }
}

function addFigure(box, name) {
  const value = make('dd', {}, '–');
  box.append(make('div', {}, make('dt', {}, name), value));
  return value;
}

function showFigure(value, { text, bad = false }) {
  setText(value, text);
  value.classList.toggle('bad', bad);
}

// What a glance is for; the rest stands below.
function summary({ rates, counters, mode }) {
  const lost = kLosses.reduce((sum, name) => sum + (counters?.[name] ?? 0), 0);
  const what = mode === 'images' ? 'images' : 'profiles';
  return (
    `${number(rates?.[what], 1)} ${what} per s, ${number(rates?.megabytes, 1)} MB per s, ` +
    `${number(lost)} lost`
  );
}

function calibration(value) {
  if (!value) return '–';
  return value.unit === 'mm' ? value.source : 'none, pixels';
}

function showClients(clients) {
  setText(byId('clients-count'), String(clients.length));
  const rows = clients.map((client) =>
    make(
      'tr',
      {},
      make('td', {}, client.peer),
      make('td', {}, client.stream),
      make('td', {}, withUnit(client.rate, 'per s')),
      make('td', {}, number(client.sent)),
      make('td', {}, number(client.dropped_frames)),
      make('td', {}, bytes(client.sent_bytes)),
    ),
  );
  byId('clients').replaceChildren(...rows);
}
