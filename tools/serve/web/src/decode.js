const kLayout = 1;
const kLeastHeader = 64;

/**
 * Reads a message of the streams "profile" and "image". Numbers are little endian, as are all
 * processors that run browsers, so arrays are views of the message.
 *
 * @throws Error when the message is not one that this page knows.
 */
export function decode(buffer) {
  if (buffer.byteLength < kLeastHeader) throw new Error('a frame is too short');
  const view = new DataView(buffer);
  const mark = String.fromCharCode(...new Uint8Array(buffer, 0, 4));
  const layout = view.getUint16(4, true);
  if (layout !== kLayout) throw new Error(`frames have layout ${layout}, not ${kLayout}`);
  const header = view.getUint16(6, true);
  const frame = {
    id: Number(view.getBigUint64(8, true)),
    ticks: Number(view.getBigUint64(16, true)),
    encoder: Number(view.getBigUint64(24, true)),
    clock: view.getFloat64(32, true),
    region: {
      x: view.getUint16(48, true),
      y: view.getUint16(50, true),
      width: view.getUint16(52, true),
      height: view.getUint16(54, true),
    },
    generation: view.getUint32(60, true),
  };
  if (mark === 'TSLP') return { ...frame, ...profile(buffer, view, header) };
  if (mark === 'TSLI') return { ...frame, ...image(buffer, view, header) };
  throw new Error(`a frame begins with "${mark}"`);
}

function profile(buffer, view, header) {
  const points = view.getUint32(40, true);
  requireLength(buffer, header + points * 9);
  return {
    kind: 'profile',
    points,
    unit: view.getUint32(44, true) === 1 ? 'mm' : 'px',
    x: new Float32Array(buffer, header, points),
    z: new Float32Array(buffer, header + 4 * points, points),
    peak: new Uint8Array(buffer, header + 8 * points, points),
  };
}

function image(buffer, view, header) {
  const width = view.getUint32(40, true);
  const height = view.getUint32(44, true);
  requireLength(buffer, header + width * height);
  return {
    kind: 'image',
    width,
    height,
    scale: view.getUint32(56, true) || 1,
    gray: new Uint8Array(buffer, header, width * height),
  };
}

function requireLength(buffer, bytes) {
  if (buffer.byteLength < bytes) throw new Error('a frame is too short for its header');
}
