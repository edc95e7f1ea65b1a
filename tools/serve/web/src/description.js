const kPause = 5000;

/**
 * The text of a canvas for people who do not see it. It changes every few seconds only: a screen
 * reader that reads along would not get to the end otherwise.
 */
export class Description {
  constructor(apply) {
    this.apply = apply;
    this.next = 0;
  }

  /** @param describe  makes the text; called only when it is needed. */
  update(describe) {
    const now = performance.now();
    if (now < this.next) return;
    this.next = now + kPause;
    this.apply(describe());
  }
}
