import { createRequire } from 'node:module';
import { join } from 'node:path';

// The packages are in the build folder, and this file is not.
const require = createRequire(join(process.cwd(), 'here'));
const { chromium } = require('playwright-core');
export const axeSource = require('axe-core').source;

const kFlags = [
  '--headless',
  '--no-sandbox',
  '--disable-gpu',
  '--disable-quic',
  '--no-first-run',
  '--disable-background-networking',
  '--disable-component-update',
  '--disable-sync',
];
// Tests run beside other tests and builds.
const kPatience = 60_000;
const kPoll = 50;

export class Browser {
  // Playwright gives each start a new folder for the user's data.
  static async launch(daemon) {
    return new Browser(
      daemon,
      await chromium.launch({ executablePath: '/usr/bin/chromium', args: kFlags }),
    );
  }

  constructor(daemon, browser) {
    this.daemon = daemon;
    this.browser = browser;
    this.contexts = [];
  }

  /**
   * Opens the page in a window of its own and waits for the connection.
   *
   * @param prepare  gets the page before it is loaded.
   */
  async open({ address = this.daemon.address, prepare, ...options } = {}) {
    const context = await this.browser.newContext({
      viewport: { width: 1280, height: 900 },
      colorScheme: 'dark',
      ...options,
    });
    context.setDefaultTimeout(kPatience);
    context.setDefaultNavigationTimeout(kPatience);
    this.contexts.push(context);
    const page = await context.newPage();
    page.problems = [];
    page.requests = [];
    page.on('pageerror', (error) => page.problems.push(String(error)));
    page.on('console', (line) => {
      if (['error', 'warning'].includes(line.type())) page.problems.push(line.text());
    });
    page.on('request', (request) => page.requests.push(request.url()));
    await prepare?.(page);
    await page.goto(address);
    await textIs(page, '#connection', 'Connected');
    await until(() => page.evaluate(() => window.tessaline.state !== null), 'no state came');
    return page;
  }

  async closePages() {
    for (const context of this.contexts.splice(0)) await context.close();
  }

  async close() {
    await this.closePages();
    await this.browser.close();
  }
}

/** Waits until something holds; returns what it became. */
export async function until(condition, otherwise, patience = kPatience) {
  const end = performance.now() + patience;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (performance.now() > end) {
      throw new Error(typeof otherwise === 'function' ? await otherwise() : otherwise);
    }
    await new Promise((resolve) => setTimeout(resolve, kPoll));
  }
}

export function textIs(page, selector, text, patience) {
  const read = () => page.textContent(selector);
  return until(
    async () => (await read()) === text,
    async () => `${selector} says "${await read()}", not "${text}"`,
    patience,
  );
}

/** Waits for the first drawn profile or image. */
export function firstFrame(page, kind) {
  return until(
    () => page.evaluate((name) => window.tessaline[name] !== null, kind),
    `no ${kind} came`,
  );
}
