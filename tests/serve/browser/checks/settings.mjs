import assert from 'node:assert/strict';

import { until } from '../browser.mjs';

export const checks = {
  'the exposure slider arrives': async ({ browser, daemon }) => {
    const page = await browser.open();
    const box = await page.locator('#exposure_us-slider').boundingBox();
    await page.mouse.move(box.x + 0.36 * box.width, box.y + box.height / 2);
    await page.mouse.down();
    await page.mouse.move(box.x + 0.6 * box.width, box.y + box.height / 2, { steps: 5 });
    await page.mouse.up();
    const shown = Number(await page.inputValue('#exposure_us'));
    assert.ok(shown > 320, `the field shows ${shown}`);
    await settingIs(daemon, 'exposure_us', [shown]);
    return `${shown} us`;
  },

  'several exposures arrive as a list': async ({ browser, daemon }) => {
    const page = await browser.open();
    await write(page, 'exposure_us', '100, 400');
    await settingIs(daemon, 'exposure_us', [100, 400]);
    assert.equal(await page.inputValue('#exposure_us'), '100, 400');
  },

  'numbers and words arrive': async ({ browser, daemon }) => {
    const page = await browser.open();
    await write(page, 'power_percent', '35');
    await settingIs(daemon, 'power_percent', 35);
    await write(page, 'spacing', '40000');
    await settingIs(daemon, 'spacing', 40_000);
    await page.selectOption('#led', 'green');
    await settingIs(daemon, 'led', 'green');
  },

  'only the newest of fast values is sent': async ({ browser, daemon }) => {
    const page = await browser.open();
    const sent = [];
    page.on('request', (request) => {
      if (request.method() === 'PATCH') sent.push(request.postDataJSON());
    });
    await page.focus('#power_percent-slider');
    for (let i = 0; i < 12; i++) await page.keyboard.press('ArrowRight');
    await settingIs(daemon, 'power_percent', 62);
    assert.ok(sent.length <= 4, `${sent.length} requests for twelve steps`);
    assert.deepEqual(sent.at(-1), { power_percent: 62 });
    return `${sent.length} requests for twelve steps`;
  },

  'a wrong value stays and shows its limits': async ({ browser, daemon }) => {
    const page = await browser.open();
    const { power_percent: limits } = await daemon.get('limits');
    await write(page, 'power_percent', String(limits.high + 1));
    const text = await errorText(page, 'power_percent');
    assert.ok(text.includes(String(limits.high)), text);
    await page.waitForTimeout(1200);
    assert.equal(await page.inputValue('#power_percent'), String(limits.high + 1));
    assert.equal(await page.getAttribute('#power_percent', 'aria-invalid'), 'true');
    await settingIs(daemon, 'power_percent', 50);
    await write(page, 'power_percent', '40');
    await settingIs(daemon, 'power_percent', 40);
    await until(
      async () => (await page.textContent('#error-power_percent')) === '',
      'the error stays',
    );
    return text;
  },

  'too many exposures and no numbers are refused': async ({ browser, daemon }) => {
    const page = await browser.open();
    const { exposure_us: limits } = await daemon.get('limits');
    const list = Array.from({ length: limits.most + 1 }, (_, i) => 100 + i);
    await write(page, 'exposure_us', list.join(', '));
    const many = await errorText(page, 'exposure_us');
    await page.press('#exposure_us', 'Escape');
    assert.equal(await page.inputValue('#exposure_us'), '320');
    assert.equal(await page.textContent('#error-exposure_us'), '');
    await write(page, 'exposure_us', 'bright');
    assert.match(await errorText(page, 'exposure_us'), /not a number/);
    await settingIs(daemon, 'exposure_us', [320]);
    return many;
  },

  'a field that is being edited is left alone': async ({ browser, daemon }) => {
    const page = await browser.open();
    await page.focus('#power_percent');
    await page.keyboard.press('Control+A');
    await page.keyboard.type('7');
    await daemon.patch({ power_percent: 33 });
    await until(
      () => page.evaluate(() => window.tessaline.state.settings.power_percent === 33),
      'the state did not come',
    );
    assert.equal(await page.inputValue('#power_percent'), '7');
    await page.keyboard.press('Escape');
    assert.equal(await page.inputValue('#power_percent'), '33');
  },

  'two windows agree': async ({ browser, daemon }) => {
    const one = await browser.open();
    const two = await browser.open();
    await write(one, 'power_percent', '21');
    await fieldIs(two, 'power_percent', '21');
    await write(two, 'power_percent', '22');
    await fieldIs(one, 'power_percent', '22');
    await daemon.patch({ region: { x: 0, y: 0, width: 640, height: 400 } });
    await fieldIs(one, 'region-width', '640');
    await fieldIs(two, 'region-width', '640');
  },
};

async function write(page, member, text) {
  await page.fill(`#${member}`, text);
  await page.press(`#${member}`, 'Enter');
}

function settingIs(daemon, member, wanted) {
  // One exposure may be written as a number or as a list of one.
  const text = (value) => JSON.stringify([value].flat());
  const read = async () => text((await daemon.get('settings'))[member]);
  return until(
    async () => (await read()) === text(wanted),
    async () => `${member} is ${await read()}, not ${text(wanted)}`,
  );
}

function fieldIs(page, id, wanted) {
  return until(
    async () => (await page.inputValue(`#${id}`)) === wanted,
    async () => `${id} shows ${await page.inputValue(`#${id}`)}, not ${wanted}`,
  );
}

function errorText(page, member) {
  return until(() => page.textContent(`#error-${member}`), `${member} shows no error`);
}
