import { byId, setText } from './dom.js';

const kShown = 6000;

/** What has happened, and what went wrong, in one line that screen readers say, too. */
export class Messages {
  constructor() {
    this.done = byId('message');
    this.error = byId('error');
    this.box = byId('error-box');
    byId('error-close').addEventListener('click', () => this.fail(''));
  }

  say(text) {
    setText(this.done, text);
    clearTimeout(this.timer);
    this.timer = setTimeout(() => setText(this.done, ''), kShown);
  }

  /** An error stays until it is closed, or something succeeds. */
  fail(text) {
    setText(this.error, text);
    this.box.classList.toggle('empty', text === '');
  }

  /** Does something that may be refused, and says what comes of it. */
  async attempt(action, done) {
    try {
      const result = await action();
      this.fail('');
      if (done) this.say(done(result));
      return result;
    } catch (error) {
      this.fail(error.text ?? String(error));
      return undefined;
    }
  }
}
