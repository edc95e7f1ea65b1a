import { Choice, Quantity } from './controls.js';
import { byId } from './dom.js';

const kGroups = [
  {
    box: 'settings-light',
    settings: [
      { member: 'exposure_us', label: 'Exposure', slider: 'log', list: true },
      { member: 'gain', label: 'Gain', slider: 'linear' },
      { member: 'power_percent', label: 'Laser power', slider: 'linear' },
    ],
  },
  {
    box: 'settings-trigger',
    settings: [
      { member: 'trigger', label: 'Trigger' },
      { member: 'spacing', label: 'Spacing' },
      { member: 'delay_us', label: 'Delay' },
      { member: 'input_filter_us', label: 'Input filter' },
    ],
  },
  {
    box: 'settings-other',
    settings: [
      { member: 'door', label: 'Door' },
      { member: 'led', label: 'LED' },
    ],
  },
];

/** Sliders, fields and lists for what a recipe holds, except the region. */
export class SettingsPanel {
  constructor(patch) {
    this.patch = patch;
    this.controls = new Map();
  }

  /** Other limits come only with another model, after the daemon was started anew. */
  setLimits(limits) {
    const text = JSON.stringify(limits);
    if (text === this.built) return;
    this.built = text;
    this.controls.clear();
    for (const { box, settings } of kGroups) {
      const rows = settings.filter(({ member }) => limits[member]).map((definition) => {
        const { member } = definition;
        const Kind = limits[member].words ? Choice : Quantity;
        const control = new Kind(definition, limits[member], this.patch);
        this.controls.set(member, control);
        return control.row;
      });
      byId(box).replaceChildren(...rows);
    }
  }

  show(settings) {
    for (const [member, control] of this.controls) {
      if (settings[member] !== undefined) control.show(settings[member]);
    }
    this.controls.get('spacing')?.setUnit(settings.trigger === 'encoder' ? 'pulses' : 'us');
  }
}
