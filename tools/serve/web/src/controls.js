import { Control } from './control.js';
import { make, setText } from './dom.js';
import { number, unitText } from './format.js';

const kLogSteps = 1000;
const kUnknown = 'as at the start';

/** One of a few words. */
export class Choice extends Control {
  constructor(definition, { words }, patch) {
    super(definition, patch);
    const option = (value, text, attributes) => make('option', { value, ...attributes }, text);
    this.adopt(
      make(
        'select',
        {},
        // What the sensor has since its start is not known, and cannot be chosen.
        option('', kUnknown, { disabled: '', hidden: '' }),
        ...words.map((word) => option(word, word)),
      ),
    );
    this.input.addEventListener('change', () => this.push(this.input.value));
    this.row.append(this.label, this.input, this.error);
  }

  write(value) {
    this.input.value = value ?? '';
  }
}

/** A number, or a short list of them, as text, with a slider where that helps. */
export class Quantity extends Control {
  constructor(definition, limits, patch) {
    super(definition, patch);
    this.limits = limits;
    this.list = definition.list;
    this.unit = make('span', { class: 'unit' }, unitText(limits.unit));
    this.adopt(this.makeField());
    this.input.addEventListener('input', () => this.hold());
    this.input.addEventListener('change', () => this.sendField());
    this.row.append(this.label, this.input, this.unit);
    if (definition.slider) this.addSlider(definition);
    this.row.append(this.error);
  }

  // A list needs a text; a number gets the browser's number field with its steps.
  makeField() {
    const { low, high } = this.limits;
    return this.list
      ? make('input', { type: 'text', autocomplete: 'off', placeholder: kUnknown })
      : make('input', { type: 'number', min: low, max: high, step: 'any', placeholder: kUnknown });
  }

  setUnit(unit) {
    setText(this.unit, unitText(unit));
  }

  addSlider({ label, slider, step }) {
    this.scale = slider === 'log' ? logScale(this.limits) : linearScale(this.limits, step);
    const { low, high } = this.scale;
    this.slider = make('input', {
      type: 'range',
      id: `${this.member}-slider`,
      min: low,
      max: high,
      step: this.scale.step,
      'aria-label': `${label}, slider`,
    });
    this.slider.addEventListener('input', () => this.slide());
    this.slider.addEventListener('pointerdown', () => this.hold());
    this.slider.addEventListener('pointerup', () => this.release());
    this.slider.addEventListener('blur', () => this.release());
    this.row.append(this.slider);
  }

  // With several exposures, the slider is that of the first.
  slide() {
    const value = this.scale.valueAt(Number(this.slider.value));
    const rest = this.list ? listed(this.inForce).slice(1) : [];
    this.fail('');
    this.input.value = [value, ...rest].join(', ');
    this.tellSlider(value);
    this.push(this.list ? [value, ...rest] : value);
  }

  sendField() {
    const values = this.input.value.split(/[,;\s]+/).filter((part) => part !== '').map(Number);
    if (values.length === 0 || values.some((value) => !Number.isFinite(value))) {
      this.hold();
      this.fail(`This is not a number. Possible: ${this.possible()}`);
      return;
    }
    this.fail('');
    this.push(this.list ? values : values[0]);
  }

  possible() {
    const { low, high, most, unit } = this.limits;
    const range = `${number(low)} to ${number(high)} ${unitText(unit)}`.trim();
    return most > 1 ? `up to ${most} numbers, ${range}` : range;
  }

  write(value) {
    const values = listed(value);
    this.input.value = values.join(', ');
    if (!this.slider) return;
    const [first] = values;
    this.slider.value = this.scale.placeOf(first ?? this.limits.low);
    this.tellSlider(first);
  }

  tellSlider(value) {
    const decimals = Number.isInteger(value) ? 0 : 1;
    const text = value === undefined ? kUnknown : number(value, decimals);
    this.slider.setAttribute('aria-valuetext', `${text} ${unitText(this.limits.unit)}`);
  }
}

// The daemon says one exposure as a number, several as a list, and nothing of what is not known.
function listed(value) {
  return value === null || value === undefined ? [] : [].concat(value);
}

function linearScale({ low, high }, step = 1) {
  return { low, high, step, valueAt: (place) => place, placeOf: (value) => value };
}

// Values have two digits, or a slider of seven decades would give numbers like 1037.5284.
function logScale({ low, high }) {
  const least = Math.max(low, 1);
  const span = Math.log(high / least);
  const round = (value) => {
    const digit = 10 ** Math.max(0, Math.floor(Math.log10(value)) - 1);
    return Math.max(least, Math.min(Math.round(value / digit) * digit, high));
  };
  return {
    low: 0,
    high: kLogSteps,
    step: 1,
    valueAt: (place) => round(least * Math.exp((place / kLogSteps) * span)),
    placeOf: (value) => (Math.log(Math.max(value, least) / least) / span) * kLogSteps,
  };
}
