import { byId } from './dom.js';

const kKey = 'tessaline.theme';

/** Dark, light, or as the system has it. */
export class Theme {
  constructor(onChange) {
    this.onChange = onChange;
    this.system = matchMedia('(prefers-color-scheme: light)');
    this.select = byId('theme');
    this.select.value = stored() ?? 'system';
    this.select.addEventListener('change', () => this.choose());
    this.system.addEventListener('change', () => this.apply());
    this.apply();
  }

  choose() {
    try {
      localStorage.setItem(kKey, this.select.value);
    } catch {
      // A browser without storage forgets the choice.
    }
    this.apply();
  }

  apply() {
    const chosen = this.select.value;
    const system = this.system.matches ? 'light' : 'dark';
    document.documentElement.dataset.theme = chosen === 'system' ? system : chosen;
    this.onChange();
  }
}

function stored() {
  try {
    return localStorage.getItem(kKey);
  } catch {
    return null;
  }
}
