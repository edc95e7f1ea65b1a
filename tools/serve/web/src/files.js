import { byId, make } from './dom.js';
import { Refusal } from './api.js';

/** Snapshots and recipes: files that the browser saves and loads. */
export class Files {
  constructor({ api, messages, patch, model }) {
    Object.assign(this, { api, messages, patch, model });
    const file = byId('recipe-file');
    byId('snapshot-png').addEventListener('click', () => this.snapshot('png'));
    byId('snapshot-csv').addEventListener('click', () => this.snapshot('csv'));
    byId('recipe-save').addEventListener('click', () => this.saveRecipe());
    byId('recipe-load').addEventListener('click', () => file.click());
    file.addEventListener('change', () => this.loadRecipe(file));
  }

  snapshot(kind) {
    return this.messages.attempt(
      async () => {
        const blob = await this.api.blob(`snapshot.${kind}`);
        return save(`${this.model()}-${stamp()}.${kind}`, blob);
      },
      (name) => `Saved ${name}.`,
    );
  }

  saveRecipe() {
    return this.messages.attempt(
      async () => save(`${this.model()}-recipe.json`, await this.api.blob('settings')),
      (name) => `Saved ${name}.`,
    );
  }

  async loadRecipe(input) {
    const [file] = input.files;
    if (!file) return;
    await this.messages.attempt(
      async () => {
        await this.patch(parsed(file.name, await file.text()));
        return file.name;
      },
      (name) => `The settings of ${name} are in force.`,
    );
    // The same file can be chosen again after it was changed.
    input.value = '';
  }
}

function parsed(name, text) {
  let recipe;
  try {
    recipe = JSON.parse(text);
  } catch (error) {
    throw new Refusal(0, { error: `${name} is not a recipe: ${error.message}` });
  }
  if (recipe === null || typeof recipe !== 'object' || Array.isArray(recipe)) {
    throw new Refusal(0, { error: `${name} is not a recipe: it is not an object` });
  }
  return recipe;
}

function save(name, blob) {
  const address = URL.createObjectURL(blob);
  make('a', { href: address, download: name }).click();
  setTimeout(() => URL.revokeObjectURL(address), 10_000);
  return name;
}

function stamp() {
  const now = new Date();
  const local = new Date(now.getTime() - now.getTimezoneOffset() * 60_000);
  return local.toISOString().slice(0, 19).replace('T', '-').replaceAll(':', '');
}
