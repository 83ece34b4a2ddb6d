// What the page's tests have in common: models made by qxdb, a browser without a window, pictures.

import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const here = dirname(fileURLToPath(import.meta.url));
const need = createRequire(process.env.QX_NODE_MODULES ? join(process.env.QX_NODE_MODULES, 'x') : import.meta.url);
const { chromium } = need('playwright-core');

export const qxdbPath = process.env.QX_QXDB;
export const folder = mkdtempSync(join(tmpdir(), 'qx-viewer-'));
process.on('exit', () => rmSync(folder, { recursive: true, force: true }));

/** Runs qxdb; its output. */
export const qxdb = (...args) => execFileSync(qxdbPath, args, { encoding: 'utf8', cwd: folder });

/** What qxdb says of a command that it refuses, leaving no file behind. */
export function refused(command, args, env = {}) {
  const ran = spawnSync(qxdbPath, [command, ...args], { encoding: 'utf8', cwd: folder, env: { ...process.env, ...env } });
  if (ran.status === 0) throw new Error(`${command} ${args.join(' ')} was done`);
  if (existsSync(join(folder, args[1]))) throw new Error(`${args[1]} was left behind`);
  return ran.stderr;
}

/** A cube of n x n x n hexahedra with sides of 1, as a model. */
export function cube(name, n) {
  const m = n + 1;
  const lines = ['$MeshFormat', '2.2 0 8', '$EndMeshFormat', '$Nodes', m ** 3];
  for (let k = 0; k < m ** 3; k++) lines.push(`${k + 1} ${(k % m) / n} ${(Math.floor(k / m) % m) / n} ${Math.floor(k / m / m) / n}`);
  lines.push('$EndNodes', '$Elements', n ** 3);
  let e = 0;
  for (let z = 0; z < n; z++) for (let y = 0; y < n; y++) for (let x = 0; x < n; x++) {
    const a = 1 + x + m * (y + m * z);
    const b = a + m * m;
    lines.push(`${++e} 5 2 1 1 ${[a, a + 1, a + 1 + m, a + m, b, b + 1, b + 1 + m, b + m].join(' ')}`);
  }
  lines.push('$EndElements', '');
  writeFileSync(join(folder, `${name}.msh`), lines.join('\n'));
  qxdb('import', `${name}.msh`, `${name}.qxm`);
  return `${name}.qxm`;
}

export function bracket(name) {
  qxdb('import', join(here, '../../examples/bracket.msh'), `${name}.qxm`);
  return `${name}.qxm`;
}

const servers = new Set();

/** Waits until an expression of the page is true. Not the driver's own waiting, which evaluates text
 * in the page: its content policy forbids that, as it should. */
export async function until(page, expression, patience = 20000) {
  const end = performance.now() + patience;
  while (performance.now() < end) {
    if (await page.evaluate(expression)) return;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  throw new Error(`not within ${patience} ms: ${expression}`);
}

let browser;
export async function openBrowser() {
  const args = ['--use-angle=swiftshader', '--enable-unsafe-swiftshader'];
  if (process.getuid() === 0) args.push('--no-sandbox');
  browser ||= await chromium.launch({ executablePath: process.env.QX_CHROMIUM || '/usr/bin/chromium', args });
  return browser;
}
export async function closeAll() {
  for (const child of servers) child.kill('SIGKILL');
  await browser?.close();
}

/** Opens a page and waits for its picture. `page.faults` collects what must not happen: errors, and
 * addresses that are not its own. */
export async function open(url, options = {}) {
  const context = await (await openBrowser()).newContext({ viewport: { width: 1100, height: 700 }, ...options });
  const page = await context.newPage();
  page.faults = [];
  page.on('pageerror', (error) => page.faults.push(error.stack));
  page.on('console', (message) => message.type() === 'error' && page.faults.push(message.text()));
  const own = new URL(url);
  page.on('request', (request) => {
    const to = new URL(request.url());
    if (!['data:', 'blob:'].includes(to.protocol) && (to.origin !== own.origin || (own.protocol === 'file:' && to.pathname !== own.pathname))) page.faults.push(`asked ${to}`);
  });
  await page.goto(url);
  await until(page, 'Boolean(window.qx && window.qx.ready)', options.patience || 60000);
  return page;
}

export function htmlOf(model) {
  const html = model.replace('.qxm', '.html');
  qxdb('view', model, '--html', html);
  return `file://${join(folder, html)}`;
}

/** Starts a server; its address, and how to end it. */
export async function serve(model, ...flags) {
  const child = spawn(qxdbPath, ['view', model, '--no-browser', '--json', ...flags], { cwd: folder });
  servers.add(child);
  let text = '';
  let fault = '';
  child.stderr.on('data', (data) => (fault += data));
  const ended = new Promise((resolve) => child.on('exit', (code) => (servers.delete(child), resolve(code))));
  const address = await new Promise((resolve, reject) => {
    child.stdout.on('data', (data) => {
      text += data;
      const found = text.match(/http:[^"]+/);
      if (found) resolve(found[0]);
    });
    ended.then(() => reject(new Error(fault)));
  });
  return { address, child, ended, stop: () => (child.kill('SIGINT'), ended) };
}

/** Shares of pixels that differ by more than a little, of two PNG files; compared by the browser. */
async function difference(page, a, b) {
  return page.evaluate(async ([one, two]) => {
    const pixels = async (data) => {
      const image = new Image();
      image.src = `data:image/png;base64,${data}`;
      await image.decode();
      const canvas = new OffscreenCanvas(image.width, image.height);
      const context = canvas.getContext('2d');
      context.drawImage(image, 0, 0);
      return context.getImageData(0, 0, image.width, image.height);
    };
    const [p, q] = [await pixels(one), await pixels(two)];
    if (p.width !== q.width || p.height !== q.height) return 1;
    let differ = 0;
    for (let i = 0; i < p.data.length; i += 4) {
      const far = Math.max(...[0, 1, 2].map((c) => Math.abs(p.data[i + c] - q.data[i + c])));
      if (far > 40) differ++;
    }
    return (4 * differ) / p.data.length;
  }, [a, b].map((buffer) => buffer.toString('base64')));
}

/** Compares pictures with the one of that name, which someone has looked at. With QX_NEW_PICTURES
 * set it is written anew, to be looked at. */
async function compare(drawn, name, tolerance) {
  const path = join(here, 'pictures', `${name}.png`);
  if (process.env.QX_NEW_PICTURES) {
    mkdirSync(dirname(path), { recursive: true });
    writeFileSync(path, drawn);
    return;
  }
  const share = await difference(await (await openBrowser()).newPage(), readFileSync(path), drawn);
  if (share > tolerance) {
    const kept = join(tmpdir(), `${name}-drawn.png`);
    writeFileSync(kept, drawn);
    throw new Error(`${(100 * share).toFixed(2)} % of the pixels of ${name} differ; drawn: ${kept}`);
  }
}

/** Compares the canvas of a page. */
export const comparePicture = async (page, name, tolerance = 0.01) => compare(await page.locator('#stage').screenshot(), name, tolerance);
/** Compares a file that qxdb wrote. */
export const compareFile = (file, name, tolerance = 0.01) => compare(readFileSync(join(folder, file)), name, tolerance);
