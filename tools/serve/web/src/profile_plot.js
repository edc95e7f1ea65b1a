import uPlot from 'uplot';

import { Description } from './description.js';
import { byId, setText, styleValue } from './dom.js';
import { number, withUnit } from './format.js';
import { SteadyRange, extent, usualStep } from './range.js';

const kGap = 2.5;
const kLeastHeight = 180;
const kNames = {
  mm: { x: 'across x (mm)', z: 'height z (mm)', decimals: 2, leastSpan: 1 },
  px: { x: 'column (pixels)', z: 'row (pixels)', decimals: 1, leastSpan: 16 },
};

/** The newest profile as a curve. Dragging zooms, a double click shows everything again. */
export class ProfilePlot {
  constructor({ onDrawn }) {
    this.box = byId('profile-plot');
    this.readout = byId('profile-readout');
    this.autoButton = byId('profile-auto');
    this.onDrawn = onDrawn;
    this.frame = null;
    this.drawn = null;
    this.unit = null;
    this.plot = null;
    this.zoom = null;
    this.description = new Description((text) =>
      this.plot.ctx.canvas.setAttribute('aria-label', text),
    );
    new ResizeObserver(() => this.fit()).observe(this.box);
    this.autoButton.addEventListener('click', () => this.setZoom(null));
  }

  show(frame) {
    this.frame = frame;
    if (frame.unit !== this.unit) this.rebuild(frame.unit);
    this.follow(frame);
    this.plot.setData(risingPoints(frame), true);
    this.description.update(() => this.describe(frame));
  }

  /** Colours come from the style sheet, so that they follow the theme. */
  recolour() {
    this.colours = {
      text: styleValue('--dim'),
      grid: styleValue('--grid'),
      line: styleValue('--curve'),
    };
    this.plot?.redraw(false);
  }

  follow({ x, z }) {
    const now = performance.now();
    const across = extent(x);
    const up = extent(z);
    this.xRange.follow(across.low, across.high, now);
    this.zRange.follow(up.low, up.high, now);
  }

  rebuild(unit) {
    this.unit = unit;
    this.names = kNames[unit];
    this.xRange = new SteadyRange(this.names.leastSpan);
    this.zRange = new SteadyRange(this.names.leastSpan);
    this.setZoom(null);
    this.plot?.destroy();
    if (!this.colours) this.recolour();
    this.plot = new uPlot(this.options(), [[], []], this.box);
    this.plot.ctx.canvas.setAttribute('role', 'img');
    this.plot.ctx.canvas.id = 'profile-canvas';
  }

  options() {
    const axis = (label) => ({
      label,
      labelSize: 20,
      labelGap: 0,
      labelFont: '12px system-ui, sans-serif',
      font: '12px system-ui, sans-serif',
      stroke: () => this.colours.text,
      grid: { stroke: () => this.colours.grid, width: 1 },
      ticks: { stroke: () => this.colours.grid, width: 1, size: 4 },
    });
    return {
      ...this.size(),
      padding: [8, 12, 0, 0],
      legend: { show: false },
      cursor: { drag: { x: true, y: true, uni: 12, setScale: false }, points: { size: 6 } },
      scales: {
        x: { time: false, range: () => this.shownRange('x') },
        // Rows count downwards, as in the camera's image.
        y: { dir: this.unit === 'px' ? -1 : 1, range: () => this.shownRange('z') },
      },
      axes: [
        { ...axis(this.names.x), size: 28 },
        { ...axis(this.names.z), size: 48 },
      ],
      series: [
        {},
        {
          stroke: () => this.colours.line,
          width: 1.25,
          points: { show: false },
          paths: () => this.curve(),
        },
      ],
      hooks: {
        draw: [() => this.tellDrawn()],
        setSelect: [() => this.zoomToSelection()],
        setCursor: [() => this.showReadout()],
        ready: [(plot) => plot.over.addEventListener('dblclick', () => this.setZoom(null))],
      },
    };
  }

  shownRange(axis) {
    if (this.zoom) return this.zoom[axis];
    const range = axis === 'x' ? this.xRange : this.zRange;
    return range.known ? [range.low, range.high] : [0, 1];
  }

  zoomToSelection() {
    const { left, top, width, height } = this.plot.select;
    if (width < 4 && height < 4) return;
    const at = (place, scale) => this.plot.posToVal(place, scale);
    const sorted = (a, b) => (a < b ? [a, b] : [b, a]);
    this.setZoom({
      x: width < 4 ? this.shownRange('x') : sorted(at(left, 'x'), at(left + width, 'x')),
      z: height < 4 ? this.shownRange('z') : sorted(at(top, 'y'), at(top + height, 'y')),
    });
    this.plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
  }

  setZoom(zoom) {
    this.zoom = zoom;
    this.autoButton.disabled = !zoom;
    if (this.plot) this.plot.setData(this.plot.data, true);
  }

  showReadout() {
    const { idx } = this.plot.cursor;
    const [x, z] = this.plot.data;
    const there = idx != null && z[idx] != null;
    const { decimals } = this.names;
    const unit = this.unit === 'mm' ? 'mm' : '';
    const value = (v) => withUnit(v, unit, decimals);
    setText(this.readout, there ? `x ${value(x[idx])}, z ${value(z[idx])}` : '');
  }

  tellDrawn() {
    if (!this.frame || this.frame === this.drawn) return;
    this.drawn = this.frame;
    this.onDrawn(this.frame);
  }

  // The line goes from column to column. Beside a step, x may go back in millimetres, where a line
  // in the order of x would jump up and down.
  curve() {
    const stroke = new Path2D();
    const { x, z, points } = this.frame;
    const widest = kGap * usualStep(x);
    let last = NaN;
    for (let i = 0; i < points; i++) {
      const across = this.plot.valToPos(x[i], 'x', true);
      const up = this.plot.valToPos(z[i], 'y', true);
      if (Math.abs(x[i] - last) <= widest) stroke.lineTo(across, up);
      else stroke.moveTo(across, up);
      last = x[i];
    }
    return { stroke, fill: null, clip: null, band: null, gaps: null, flags: 0 };
  }

  size() {
    return {
      width: Math.max(200, Math.floor(this.box.clientWidth)),
      height: Math.max(kLeastHeight, Math.floor(this.box.clientHeight)),
    };
  }

  fit() {
    this.plot?.setSize(this.size());
  }

  describe({ points, x, z }) {
    if (points === 0) return 'Profile: no points.';
    const unit = this.unit === 'mm' ? ' mm' : '';
    const text = ({ low, high }) =>
      `${number(low, this.names.decimals)} to ${number(high, this.names.decimals)}${unit}`;
    return (
      `Profile of ${points} points. ${this.names.x}: ${text(extent(x))}; ` +
      `${this.names.z}: ${text(extent(z))}.`
    );
  }
}

// uPlot finds the point under the pointer by its x, which has to rise.
function risingPoints({ x, z, points }) {
  if (rises(x)) return [x, z];
  const order = Uint32Array.from({ length: points }, (_, i) => i).sort((a, b) => x[a] - x[b]);
  return [Float32Array.from(order, (i) => x[i]), Float32Array.from(order, (i) => z[i])];
}

function rises(x) {
  for (let i = 1; i < x.length; i++) if (x[i] < x[i - 1]) return false;
  return true;
}
