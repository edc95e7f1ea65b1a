const kKey = 'tessaline.token';
// What fits into the name of a WebSocket's protocol.
const kPossible = /^[\w.~+-]+$/;

/**
 * What a write needs to be allowed. It comes with the page's address, behind the #, which browsers
 * do not send. It is removed from there, so that it does not get into bookmarks and pictures.
 */
export class Token {
  constructor() {
    this.listeners = [];
    this.value = stored() ?? '';
    this.refused = false;
    this.takeFromAddress();
    window.addEventListener('hashchange', () => this.takeFromAddress());
  }

  takeFromAddress() {
    const given = new URLSearchParams(location.hash.slice(1)).get('token');
    if (!given) return;
    history.replaceState(null, '', location.pathname + location.search);
    this.set(given);
  }

  /** @return false if this cannot be a token. */
  set(value) {
    if (!kPossible.test(value)) return false;
    this.value = value;
    this.refused = false;
    try {
      sessionStorage.setItem(kKey, value);
    } catch {
      // A browser without storage asks again after a reload.
    }
    this.tell();
    return true;
  }

  refuse() {
    this.refused = true;
    this.tell();
  }

  get usable() {
    return this.value !== '' && !this.refused;
  }

  whenChanged(listener) {
    this.listeners.push(listener);
  }

  tell() {
    for (const listener of this.listeners) listener();
  }
}

function stored() {
  try {
    return sessionStorage.getItem(kKey);
  } catch {
    return null;
  }
}
