const kTimeout = 15_000;

/** What the daemon refused, and why. */
export class Refusal extends Error {
  constructor(status, { error, advice, limits } = {}) {
    super(error ?? `The daemon answered with status ${status}.`);
    this.status = status;
    this.advice = advice ?? '';
    this.limits = limits;
  }

  /** One sentence for people, with the limits. */
  get text() {
    return this.advice ? `${this.message} – ${this.advice}` : this.message;
  }
}

/** The daemon's requests. All of them throw a Refusal. */
export class Api {
  constructor(token) {
    this.token = token;
  }

  get(path) {
    return this.json('GET', path);
  }

  /** The answer's bytes, for files. */
  async blob(path) {
    return (await this.request('GET', path)).blob();
  }

  async json(method, path, body) {
    const answer = await this.request(method, path, body);
    return answer.json();
  }

  async request(method, path, body) {
    const used = this.token.value;
    const headers = {};
    if (used) headers.Authorization = `Bearer ${used}`;
    if (body !== undefined) headers['Content-Type'] = 'application/json';
    let answer;
    try {
      answer = await fetch(`/api/v1/${path}`, {
        method,
        headers,
        body: body === undefined ? undefined : JSON.stringify(body),
        cache: 'no-store',
        signal: AbortSignal.timeout(kTimeout),
      });
    } catch {
      throw new Refusal(0, { error: 'The daemon does not answer.' });
    }
    if (answer.ok) return answer;
    // A token that was replaced while the request was on its way is not the one refused.
    if (answer.status === 401 && used === this.token.value) this.token.refuse();
    throw new Refusal(answer.status, await answer.json().catch(() => ({})));
  }
}
