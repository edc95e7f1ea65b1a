const kPause = 150;

/**
 * Sends values that follow each other fast: waits until they pause, has one on its way at a time,
 * and leaves out those that a newer one has overtaken.
 */
export class Newest {
  constructor({ send, onDone, onFailed }) {
    Object.assign(this, { send, onDone, onFailed });
    this.waiting = false;
    this.sending = false;
  }

  get busy() {
    return this.waiting || this.sending;
  }

  push(value) {
    this.value = value;
    this.waiting = true;
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.flush(), kPause);
  }

  cancel() {
    this.waiting = false;
    clearTimeout(this.timer);
  }

  async flush() {
    if (this.sending) return;
    this.waiting = false;
    this.sending = true;
    let result;
    let failure;
    try {
      result = await this.send(this.value);
    } catch (error) {
      failure = error;
    }
    this.sending = false;
    if (this.waiting) this.push(this.value);
    else if (failure) this.onFailed(failure);
    else this.onDone(result);
  }
}
