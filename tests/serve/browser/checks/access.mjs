import assert from 'node:assert/strict';

import { axeSource, firstFrame, textIs, until } from '../browser.mjs';
import { stateIs } from './operation.mjs';

const kMostTabs = 80;
const kWidths = [360, 600, 900, 1280];

export const checks = {
  'without a token nothing can be changed': async ({ browser, daemon }) => {
    const page = await browser.open({ address: `${daemon.base}/` });
    assert.equal(await page.isVisible('#token-form'), true);
    assert.equal(await page.isDisabled('#laser-button'), true);
    assert.equal(await page.isDisabled('#power_percent'), true);
    await page.keyboard.press('l');
    await page.fill('#token', 'wrong');
    await page.press('#token', 'Enter');
    await page.click('#laser-button');
    await until(
      async () => (await page.textContent('#token-hint')).includes('refused'),
      'the page does not say that the token was refused',
    );
    assert.equal(await page.isDisabled('#laser-button'), true);
    await stateIs(daemon, 'laser', true);
    await page.fill('#token', daemon.token);
    await page.press('#token', 'Enter');
    await page.click('#laser-button');
    await stateIs(daemon, 'laser', false);
  },

  'the keyboard reaches everything': async ({ browser }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    const wanted = await page.evaluate(reachable);
    const seen = new Set();
    for (let i = 0; i < kMostTabs; i++) {
      await page.keyboard.press('Tab');
      seen.add(await page.evaluate(() => document.activeElement.id));
    }
    assert.deepEqual(wanted.filter((id) => !seen.has(id)), []);
    return `${wanted.length} controls`;
  },

  'the keyboard alone operates the sensor': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    await page.keyboard.press('Space');
    await stateIs(daemon, 'acquisition', false);
    await textIs(page, '#acquisition-state', 'Stopped');
    await page.keyboard.press('Space');
    await stateIs(daemon, 'acquisition', true);
    await page.keyboard.press('l');
    await stateIs(daemon, 'laser', false);
    await textIs(page, '#laser-state', 'Laser off');
    await page.keyboard.press('l');
    await page.waitForTimeout(500);
    await stateIs(daemon, 'laser', false);
    const [download] = await Promise.all([
      page.waitForEvent('download'),
      page.keyboard.press('s'),
    ]);
    assert.match(download.suggestedFilename(), /\.png$/);
    await tabTo(page, 'power_percent');
    await page.keyboard.type('3l');
    assert.equal(await page.isVisible('#help'), false);
    await page.keyboard.press('Escape');
    await page.keyboard.press('Tab');
    await page.keyboard.press('ArrowRight');
    await until(
      async () => (await daemon.get('settings')).power_percent === 51,
      'the slider does not follow the arrow key',
    );
  },

  'the list of keys opens and closes': async ({ browser }) => {
    const page = await browser.open();
    await page.keyboard.press('?');
    assert.equal(await page.isVisible('#help'), true);
    await page.keyboard.press('Escape');
    assert.equal(await page.isVisible('#help'), false);
    await page.click('#help-open');
    await page.click('#help button');
    assert.equal(await page.isVisible('#help'), false);
  },

  'no width needs a horizontal scroll': async ({ browser, daemon }) => {
    for (const mode of ['strips', 'images']) {
      await daemon.setMode(mode);
      for (const width of kWidths) {
        const page = await browser.open({ viewport: { width, height: 780 } });
        await firstFrame(page, mode === 'images' ? 'image' : 'profile');
        const needed = await page.evaluate(() => document.documentElement.scrollWidth);
        assert.ok(needed <= width, `${mode} at ${width} pixels needs ${needed}`);
        await browser.closePages();
      }
    }
  },

  'a phone keeps the laser in view': async ({ browser }) => {
    const page = await browser.open({ viewport: { width: 360, height: 780 } });
    await page.evaluate(() => window.scrollTo(0, document.body.scrollHeight));
    await page.waitForTimeout(200);
    for (const id of ['laser-state', 'laser-button']) {
      const box = await page.locator(`#${id}`).boundingBox();
      assert.ok(box.y >= 0 && box.y + box.height <= 780, `${id} is at ${box.y}`);
    }
  },

  'dark and light follow the system and the switch': async ({ browser }) => {
    const page = await browser.open();
    assert.ok((await brightness(page)) < 60, 'dark is not dark');
    await page.emulateMedia({ colorScheme: 'light' });
    await until(async () => (await brightness(page)) > 200, 'light is not light');
    await page.selectOption('#theme', 'dark');
    assert.ok((await brightness(page)) < 60, 'the switch does not reach dark');
    await page.reload();
    assert.ok((await brightness(page)) < 60, 'the choice is forgotten');
  },

  'accessibility has no serious violation': async ({ browser, daemon }) => {
    const found = [];
    let rules = 0;
    for (const mode of ['strips', 'images']) {
      await daemon.setMode(mode);
      for (const colorScheme of ['dark', 'light']) {
        for (const width of [1280, 360]) {
          const page = await browser.open({ colorScheme, viewport: { width, height: 780 } });
          await firstFrame(page, mode === 'images' ? 'image' : 'profile');
          // Errors have colours of their own.
          await page.fill('#power_percent', '101');
          await page.press('#power_percent', 'Enter');
          await until(() => page.textContent('#error-power_percent'), 'no error is shown');
          const { violations, passes } = await scan(page);
          rules = Math.max(rules, passes.length);
          found.push(...violations.map((text) => `${mode} ${colorScheme} ${width}: ${text}`));
          await browser.closePages();
        }
      }
    }
    const page = await browser.open();
    await page.keyboard.press('?');
    found.push(...(await scan(page)).violations);
    assert.deepEqual(found, []);
    return `${rules} rules passed`;
  },

  'the texts of the pictures say what is there': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    const label = (id) => page.getAttribute(id, 'aria-label');
    const says = (id, text) =>
      until(async () => text.test((await label(id)) ?? ''), `${id} has no such text`);
    await says('#profile-canvas', /Profile of \d+ points/);
    await says('#map-canvas', /last \d+ profiles/);
    const first = await label('#profile-canvas');
    await page.waitForTimeout(2000);
    assert.equal(await label('#profile-canvas'), first, 'the text changes too often');
    await daemon.setMode('images');
    await until(
      async () => /Camera image of/.test(await page.textContent('#camera-text')),
      'the camera image has no text',
    );
    return first;
  },
};

