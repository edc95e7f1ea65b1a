import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';

import { firstFrame, textIs, until } from '../browser.mjs';

export const checks = {
  'snapshots are saved': async ({ browser }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    const png = await saved(page, () => page.click('#snapshot-png'));
    assert.equal(png.bytes.subarray(0, 8).toString('latin1'), '\x89PNG\r\n\x1a\n');
    assert.match(png.name, /\.png$/);
    const csv = await saved(page, () => page.click('#snapshot-csv'));
    const lines = csv.bytes.toString().trim().split('\n');
    assert.ok(lines.length > 1, 'the csv file has no points');
    return `${png.name} ${png.bytes.length} bytes, ${csv.name} ${lines.length} lines`;
  },

  'a recipe is saved and loaded': async ({ browser, daemon }) => {
    const page = await browser.open();
    const recipe = await saved(page, () => page.click('#recipe-save'));
    assert.deepEqual(JSON.parse(recipe.bytes), await daemon.get('settings'));
    await daemon.patch({ power_percent: 11 });
    await load(page, recipe.name, recipe.bytes);
    await textIs(page, '#message', `The settings of ${recipe.name} are in force.`);
    assert.deepEqual(await daemon.get('settings'), JSON.parse(recipe.bytes));
  },

  'wrong recipes are refused with the reason': async ({ browser, daemon }) => {
    const page = await browser.open();
    const before = await daemon.get('settings');
    await load(page, 'broken.json', '{"gain": ');
    await until(
      async () => (await page.textContent('#error')).includes('broken.json is not a recipe'),
      'no error is shown',
    );
    await page.click('#error-close');
    await load(page, 'other.json', JSON.stringify({ ...before, power_percent: 500, led: 'red' }));
    const text = await until(() => page.textContent('#error'), 'no error is shown');
    assert.ok(text.includes('500'), text);
    assert.deepEqual(await daemon.get('settings'), before);
    return text;
  },

  'a recording starts, stops and is listed': async ({ browser, daemon }) => {
    const { recordings_possible: possible } = await daemon.get('state');
    const page = await browser.open();
    if (!possible) {
      assert.equal(await page.isDisabled('#record'), true);
      return 'the daemon has no folder for recordings; the button is off';
    }
    await page.click('#record');
    await textIs(page, '#record', 'Stop recording');
    const { file } = await until(
      async () => (await daemon.get('state')).recording,
      'no recording runs',
    );
    await page.waitForTimeout(1000);
    await page.click('#record');
    await textIs(page, '#record', 'Record');
    await page.click('#recordings-box summary');
    await until(
      async () => (await page.textContent('#recordings')).includes(file),
      `${file} is not listed`,
    );
    return file;
  },
};

async function saved(page, action) {
  const [download] = await Promise.all([page.waitForEvent('download'), action()]);
  return { name: download.suggestedFilename(), bytes: readFileSync(await download.path()) };
}

function load(page, name, text) {
  const buffer = Buffer.from(text);
  return page.setInputFiles('#recipe-file', { name, mimeType: 'application/json', buffer });
}
