import assert from 'node:assert/strict';
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';

import { firstFrame, until } from '../browser.mjs';

// The belt of the virtual board has few heights where nothing lies on it.
const kLeastColours = 3;
const kChanges = 10;

export const checks = {
  "the curve is the stream's profile": async ({ browser, daemon }) => {
    const truth = daemon.profiles();
    const page = await browser.open();
    try {
      const shown = await until(async () => {
        const profile = await newestProfile(page);
        return profile?.z.length > 0 && truth.seen.has(profile.id) && profile;
      }, 'the page and the stream never had the same frame');
      const { x, z } = truth.seen.get(shown.id);
      assert.deepEqual(shown.z, z);
      assert.deepEqual(shown.x, x);
      return `frame ${shown.id}, ${z.length} points`;
    } finally {
      truth.close();
    }
  },

  'the curve is drawn where its points are': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    // What is drawn stays, so that it can be compared.
    await daemon.put('acquisition', { on: false });
    await page.waitForTimeout(1500);
    const { ink, columns } = await page.evaluate(curveInk);
    assert.ok(ink > 200, `the curve has ${ink} pixels`);
    assert.ok(columns > 0.2, `the curve covers ${columns} of the columns`);
    return `${ink} pixels in ${Math.round(columns * 100)} % of the columns`;
  },

  'the height map has colours and scrolls': async ({ browser }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    const rows = async () => (await page.evaluate(mapRows)).coloured;
    const first = await until(rows, 'the map stays black');
    await until(async () => (await rows()) > first + 5, 'the map does not grow');
    const { colours } = await page.evaluate(mapRows);
    assert.ok(colours > kLeastColours, `the map has ${colours} colours`);
    return `${colours} colours`;
  },

  'the camera image is drawn in its shape': async ({ browser, daemon }) => {
    await daemon.setMode('images');
    const page = await browser.open();
    await firstFrame(page, 'image');
    const seen = await until(() => page.evaluate(brightPixels), 'the camera image stays black');
    const box = await page.locator('#camera-canvas').boundingBox();
    const { region } = await daemon.get('limits');
    const wanted = region.sensor_width / region.sensor_height;
    assert.ok(Math.abs(box.width / box.height / wanted - 1) < 0.01, 'the picture is distorted');
    return `${seen} bright pixels`;
  },

  'how late pictures are (measured, not judged)': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    const profiles = await page.evaluate(latencies);
    await daemon.setMode('images');
    await firstFrame(page, 'image');
    const images = await page.evaluate(latencies);
    assert.ok(profiles.length > 1 && images.length > 1, 'too few frames to measure');
    const changes = await lightChanges(page, daemon);
    return (
      `profiles ${spread(profiles)}, images ${spread(images)}, ` +
      `a change of the scene until it is seen ${spread(changes)}`
    );
  },

  'pictures of the page': async ({ browser, daemon, options }) => {
    if (!options.screenshots) return 'left out, no folder was given';
    mkdirSync(options.screenshots, { recursive: true });
    const views = {
      dark: { viewport: { width: 1440, height: 900 } },
      light: { viewport: { width: 1440, height: 900 }, colorScheme: 'light' },
      phone: { viewport: { width: 360, height: 780 } },
    };
    for (const mode of ['strips', 'images']) {
      await daemon.setMode(mode);
      for (const [name, view] of Object.entries(views)) {
        const page = await browser.open(view);
        await firstFrame(page, mode === 'images' ? 'image' : 'profile');
        await page.waitForTimeout(3000);
        const path = join(options.screenshots, `${mode}-${name}.png`);
        await page.screenshot({ path, fullPage: true });
        await browser.closePages();
      }
    }
    return options.screenshots;
  },
};

// Milliseconds from the request that switches the laser until the page's image shows it. Both
// clocks are this program's, so the way to the sensor is in it, too.
async function lightChanges(page, daemon) {
  await page.evaluate(`window.brightPixels = ${brightPixels}`);
  const times = [];
  for (let i = 0; i < kChanges; i++) {
    const on = i % 2 === 1;
    const start = performance.now();
    const asked = daemon.put('laser', { on });
    await page.evaluate(seesLight, on);
    times.push(performance.now() - start);
    await asked;
  }
  return times;
}

function newestProfile(page) {
  return page.evaluate(() => {
    const { profile } = window.tessaline;
    return profile && { id: profile.id, x: [...profile.x], z: [...profile.z] };
  });
}

// The functions below run in the page.

function curveInk() {
  const canvas = document.getElementById('profile-canvas');
  const { data, width } = canvas
    .getContext('2d')
    .getImageData(0, 0, canvas.width, canvas.height);
  const colour = getComputedStyle(document.documentElement).getPropertyValue('--curve').trim();
  const wanted = [1, 3, 5].map((at) => parseInt(colour.slice(at, at + 2), 16));
  const columns = new Set();
  let ink = 0;
  for (let i = 0; i < data.length; i += 4) {
    const off = wanted.reduce((sum, value, at) => sum + Math.abs(value - data[i + at]), 0);
    if (off > 90 || data[i + 3] < 128) continue;
    ink += 1;
    columns.add((i / 4) % width);
  }
  return { ink, columns: columns.size / width };
}

function mapRows() {
  const canvas = document.getElementById('map-canvas');
  const { width, height } = canvas;
  const { data } = canvas.getContext('2d').getImageData(0, 0, width, height);
  const pixels = new Uint32Array(data.buffer);
  const background = pixels[pixels.length - 1];
  let coloured = 0;
  const colours = new Set();
  for (let row = 0; row < height; row++) {
    const line = pixels.subarray(row * width, (row + 1) * width);
    const lit = line.filter((pixel) => pixel !== background);
    if (lit.length > 0) coloured += 1;
    lit.forEach((pixel) => colours.add(pixel));
  }
  return { coloured, colours: colours.size };
}

function brightPixels() {
  const canvas = document.getElementById('camera-canvas');
  const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
  let bright = 0;
  for (let i = 0; i < data.length; i += 4) {
    // Grey only: the region's outline is coloured.
    if (data[i] > 60 && data[i] === data[i + 1] && data[i] === data[i + 2]) bright += 1;
  }
  return bright;
}

async function seesLight(wanted) {
  while (window.brightPixels() > 0 !== wanted) await new Promise(requestAnimationFrame);
}

async function latencies() {
  const seen = new Map();
  const end = performance.now() + 4000;
  while (performance.now() < end) {
    await new Promise(requestAnimationFrame);
    seen.set(window.tessaline.drawn, window.tessaline.latency);
  }
  return [...seen.values()];
}

function spread(values) {
  const sorted = values.toSorted((a, b) => a - b);
  const at = (part) => Math.round(sorted[Math.floor((sorted.length - 1) * part)]);
  return `median ${at(0.5)} ms, 95 % within ${at(0.95)} ms (${values.length} times)`;
}
