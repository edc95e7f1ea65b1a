// Viridis: equal steps look equally large, in print and to people who see red and green alike, too.
const kViridis = [
  [68, 1, 84],
  [72, 40, 120],
  [62, 73, 137],
  [49, 104, 142],
  [38, 130, 142],
  [31, 158, 137],
  [53, 183, 121],
  [110, 206, 88],
  [181, 222, 43],
  [253, 231, 37],
];
const kOpaque = 0xff000000;

/** 256 pixels of a canvas, from low to high. */
export const viridis = Uint32Array.from({ length: 256 }, (_, i) => {
  const place = (i / 255) * (kViridis.length - 1);
  const below = Math.min(Math.floor(place), kViridis.length - 2);
  const part = place - below;
  const [red, green, blue] = kViridis[below].map((value, channel) =>
    Math.round(value + part * (kViridis[below + 1][channel] - value)),
  );
  return pixel(red, green, blue);
});

/** 256 pixels of a canvas, from black to white. */
export const grays = Uint32Array.from({ length: 256 }, (_, i) => pixel(i, i, i));

function pixel(red, green, blue) {
  return (kOpaque | (blue << 16) | (green << 8) | red) >>> 0;
}
