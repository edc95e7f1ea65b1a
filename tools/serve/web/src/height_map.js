import { viridis } from './colours.js';
import { Description } from './description.js';
import { byId, fitCanvas, make, setText } from './dom.js';
import { number, withUnit } from './format.js';
import { SteadyRange, extent, usualExtent, usualStep } from './range.js';

const kBins = 720;
const kRows = 300;
const kWidestGap = 2.5;
const kUnits = {
  mm: { text: 'mm', decimals: 2, leastSpan: 1 },
  px: { text: 'pixels', decimals: 0, leastSpan: 16 },
};

/**
 * Heights of the last profiles as colours: one row a profile, the newest on top.
 *
 * Rows are kept as heights and not as colours, because the range of colours follows the data.
 */
export class HeightMap {
  constructor() {
    this.canvas = byId('map-canvas');
    this.context = this.canvas.getContext('2d', { alpha: false });
    this.legend = byId('map-legend');
    this.picture = make('canvas', { width: kBins, height: kRows });
    this.pictureContext = this.picture.getContext('2d');
    this.row = new ImageData(kBins, 1);
    this.rowPixels = new Uint32Array(this.row.data.buffer);
    this.heights = new Float32Array(kBins * kRows);
    this.head = 0;
    this.rows = 0;
    this.unit = null;
    this.description = new Description((text) => this.canvas.setAttribute('aria-label', text));
    new ResizeObserver(() => this.draw()).observe(this.canvas);
    byId('map-clear').addEventListener('click', () => this.clear());
    this.drawLegend();
  }

  clear() {
    this.heights.fill(NaN);
    this.head = 0;
    this.rows = 0;
    this.xRange?.clear();
    this.zRange?.clear();
    this.pictureContext.clearRect(0, 0, kBins, kRows);
    this.draw();
  }

  /** Adds a row. Drawing it waits for draw(), because a browser draws less often. */
  add(frame) {
    if (frame.unit !== this.unit) this.begin(frame.unit);
    const now = performance.now();
    const across = extent(frame.x);
    const before = { low: this.xRange.low, high: this.xRange.high };
    if (this.xRange.follow(across.low, across.high, now)) this.moveRows(before);
    const up = usualExtent(frame.z);
    const recolour = this.zRange.follow(up.low, up.high, now);
    this.head = (this.head + kRows - 1) % kRows;
    this.rows = Math.min(this.rows + 1, kRows);
    this.fillRow(frame, this.rowHeights(this.head));
    if (recolour) this.colourAll();
    else this.colourRow(this.head);
    this.description.update(() => this.describe());
  }

  begin(unit) {
    this.unit = unit;
    this.xRange = new SteadyRange(kUnits[unit].leastSpan);
    this.zRange = new SteadyRange(kUnits[unit].leastSpan);
    this.clear();
  }

  rowHeights(row) {
    return this.heights.subarray(row * kBins, (row + 1) * kBins);
  }

  // A point colours the bins up to half way to its neighbours, so that a fine map has no holes.
  fillRow({ x, z, points }, heights) {
    heights.fill(NaN);
    const { low, high } = this.xRange;
    const perBin = (high - low) / kBins;
    const reach = Math.max((usualStep(x) * kWidestGap) / 2, perBin / 2);
    for (let i = 0; i < points; i++) {
      const first = Math.floor((x[i] - reach - low) / perBin);
      const last = Math.floor((x[i] + reach - low) / perBin);
      const own = Math.floor((x[i] - low) / perBin);
      for (let bin = Math.max(0, first); bin <= Math.min(kBins - 1, last); bin++) {
        if (bin === own || Number.isNaN(heights[bin])) heights[bin] = z[i];
      }
    }
  }

  // The rows so far keep their places in millimetres when the range across changes.
  moveRows(before) {
    if (!Number.isFinite(before.low)) return;
    const { low, high } = this.xRange;
    const from = Array.from({ length: kBins }, (_, bin) => {
      const x = low + ((bin + 0.5) * (high - low)) / kBins;
      return Math.floor(((x - before.low) * kBins) / (before.high - before.low));
    });
    for (let row = 0; row < kRows; row++) {
      const heights = this.rowHeights(row);
      const old = heights.slice();
      for (let bin = 0; bin < kBins; bin++) heights[bin] = old[from[bin]] ?? NaN;
    }
    this.colourAll();
  }

  colourAll() {
    for (let row = 0; row < kRows; row++) this.colourRow(row);
  }

  colourRow(row) {
    const heights = this.rowHeights(row);
    const { low, high } = this.zRange;
    const perColour = 255 / (high - low);
    // Rows count downwards: the smallest row number is the highest place.
    const upside = this.unit === 'px';
    for (let bin = 0; bin < kBins; bin++) {
      const place = (heights[bin] - low) * perColour;
      const index = Math.max(0, Math.min(255, upside ? 255 - place : place));
      this.rowPixels[bin] = Number.isNaN(place) ? 0 : viridis[Math.round(index)];
    }
    this.pictureContext.putImageData(this.row, 0, row);
  }

  draw() {
    const { canvas, context } = this;
    fitCanvas(canvas, canvas.clientWidth, canvas.clientHeight);
    const { width, height } = canvas;
    context.fillStyle = '#0b0e11';
    context.fillRect(0, 0, width, height);
    if (!this.unit) return;
    const perRow = height / kRows;
    const upper = kRows - this.head;
    context.imageSmoothingEnabled = false;
    context.drawImage(this.picture, 0, this.head, kBins, upper, 0, 0, width, upper * perRow);
    context.drawImage(
      this.picture, 0, 0, kBins, this.head, 0, upper * perRow, width, this.head * perRow,
    );
    this.writeScales();
  }

  writeScales() {
    const { text, decimals } = kUnits[this.unit];
    const upside = this.unit === 'px';
    const z = this.zRange;
    const x = this.xRange;
    setText(byId('map-high'), number(upside ? z.low : z.high, decimals));
    setText(byId('map-low'), number(upside ? z.high : z.low, decimals));
    setText(byId('map-unit'), this.unit === 'mm' ? 'z, mm' : 'row');
    setText(byId('map-left'), withUnit(x.low, text, decimals));
    setText(byId('map-right'), withUnit(x.high, text, decimals));
  }

  drawLegend() {
    const context = this.legend.getContext('2d');
    const gradient = new ImageData(1, viridis.length);
    new Uint32Array(gradient.data.buffer).set(viridis.toReversed());
    this.legend.width = 1;
    this.legend.height = viridis.length;
    context.putImageData(gradient, 0, 0);
  }

  describe() {
    const { text, decimals } = kUnits[this.unit];
    const { low, high } = this.zRange;
    return (
      `Height map of the last ${this.rows} profiles. ` +
      `Colours reach from ${number(low, decimals)} to ${withUnit(high, text, decimals)}.`
    );
  }
}
