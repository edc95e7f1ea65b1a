const formats = new Map();

/** A number with a fixed count of decimals, thousands apart. */
export function number(value, decimals = 0) {
  if (typeof value !== 'number' || !Number.isFinite(value)) return '–';
  if (!formats.has(decimals)) {
    formats.set(
      decimals,
      new Intl.NumberFormat('en-GB', {
        minimumFractionDigits: decimals,
        maximumFractionDigits: decimals,
      }),
    );
  }
  return formats.get(decimals).format(value);
}

const kUnits = { us: 'µs', decibels: 'dB' };

/** Units as people write them; the daemon writes them in ASCII. */
export function unitText(unit) {
  const plain = (unit ?? '').trim();
  return kUnits[plain] ?? plain;
}

export function withUnit(value, unit, decimals = 0) {
  const text = number(value, decimals);
  return text === '–' || !unit ? text : `${text} ${unit}`;
}

/** Seconds as people say them: 12.5 s, 3 min 20 s, 2 h 5 min. */
export function duration(seconds) {
  if (typeof seconds !== 'number') return '–';
  if (seconds < 60) return withUnit(seconds, 's', 1);
  const minutes = Math.floor(seconds / 60);
  if (minutes < 60) return `${minutes} min ${Math.floor(seconds % 60)} s`;
  return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

export function regionText({ x, y, width, height }) {
  return `${width} × ${height} at ${x}, ${y}`;
}
