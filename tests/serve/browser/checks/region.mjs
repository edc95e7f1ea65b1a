import assert from 'node:assert/strict';
import { isDeepStrictEqual } from 'node:util';

import { firstFrame, textIs, until } from '../browser.mjs';

const kMembers = ['x', 'y', 'width', 'height'];

export const checks = {
  'a region drawn with the mouse arrives': async ({ browser, daemon }) => {
    await daemon.setMode('images');
    const page = await browser.open();
    await firstFrame(page, 'image');
    const registers = await registerValues(daemon);
    await page.mouse.move(...(await place(page, 0.2, 0.3)));
    await page.mouse.down();
    await page.mouse.move(...(await place(page, 0.4, 0.4)));
    await page.mouse.move(...(await place(page, 0.7, 0.8)));
    await page.mouse.up();
    const drawn = await fields(page);
    await near(daemon, drawn, { left: 0.2, top: 0.3, right: 0.7, bottom: 0.8 });
    await page.click('#region-apply');
    await inForce(daemon, drawn);
    await settled(page);
    const found = await until(async () => {
      const now = await registerValues(daemon);
      const holding = (value) =>
        [...now].find(([name, is]) => is === value && registers.get(name) !== value)?.[0];
      const names = [holding(drawn.width), holding(drawn.height)];
      return names.every(Boolean) && names;
    }, 'no registers have taken the width and the height');
    const image = await until(async () => {
      const { region } = await page.evaluate(() => window.tessaline.image);
      return region.width === drawn.width && region;
    }, 'no image of the new region came');
    assert.deepEqual(image, drawn);
    return `${JSON.stringify(drawn)}, in ${found.join(' and ')}`;
  },

  'a region drawn with a finger arrives': async ({ browser, daemon }) => {
    await daemon.setMode('images');
    const phone = { viewport: { width: 360, height: 780 }, hasTouch: true, isMobile: true };
    const page = await browser.open(phone);
    await firstFrame(page, 'image');
    const client = await page.context().newCDPSession(page);
    const touch = async (type, ...at) => {
      const touchPoints = at.length ? [{ x: at[0], y: at[1] }] : [];
      await client.send('Input.dispatchTouchEvent', { type, touchPoints });
    };
    await touch('touchStart', ...(await place(page, 0.25, 0.25)));
    await touch('touchMove', ...(await place(page, 0.4, 0.4)));
    await touch('touchMove', ...(await place(page, 0.75, 0.7)));
    await touch('touchEnd');
    const drawn = await fields(page);
    await near(daemon, drawn, { left: 0.25, top: 0.25, right: 0.75, bottom: 0.7 });
    await page.tap('#region-apply');
    await inForce(daemon, drawn);
  },

  'a grip resizes, and undo takes it back': async ({ browser }) => {
    const page = await browser.open();
    const before = await fields(page);
    await page.locator('#camera-canvas').scrollIntoViewIfNeeded();
    await page.mouse.move(...(await place(page, 0.99, 0.5)));
    await page.mouse.down();
    await page.mouse.move(...(await place(page, 0.5, 0.5)), { steps: 3 });
    await page.mouse.up();
    const after = await fields(page);
    assert.ok(Math.abs(after.width / before.width - 0.5) < 0.05, JSON.stringify(after));
    assert.deepEqual({ ...after, width: 0 }, { ...before, width: 0 });
    await page.click('#region-undo');
    assert.deepEqual(await fields(page), before);
  },

  'numbers snap to the steps and arrive': async ({ browser, daemon }) => {
    const page = await browser.open();
    const { region: limits } = await daemon.get('limits');
    await type(page, 'width', 643);
    await type(page, 'height', 401);
    await type(page, 'x', 101);
    await type(page, 'y', 103);
    const wanted = await fields(page);
    for (const name of kMembers) {
      assert.equal(wanted[name] % (limits[`${name}_step`] ?? 1), 0, `${name} ${wanted[name]}`);
    }
    await page.click('#region-apply');
    await inForce(daemon, wanted);
    await page.click('#region-whole');
    await inForce(daemon, { x: 0, y: 0, width: limits.sensor_width, height: limits.sensor_height });
  },

  'arrow keys move and resize': async ({ browser, daemon }) => {
    const { region: limits } = await daemon.get('limits');
    const step = { x: limits.x_step ?? 1, y: limits.y_step ?? 1 };
    const size = { width: limits.width_step ?? 1, height: limits.height_step ?? 1 };
    const start = { x: 10 * step.x, y: 10 * step.y, width: 640, height: 400 };
    await daemon.patch({ region: start });
    const page = await browser.open();
    await page.focus('#camera-canvas');
    await page.keyboard.press('ArrowRight');
    await page.keyboard.press('ArrowDown');
    await page.keyboard.press('Shift+ArrowLeft');
    await page.keyboard.press('Shift+ArrowUp');
    const wanted = {
      x: start.x + step.x,
      y: start.y + step.y,
      width: start.width - size.width,
      height: start.height - size.height,
    };
    assert.deepEqual(await fields(page), wanted);
    await page.keyboard.press('Enter');
    await inForce(daemon, wanted);
  },

  'a region that is being drawn is not overwritten': async ({ browser, daemon }) => {
    const page = await browser.open();
    await type(page, 'width', 640);
    const drawn = await fields(page);
    const { region } = await daemon.get('settings');
    await daemon.patch({ region: { ...region, height: 400 } });
    await until(
      () => page.evaluate(() => window.tessaline.state.region.height === 400),
      'the state did not come',
    );
    assert.deepEqual(await fields(page), drawn);
    await page.click('#region-undo');
    assert.equal((await fields(page)).height, 400);
  },
};

async function place(page, across, down) {
  const box = await page.locator('#camera-canvas').boundingBox();
  return [box.x + across * box.width, box.y + down * box.height];
}

function fields(page) {
  return page.evaluate(
    (names) =>
      Object.fromEntries(
        names.map((name) => [name, Number(document.getElementById(`region-${name}`).value)]),
      ),
    kMembers,
  );
}

async function type(page, name, value) {
  await page.fill(`#region-${name}`, String(value));
  await page.press(`#region-${name}`, 'Tab');
}

// Edges are where they were drawn, but for the steps and a pixel of the screen.
async function near(daemon, { x, y, width, height }, { left, top, right, bottom }) {
  const { region } = await daemon.get('limits');
  const edge = (value, part, all, step) =>
    assert.ok(
      Math.abs(value - part * all) <= step + all / 150,
      `an edge is at ${value}, drawn at ${part * all}`,
    );
  const across = Math.max(region.x_step, region.width_step);
  const down = Math.max(region.y_step, region.height_step);
  edge(x, left, region.sensor_width, across);
  edge(y, top, region.sensor_height, down);
  edge(x + width, right, region.sensor_width, 2 * across);
  edge(y + height, bottom, region.sensor_height, 2 * down);
}

function inForce(daemon, wanted) {
  const read = async () => (await daemon.get('settings')).region;
  return until(
    async () => isDeepStrictEqual(pick(await read()), wanted),
    async () => `in force is ${JSON.stringify(await read())}, not ${JSON.stringify(wanted)}`,
  );
}

function pick({ x, y, width, height }) {
  return { x, y, width, height };
}

async function settled(page) {
  await textIs(page, '#region-error', '');
  await until(() => page.isDisabled('#region-apply'), 'the region stays unapplied');
}

async function registerValues(daemon) {
  const { registers } = await daemon.get('registers');
  return new Map(registers.map(({ block, name, value }) => [`${block} ${name}`, Number(value)]));
}
