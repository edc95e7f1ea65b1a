import { grays } from './colours.js';
import { Description } from './description.js';
import { byId, fitCanvas, make, setText, styleValue } from './dom.js';
import { regionText } from './format.js';

const kGrip = 4;
const kMostOfWindow = 0.62;
const kHeightWithoutPictures = 220;

/**
 * The sensor's area with the newest picture in its place, and the region that is being drawn.
 *
 * Everything is in pixels of the full sensor; the view is the part of it that fills the canvas.
 */
export class CameraView {
  constructor({ onDrawn }) {
    this.canvas = byId('camera-canvas');
    this.context = this.canvas.getContext('2d', { alpha: false });
    this.box = byId('camera-box');
    this.onDrawn = onDrawn;
    this.picture = make('canvas');
    this.frame = null;
    this.draft = null;
    this.sensor = null;
    this.live = false;
    this.zoomed = false;
    this.description = new Description((text) => setText(byId('camera-text'), text));
    new ResizeObserver(() => this.draw()).observe(this.box);
    byId('camera-zoom').addEventListener('change', (event) => {
      this.zoomed = event.target.checked;
      this.draw();
    });
  }

  setSensor({ sensor_width: width, sensor_height: height }) {
    this.sensor = { x: 0, y: 0, width, height };
    this.draw();
  }

  /** Without image mode the sensor's outline is enough, and the last picture would be a lie. */
  setLive(live) {
    if (live === this.live) return;
    this.live = live;
    if (!live) this.frame = null;
    this.draw();
  }

  setDraft(draft, edited) {
    this.draft = draft;
    this.edited = edited;
    this.draw();
  }

  show(frame) {
    this.frame = frame;
    const { width, height, gray } = frame;
    if (this.picture.width !== width || this.picture.height !== height || !this.pixels) {
      this.picture.width = width;
      this.picture.height = height;
      this.pixels = new ImageData(width, height);
    }
    const pixels = new Uint32Array(this.pixels.data.buffer);
    for (let i = 0; i < pixels.length; i++) pixels[i] = grays[gray[i]];
    this.picture.getContext('2d').putImageData(this.pixels, 0, 0);
    this.draw();
    this.onDrawn(frame);
    this.description.update(() => this.describe(frame));
  }

  get view() {
    return this.zoomed && this.frame ? this.frame.region : this.sensor;
  }

  /** How many pixels of the sensor a CSS pixel shows. */
  get scale() {
    return this.view.width / this.canvas.clientWidth;
  }

  /** The place of a pointer on the sensor, held inside it. */
  toSensor({ clientX, clientY }) {
    const box = this.canvas.getBoundingClientRect();
    const hold = (value, most) => Math.max(0, Math.min(value, most));
    return {
      x: hold(this.view.x + (clientX - box.left) * this.scale, this.sensor.width),
      y: hold(this.view.y + (clientY - box.top) * this.scale, this.sensor.height),
    };
  }

  draw() {
    if (!this.sensor || this.box.clientWidth === 0) return;
    const { view } = this;
    const highest = this.live ? window.innerHeight * kMostOfWindow : kHeightWithoutPictures;
    const width = Math.min(this.box.clientWidth, (highest * view.width) / view.height);
    this.canvas.style.width = `${width}px`;
    this.canvas.style.height = `${(width * view.height) / view.width}px`;
    const { ratio } = fitCanvas(this.canvas, width, (width * view.height) / view.width);
    const { context, canvas } = this;
    const scale = canvas.width / view.width;
    context.setTransform(1, 0, 0, 1, 0, 0);
    context.fillStyle = '#0b0e11';
    context.fillRect(0, 0, canvas.width, canvas.height);
    context.setTransform(scale, 0, 0, scale, -view.x * scale, -view.y * scale);
    if (this.frame) this.drawPicture(this.frame);
    if (this.draft) this.drawDraft(this.draft, ratio / scale);
  }

  // The last column and row of a smaller picture may reach beyond the region; they are cut off.
  drawPicture({ region, width, height, scale }) {
    const { context } = this;
    context.save();
    context.beginPath();
    context.rect(region.x, region.y, region.width, region.height);
    context.clip();
    context.imageSmoothingEnabled = this.canvas.width / this.view.width < 2 / scale;
    context.drawImage(this.picture, region.x, region.y, width * scale, height * scale);
    context.restore();
  }

  drawDraft({ x, y, width, height }, unit) {
    const { context } = this;
    const colour = styleValue(this.edited ? '--draft' : '--region');
    context.lineWidth = 1.5 * unit;
    context.strokeStyle = colour;
    context.setLineDash(this.edited ? [6 * unit, 4 * unit] : []);
    const inset = context.lineWidth / 2;
    context.strokeRect(x + inset, y + inset, width - 2 * inset, height - 2 * inset);
    context.setLineDash([]);
    context.fillStyle = colour;
    const grip = kGrip * unit;
    for (const [gx, gy] of gripPlaces({ x, y, width, height }, this.sensor)) {
      context.fillRect(gx - grip, gy - grip, 2 * grip, 2 * grip);
    }
  }

  describe({ region, gray }) {
    let brightest = 0;
    for (let i = 0; i < gray.length; i += 7) if (gray[i] > brightest) brightest = gray[i];
    const light = `Brightest pixel: ${brightest} of 255.`;
    return `Camera image of the region ${regionText(region)}. ${light}`;
  }
}

/**
 * The places where a region can be taken hold of: corners, edges and the middle. The whole sensor
 * cannot be moved, so it has no middle, and a drag that begins there draws.
 */
export function gripPlaces({ x, y, width, height }, sensor) {
  const whole = width === sensor.width && height === sensor.height;
  const parts = [-1, 0, 1];
  return parts
    .flatMap((gy) => parts.map((gx) => ({ x: gx, y: gy })))
    .filter((grip) => !whole || grip.x !== 0 || grip.y !== 0)
    .map((grip) => [x + ((grip.x + 1) * width) / 2, y + ((grip.y + 1) * height) / 2, grip]);
}
