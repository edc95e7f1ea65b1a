import { byId, make } from './dom.js';

const kMost = 500;
const kNearEnd = 30;
const kLevels = ['TRACE', 'DEBUG', 'INFO', 'WARN', 'ERROR', 'FATAL'];

/** The daemon's newest log lines. It follows them unless the user has scrolled back. */
export class LogPanel {
  constructor() {
    this.list = byId('log');
    this.level = byId('log-level');
    this.level.addEventListener('change', () => this.filter());
    this.filter();
  }

  /** A connection begins with lines that may be there already. */
  clear() {
    this.list.replaceChildren();
  }

  add(lines) {
    const { list } = this;
    const follow = list.scrollHeight - list.scrollTop - list.clientHeight < kNearEnd;
    list.append(...lines.map(line));
    while (list.childElementCount > kMost) list.firstElementChild.remove();
    if (follow) list.scrollTop = list.scrollHeight;
  }

  filter() {
    this.list.dataset.least = this.level.value;
    this.list.scrollTop = this.list.scrollHeight;
  }
}

function line({ time, level, file, line: at, text }) {
  const when = new Date(time * 1000);
  const parts = String(when.getMilliseconds()).padStart(3, '0');
  const clock = `${when.toLocaleTimeString('en-GB')}.${parts}`;
  return make(
    'p',
    { class: kLevels.includes(level) ? `level-${level}` : 'level-INFO', title: `${file}:${at}` },
    make('time', { datetime: when.toISOString() }, clock),
    make('b', {}, level),
    make('span', {}, text),
  );
}
