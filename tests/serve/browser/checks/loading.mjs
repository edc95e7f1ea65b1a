import assert from 'node:assert/strict';

import { firstFrame } from '../browser.mjs';

export const checks = {
  'the page loads without an error': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    await daemon.setMode('images');
    await firstFrame(page, 'image');
    assert.deepEqual(page.problems, []);
  },

  'the page asks no other address': async ({ browser, daemon }) => {
    const page = await browser.open();
    await firstFrame(page, 'profile');
    const own = /^(data|blob):/;
    const other = page.requests.filter((url) => !url.startsWith(daemon.base) && !own.test(url));
    assert.deepEqual(other, []);
    assert.ok(page.requests.length >= 2, 'no requests were seen');
  },

  'the page comes with a strict policy': async ({ daemon }) => {
    const answer = await fetch(`${daemon.base}/`);
    const policy = answer.headers.get('content-security-policy') ?? '';
    assert.match(policy, /default-src 'none'/);
    assert.match(policy, /script-src 'sha256-[A-Za-z0-9+/=]+'/);
    assert.doesNotMatch(policy, /script-src[^;]*unsafe/);
    const bytes = (await answer.arrayBuffer()).byteLength;
    assert.ok(bytes < 200_000, `the page has ${bytes} bytes`);
    return `${bytes} bytes`;
  },

  'the page says that the board is virtual': async ({ browser, daemon }) => {
    const page = await browser.open();
    const { virtual, model } = await daemon.get('state');
    assert.equal(await page.isVisible('#virtual'), virtual);
    assert.equal(await page.textContent('#model'), model);
    assert.equal((await page.title()).includes('virtual board'), virtual);
  },

  'the token leaves the address bar and outlives a reload': async ({ browser, daemon }) => {
    const page = await browser.open();
    assert.equal(page.url(), `${daemon.base}/`);
    await page.reload();
    await firstFrame(page, 'profile');
    assert.equal(await page.isVisible('#token-form'), false);
    assert.equal(await page.isEnabled('#laser-button'), true);
  },
};
