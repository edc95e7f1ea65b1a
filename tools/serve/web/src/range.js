const kMargin = 0.08;
const kSmall = 0.5;
const kPatience = 3000;

/**
 * The range of an axis that follows data without trembling. It grows at once when data leaves it,
 * and shrinks when data has needed less than half of it for a while.
 */
export class SteadyRange {
  constructor(leastSpan) {
    this.leastSpan = leastSpan;
    this.clear();
  }

  clear() {
    this.low = NaN;
    this.high = NaN;
    this.fitting = 0;
  }

  get known() {
    return Number.isFinite(this.low);
  }

  /** @return whether the range changed. */
  follow(low, high, now) {
    if (!Number.isFinite(low) || !Number.isFinite(high)) return false;
    if (!this.known) return this.take(low, high, now);
    if (low < this.low || high > this.high) {
      return this.take(Math.min(low, this.low), Math.max(high, this.high), now);
    }
    if (high - low > kSmall * (this.high - this.low)) this.fitting = now;
    const roomy = this.high - this.low > 1.5 * this.leastSpan;
    if (roomy && now - this.fitting > kPatience) return this.take(low, high, now);
    return false;
  }

  take(low, high, now) {
    const middle = (low + high) / 2;
    const half = Math.max(high - low, this.leastSpan) / 2;
    this.low = middle - half * (1 + 2 * kMargin);
    this.high = middle + half * (1 + 2 * kMargin);
    this.fitting = now;
    return true;
  }
}

/** Smallest and largest value. */
export function extent(values) {
  let low = Infinity;
  let high = -Infinity;
  for (const value of values) {
    if (value < low) low = value;
    if (value > high) high = value;
  }
  return { low, high };
}

/** The range without the outermost hundredth at each end, so that a stray point does not count. */
export function usualExtent(values) {
  const sorted = Float32Array.from(values).sort();
  const cut = Math.floor(sorted.length / 100);
  return { low: sorted[cut] ?? NaN, high: sorted[sorted.length - 1 - cut] ?? NaN };
}

/** The usual distance of neighbours; gaps do not count. */
export function usualStep(values) {
  const stride = Math.max(1, Math.floor(values.length / 128));
  const steps = [];
  for (let i = 1; i < values.length; i += stride) steps.push(Math.abs(values[i] - values[i - 1]));
  steps.sort((a, b) => a - b);
  return steps[Math.floor(steps.length / 2)] || 1;
}
