// What the page's tests have in common: models made by qxdb, a browser without a window, pictures.

import assert from 'node:assert/strict';
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { copyFileSync, existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
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

export const mshModel = (name, lines) => {
  writeFileSync(join(folder, `${name}.msh`), `$MeshFormat\n2.2 0 8\n$EndMeshFormat\n${lines.join('\n')}\n`);
  qxdb('import', `${name}.msh`, `${name}.qxm`);
  return `${name}.qxm`;
};

function cubeLines(n) {
  const m = n + 1;
  const nodes = [];
  for (let k = 0; k < m ** 3; k++) nodes.push(`${k + 1} ${(k % m) / n} ${(Math.floor(k / m) % m) / n} ${Math.floor(k / m / m) / n}`);
  const hexes = [];
  for (let z = 0; z < n; z++) for (let y = 0; y < n; y++) for (let x = 0; x < n; x++) {
    const a = 1 + x + m * (y + m * z);
    const b = a + m * m;
    hexes.push([a, a + 1, a + 1 + m, a + m, b, b + 1, b + 1 + m, b + m]);
  }
  return { nodes, hexes };
}

/** A cube of n x n x n hexahedra with sides of 1, as a model. */
export function cube(name, n) {
  const { nodes, hexes } = cubeLines(n);
  return mshModel(name, ['$Nodes', nodes.length, ...nodes, '$EndNodes', '$Elements', hexes.length,
    ...hexes.map((h, i) => `${i + 1} 5 2 1 1 ${h.join(' ')}`), '$EndElements']);
}

/** Two by two by two hexahedra with faults: number 8 is inside out, 9 is 1 again; beside them two
 * quadrilaterals with a common edge, numbers 10 and 11, and a line, number 12. Fields: "heat" by node, 10 times x; "push", a vector by node;
 * "load" by element, its number, of hexahedra only. */
export function faulty(name) {
  const { nodes, hexes } = cubeLines(2);
  const turned = hexes[7];
  hexes[7] = [...turned.slice(4), ...turned.slice(0, 4)];
  hexes.push(hexes[0]);
  const count = nodes.length;
  const quads = [[1, 2, 5, 4], [2, 3, 6, 5]].map((q) => q.map((i) => count + i));
  for (let k = 0; k < 6; k++) nodes.push(`${count + k + 1} ${2 + (k % 3) / 2} ${Math.floor(k / 3) / 2} 0`);
  const elements = [...hexes.map((h) => `5 2 1 1 ${h.join(' ')}`), ...quads.map((q) => `3 2 2 2 ${q.join(' ')}`), `1 2 3 3 ${count + 1} ${count + 2}`];
  const field = (place, label, components, values) => [`$${place}`, 1, `"${label}"`, 1, 0.0, 3, 0, components, values.length, ...values, `$End${place}`];
  const x = nodes.map((line) => Number(line.split(' ')[1]));
  return mshModel(name, ['$Nodes', nodes.length, ...nodes, '$EndNodes', '$Elements', elements.length, ...elements.map((e, i) => `${i + 1} ${e}`), '$EndElements',
    ...field('NodeData', 'heat', 1, x.map((v, i) => `${i + 1} ${10 * v}`)),
    ...field('NodeData', 'push', 3, x.map((v, i) => `${i + 1} 3 4 ${v}`)),
    ...field('ElementData', 'load', 1, hexes.map((_, i) => `${i + 1} ${i + 1}`))]);
}

/** A part of CAD with seeds of a size control; the flags that show it. */
export function seeded(name) {
  copyFileSync(join(here, '../../examples/joint.step'), join(folder, 'joint.step'));
  qxdb('geom', 'joint.step', `${name}.qxm`, '--add');
  qxdb('seed', 'add', `${name}.qxm`, 'joint.step', 'all', '--divisions', '10');
  return [`${name}.qxm`, '--cad', 'joint.step'];
}

export function bracket(name) {
  qxdb('import', join(here, '../../examples/bracket.msh'), `${name}.qxm`);
  return `${name}.qxm`;
}

/** The page of a picture, as `qxdb picture` has it drawn, to be asked where things are. */
export function sceneOf(model, scene) {
  const own = { views: ['iso'], sets: [], edges: true, ...scene };
  const text = JSON.stringify(own).replaceAll('&', '&amp;').replaceAll('"', '&quot;');
  const from = new URL(htmlOf(model)).pathname;
  const html = readFileSync(from, 'utf8').replace('<div id="app"></div>', `<div id="app"></div><i id="scene" data-scene="${text}"></i>`);
  const path = from.replace('.html', '-scene.html');
  writeFileSync(path, html);
  return `file://${path}`;
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

/** What a text of JavaScript gives inside the page; it knows `app` and `argument`. */
export const run = (page, body, argument) => page.evaluate(`(async (argument) => { const { app } = window.qx; ${body} })(${JSON.stringify(argument ?? null)})`);
export const clean = (page) => assert.deepEqual(page.faults, []);

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
