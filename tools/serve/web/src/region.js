// Regions of the full sensor, as {x, y, width, height} in pixels, and the steps that limits allow.

export function wholeSensor(limits) {
  return { x: 0, y: 0, width: limits.sensor_width, height: limits.sensor_height };
}

/** The allowed region next to this one. */
export function snapped(region, limits) {
  const across = snappedAxis(region.x, region.width, {
    all: limits.sensor_width,
    placeStep: limits.x_step,
    sizeStep: limits.width_step,
    leastPlace: limits.least_x,
    leastSize: limits.least_width,
  });
  const down = snappedAxis(region.y, region.height, {
    all: limits.sensor_height,
    placeStep: limits.y_step,
    sizeStep: limits.height_step,
    leastPlace: limits.least_y,
    leastSize: limits.least_height,
  });
  return { x: across.place, y: down.place, width: across.size, height: down.size };
}

function snappedAxis(place, size, { all, placeStep, sizeStep, leastPlace, leastSize }) {
  const step = sizeStep || 1;
  const least = Math.ceil((leastSize || step) / step) * step;
  const fit = (value, room) =>
    Math.max(least, Math.min(Math.round(value / step) * step, Math.floor(room / step) * step));
  const wanted = fit(size, all - (leastPlace || 0));
  const from = placeStep || 1;
  const lowest = Math.ceil((leastPlace || 0) / from) * from;
  const highest = Math.floor((all - wanted) / from) * from;
  const there = Math.max(lowest, Math.min(Math.round(place / from) * from, highest));
  return { place: there, size: fit(wanted, all - there) };
}

/** The region between two corners, in any order. */
export function between(a, b) {
  return {
    x: Math.min(a.x, b.x),
    y: Math.min(a.y, b.y),
    width: Math.abs(a.x - b.x),
    height: Math.abs(a.y - b.y),
  };
}

/**
 * The region with an edge or a corner elsewhere.
 *
 * @param grip  which part is held: -1 the left or upper edge, 1 the right or lower one, 0 neither;
 *              0 for both is the middle, which moves the whole region.
 */
export function dragged(region, grip, { dx, dy }) {
  if (grip.x === 0 && grip.y === 0) return { ...region, x: region.x + dx, y: region.y + dy };
  const left = region.x + (grip.x < 0 ? dx : 0);
  const right = region.x + region.width + (grip.x > 0 ? dx : 0);
  const top = region.y + (grip.y < 0 ? dy : 0);
  const bottom = region.y + region.height + (grip.y > 0 ? dy : 0);
  return between({ x: left, y: top }, { x: right, y: bottom });
}
