import { gripPlaces } from './camera_view.js';
import { byId, setText } from './dom.js';
import { Refusal } from './api.js';
import { between, dragged, snapped, wholeSensor } from './region.js';

const kReach = { mouse: 9, pen: 12, touch: 22 };
const kLeastDrag = 4;
const kMembers = ['x', 'y', 'width', 'height'];
const kArrows = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

/**
 * The region: drawn with the pointer, moved with arrow keys, or written as four numbers. It is sent
 * when it is applied. Until then it is a draft, which what the daemon says leaves alone.
 */
export class RegionEditor {
  constructor({ view, apply }) {
    this.view = view;
    this.apply = apply;
    this.canvas = byId('camera-canvas');
    this.limits = null;
    this.inForce = null;
    this.draft = null;
    this.drag = null;
    this.enabled = false;
    this.fields = Object.fromEntries(kMembers.map((name) => [name, byId(`region-${name}`)]));
    this.listen();
  }

  setLimits(limits) {
    this.limits = limits;
    const { fields } = this;
    const set = (field, min, max, step) => Object.assign(field, { min, max, step });
    set(fields.x, limits.least_x ?? 0, limits.sensor_width, limits.x_step ?? 1);
    set(fields.y, limits.least_y ?? 0, limits.sensor_height, limits.y_step ?? 1);
    set(fields.width, limits.least_width ?? 1, limits.sensor_width, limits.width_step ?? 1);
    set(fields.height, limits.least_height ?? 1, limits.sensor_height, limits.height_step ?? 1);
    setText(
      byId('region-steps'),
      `Sensor ${limits.sensor_width} × ${limits.sensor_height} pixels. ` +
        `Steps: x ${fields.x.step}, y ${fields.y.step}, width ${fields.width.step}, ` +
        `height ${fields.height.step}.`,
    );
  }

  show(region) {
    this.inForce = region;
    if (!this.edited && !this.typing) this.setDraft(region);
  }

  get edited() {
    return this.draft && this.inForce && !this.settled;
  }

  get typing() {
    return kMembers.some((name) => this.fields[name] === document.activeElement && this.typed);
  }

  setDraft(region, byUser = false) {
    this.draft = region;
    this.settled = !byUser;
    for (const name of kMembers) this.fields[name].value = region[name];
    byId('region-apply').disabled = !this.edited;
    byId('region-undo').disabled = !this.edited;
    this.view.setDraft(region, this.edited);
  }

  edit(region) {
    this.fail('');
    this.setDraft(snapped(region, this.limits), true);
  }

  undo() {
    this.fail('');
    this.setDraft(this.inForce);
  }

  async send(region) {
    this.fail('');
    try {
      const settings = await this.apply(region);
      this.inForce = settings.region;
      this.setDraft(settings.region);
    } catch (error) {
      if (!(error instanceof Refusal)) throw error;
      this.setDraft(region, true);
      this.fail(error.text);
    }
  }

  fail(text) {
    setText(byId('region-error'), text);
    this.typed = false;
  }

  listen() {
    byId('region-apply').addEventListener('click', () => this.send(this.draft));
    byId('region-undo').addEventListener('click', () => this.undo());
    byId('region-whole').addEventListener('click', () => this.send(wholeSensor(this.limits)));
    for (const name of kMembers) this.listenToField(this.fields[name], name);
    const on = (name, react) =>
      this.canvas.addEventListener(name, (event) => {
        if (this.enabled && this.limits && this.draft) react(event);
      });
    on('pointerdown', (event) => this.beginDrag(event));
    on('pointermove', (event) => this.moveDrag(event));
    on('pointerup', () => this.endDrag());
    on('pointercancel', () => this.cancelDrag());
    on('keydown', (event) => this.key(event));
  }

  listenToField(field, name) {
    field.addEventListener('input', () => {
      this.typed = true;
    });
    field.addEventListener('change', () => {
      if (field.value === '' || !this.limits) return;
      this.edit({ ...this.draft, [name]: Number(field.value) });
    });
    field.addEventListener('keydown', (event) => {
      if (event.key === 'Escape') this.undo();
      // The browser reports the change after this key.
      if (event.key === 'Enter') setTimeout(() => this.edited && this.send(this.draft));
    });
  }

  beginDrag(event) {
    if (event.button !== 0) return;
    const start = this.view.toSensor(event);
    const grip = this.gripAt(start, kReach[event.pointerType] ?? kReach.mouse);
    this.drag = { start, grip, before: this.draft, wasEdited: this.edited };
    this.canvas.setPointerCapture(event.pointerId);
    this.canvas.focus({ preventScroll: true });
    event.preventDefault();
  }

  moveDrag(event) {
    const here = this.view.toSensor(event);
    if (!this.drag) {
      const grip = this.gripAt(here, kReach[event.pointerType] ?? kReach.mouse);
      this.canvas.style.cursor = cursorOf(grip);
      return;
    }
    const { start, grip, before } = this.drag;
    const by = { dx: here.x - start.x, dy: here.y - start.y };
    // A click that trembles draws nothing.
    if (Math.hypot(by.dx, by.dy) / this.view.scale < kLeastDrag) return;
    this.edit(grip ? dragged(before, grip, by) : between(start, here));
  }

  endDrag() {
    this.drag = null;
  }

  cancelDrag() {
    if (!this.drag) return;
    this.setDraft(this.drag.before, this.drag.wasEdited);
    this.drag = null;
  }

  gripAt({ x, y }, reach) {
    const near = reach * this.view.scale;
    const found = gripPlaces(this.draft, this.view.sensor).find(
      ([gx, gy]) => Math.abs(gx - x) < near && Math.abs(gy - y) < near,
    );
    return found?.[2];
  }

  key(event) {
    if (event.key === 'Enter' && this.edited) this.send(this.draft);
    else if (event.key === 'Escape') this.undo();
    else if (kArrows[event.key]) this.arrow(event);
    else return;
    event.preventDefault();
  }

  arrow(event) {
    const [right, down] = kArrows[event.key];
    const times = event.ctrlKey ? 10 : 1;
    const { x, y, width, height } = this.draft;
    const { limits } = this;
    const by = (direction, step) => direction * times * (step || 1);
    this.edit(
      event.shiftKey
        ? {
            x,
            y,
            width: width + by(right, limits.width_step),
            height: height + by(down, limits.height_step),
          }
        : { x: x + by(right, limits.x_step), y: y + by(down, limits.y_step), width, height },
    );
  }
}

function cursorOf(grip) {
  if (!grip) return 'crosshair';
  if (grip.x === 0 && grip.y === 0) return 'move';
  if (grip.x === 0) return 'ns-resize';
  if (grip.y === 0) return 'ew-resize';
  return grip.x === grip.y ? 'nwse-resize' : 'nesw-resize';
}
