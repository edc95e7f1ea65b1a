import assert from 'node:assert/strict';

import { firstFrame, textIs, until } from '../browser.mjs';

export const checks = {
  'the laser button switches the laser': async ({ browser, daemon }) => {
    const page = await browser.open();
    await textIs(page, '#laser-state', 'Laser on');
    await page.click('#laser-button');
    await stateIs(daemon, 'laser', false);
    await textIs(page, '#laser-state', 'Laser off');
    await textIs(page, '#laser-button', 'Switch laser on');
    await page.click('#laser-button');
    await stateIs(daemon, 'laser', true);
    await textIs(page, '#laser-state', 'Laser on');
  },

  'acquisition stops and starts': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    await page.click('#acquisition-button');
    await stateIs(daemon, 'acquisition', false);
    await page.waitForTimeout(500);
    const id = await profileId(page);
    await page.waitForTimeout(700);
    assert.equal(await profileId(page), id, 'profiles still come');
    await page.click('#acquisition-button');
    await stateIs(daemon, 'acquisition', true);
    await until(async () => (await profileId(page)) !== id, 'no profiles come');
  },

  'the mode switches there and back': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    await page.click('text=Camera images');
    await stateIs(daemon, 'mode', 'images');
    await firstFrame(page, 'image');
    assert.equal(await page.isVisible('#profile-plot'), false);
    await page.click('text=Laser profiles');
    await stateIs(daemon, 'mode', 'strips');
    const id = await profileId(page);
    await until(async () => (await profileId(page)) !== id, 'no profiles come');
    assert.equal(await page.isVisible('#profile-plot'), true);
  },

  'a software trigger is taken': async ({ browser }) => {
    const page = await browser.open();
    await page.click('#trigger-button');
    await textIs(page, '#message', 'Triggered once.');
  },

  'figures and log are shown': async ({ browser, daemon }) => {
    const page = await browser.open();
    await until(
      async () => /\d per s/.test(await page.textContent('#figures-rates')),
      'no rate is shown',
    );
    const { temperatures } = await daemon.get('state');
    const shown = await page.locator('#figures-temperatures dd').count();
    assert.equal(shown, Object.keys(temperatures).length);
    await page.selectOption('#log-level', 'TRACE');
    const { lines } = await daemon.get('log');
    if (lines.length === 0) return 'the log is empty';
    const newest = lines.at(-1).text;
    await until(
      async () => (await page.locator('#log span').allTextContents()).includes(newest),
      `the log does not show "${newest}"`,
    );
    return `${shown} temperatures, "${newest}"`;
  },
};

export function stateIs(daemon, member, wanted) {
  return until(
    async () => (await daemon.get('state'))[member] === wanted,
    `${member} does not become ${wanted}`,
  );
}

function profileId(page) {
  return page.evaluate(() => window.tessaline.profile.id);
}
