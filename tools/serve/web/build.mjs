// Makes the page of one file: node build.mjs SRC OUTDIR
//
// SRC is the folder with page.html, page.css and main.js. The packages are those of node_modules in
// the current folder. OUTDIR gets page.html, and page.csp with the hash of the page's script for
// the header Content-Security-Policy.
import { createHash } from 'node:crypto';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join, resolve } from 'node:path';

const kMostBytes = 200_000;

const [source, out] = process.argv.slice(2);
if (!source || !out) {
  console.error('usage: node build.mjs SRC OUTDIR');
  process.exit(2);
}
const packages = resolve('node_modules');
const { build } = createRequire(join(packages, 'here'))('esbuild');

async function bundle(file, options) {
  const result = await build({
    entryPoints: [resolve(source, file)],
    bundle: true,
    minify: true,
    write: false,
    metafile: true,
    charset: 'utf8',
    legalComments: 'inline',
    nodePaths: [packages],
    logLevel: 'warning',
    ...options,
  });
  return { text: result.outputFiles[0].text.trim(), inputs: Object.keys(result.metafile.inputs) };
}

// A package's sources name its licence, but most keep the text in a file beside them.
function licences(inputs) {
  const names = inputs
    .map((input) => input.match(/node_modules\/((?:@[^/]+\/)?[^/]+)\//)?.[1])
    .filter(Boolean);
  return [...new Set(names)].map((name) => {
    const { version } = JSON.parse(readFileSync(join(packages, name, 'package.json'), 'utf8'));
    const text = readFileSync(join(packages, name, 'LICENSE'), 'utf8').trim();
    return `/*! ${name} ${version}\n${text.replaceAll('*/', '* /')}\n*/\n`;
  });
}

const script = await bundle('main.js', { format: 'esm', target: 'es2022' });
const style = await bundle('page.css', {});
const code = licences([...script.inputs, ...style.inputs]).join('') + script.text;
if (/<\/script|<!--/i.test(code)) throw new Error('the script would end too early in a page');

// Functions as replacements: texts with $ would be taken for patterns.
const page = readFileSync(join(source, 'page.html'), 'utf8')
  .replace('/* style */', () => style.text)
  .replace('/* script */', () => code);
if (Buffer.byteLength(page) > kMostBytes) {
  throw new Error(`the page has ${Buffer.byteLength(page)} bytes, more than ${kMostBytes}`);
}
const hash = createHash('sha256').update(code).digest('base64');

mkdirSync(out, { recursive: true });
writeFileSync(join(out, 'page.html'), page);
writeFileSync(join(out, 'page.csp'), `sha256-${hash}\n`);
console.log(`${join(out, 'page.html')}: ${Buffer.byteLength(page)} bytes`);