async function tabTo(page, id) {
  for (let i = 0; i < kMostTabs; i++) {
    await page.keyboard.press('Tab');
    if ((await page.evaluate(() => document.activeElement.id)) === id) return;
  }
  throw new Error(`the Tab key does not reach ${id}`);
}

async function brightness(page) {
  const colour = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  const parts = colour.match(/\d+/g).slice(0, 3).map(Number);
  return parts.reduce((sum, part) => sum + part) / 3;
}

async function scan(page) {
  await page.evaluate(axeSource);
  const { violations, passes } = await page.evaluate(() =>
    window.axe.run(document, { resultTypes: ['violations'] }),
  );
  const serious = violations.filter(({ impact }) => ['serious', 'critical'].includes(impact));
  return {
    passes,
    violations: serious.map(
      ({ id, nodes }) => `${id}: ${nodes.map(({ target }) => target.join(' ')).join(', ')}`,
    ),
  };
}

// Runs in the page. Of a group of radio buttons, Tab reaches the chosen one.
function reachable() {
  const all = document.querySelectorAll('button, input, select, summary, [tabindex="0"]');
  return [...all]
    .filter((element) => element.id && !element.matches(':disabled, [type="radio"]:not(:checked)'))
    .filter((element) => element.checkVisibility({ visibilityProperty: true }))
    .map(({ id }) => id);
}
