// The page as a hand uses it: pointer, keyboard, the panels' controls.

import assert from 'node:assert/strict';
import { after, test } from 'node:test';

import { clean, closeAll, cube, faulty, htmlOf, open, qxdb, run, seeded, serve, until } from './support.mjs';

after(closeAll);

const openPart = (page, title) => page.locator('#left summary', { hasText: title }).click();
const mode = (page, name) => page.locator('[data-mode]', { hasText: name }).click();
/** Where a node is on the window. */
const placeOf = async (page, key) => {
  const [x, y] = await run(page, 'const n = app.mesh.nodeOfKey(argument); return app.stage.project(...app.mesh.position.subarray(3 * n, 3 * n + 3));', key);
  const box = await page.locator('#view').boundingBox();
  return [box.x + x, box.y + y];
};
const recordTitle = (page) => page.locator('.record h2').textContent();

test('a box takes what looks at the eye in it; a search finds keys and names', async () => {
  const model = cube('boxed', 4);
  qxdb('sets', 'add', model, 'Left wing', '--elements', '1-5');
  const page = await open(htmlOf(model));
  await page.focus('#view');
  await page.keyboard.press('2'); // from the front: 16 faces
  const view = await page.locator('#view').boundingBox();
  const drag = async (share) => {
    await page.mouse.move(view.x + 4, view.y + 4);
    await page.mouse.down();
    await page.mouse.move(view.x + view.width * share, view.y + view.height - 4, { steps: 3 });
    await page.mouse.up();
    return run(page, 'return app.selectedElements().size;');
  };
  await page.keyboard.down('Shift');
  assert.equal(await drag(0.99), 16);
  await page.keyboard.up('Shift');
  await page.keyboard.press('Escape');
  await mode(page, 'Box');
  assert.equal(await drag(0.5), 8);
  await mode(page, 'Element');
  const direction = () => run(page, 'return app.stage.camera.position.toArray().map((c) => Math.round(c));');
  const before = await direction();
  await drag(0.6);
  assert.notDeepEqual(await direction(), before, 'a drag turns again');

  for (const [text, title, elements] of [['elem 7', 'Element 7', 1], ['n 5', 'Node 5', 0], ['64', 'Element 64', 1], ['left w', 'Mesh set .*', 5]]) {
    await page.keyboard.press('Escape');
    await page.focus('#view');
    await page.keyboard.press('/');
    await page.keyboard.type(text);
    await page.keyboard.press('Enter');
    await until(page, `new RegExp('^${title}$').test(document.querySelector('.record h2')?.textContent)`);
    assert.equal(await run(page, 'return app.selectedElements().size;'), elements, text);
    await page.fill('.search input', '');
  }
  await page.fill('.search input', 'elem 999');
  await page.locator('.search input').press('Enter');
  assert.match(await page.locator('.toast').first().textContent(), /Nothing is found for “elem 999”/);
  clean(page);
  await page.close();
});

test('measures between the nodes that are clicked', async () => {
  const page = await open(htmlOf(cube('measured', 2)));
  await mode(page, 'Measure');
  for (const key of [3, 9, 27]) await page.mouse.click(...(await placeOf(page, key))); // (1,0,0) (1,1,0) (1,1,1)
  const text = await page.locator('.measured').textContent();
  assert.match(text, /nodes3, 9, 27.*distance1 m.*in x, y, z0 {2}1 {2}0.*angle90°/);
  await until(page, "document.querySelectorAll('.over .measure text').length === 2"); // beside the lines as well
  await page.keyboard.press('Escape');
  await until(page, "!document.querySelector('.over .measure')");
  clean(page);
  await page.close();
});

test('lists what qxdb check finds and marks it', async () => {
  const model = faulty('checked');
  const page = await open(htmlOf(model));
  await openPart(page, 'Findings');
  await page.getByRole('button', { name: 'Find faults' }).click();
  await page.locator('[data-finding]').first().waitFor();
  const rows = await page.locator('[data-finding]').evaluateAll((all) => all.map((row) => [row.dataset.finding, Number(row.querySelector('.count').textContent)]));
  const counts = Object.fromEntries(rows);
  assert.equal(counts.free_edge, 6);
  const expected = { inverted_solid: [8], duplicate_element: [9] };
  for (const [name, keys] of Object.entries(expected)) {
    const row = Object.keys(counts).find((each) => each.replaceAll('-', '_').startsWith(name));
    assert.ok(row, `${name} among ${Object.keys(counts)}`);
    await page.click(`[data-finding="${row}"]`);
    await until(page, `document.querySelector('[data-finding="${row}"]').getAttribute('aria-pressed') === 'true'`);
    assert.deepEqual(await run(page, 'return [...app.marks.keys()].filter((e) => e >= 0).map((e) => app.mesh.elementKey[e]);'), keys, name);
  }
  await page.click('[data-finding=free_edge]');
  await until(page, "window.qx.app.stage.overlays.has('free_edge')");
  await page.getByRole('button', { name: 'Take the marks away' }).click();
  await until(page, "!window.qx.app.stage.overlays.has('free_edge') && window.qx.app.marks.size === 0");
  clean(page);
  await page.close();
});

test('colours by the fields of a model, at nodes by their own values', async () => {
  for (const url of [htmlOf(faulty('fields')), (await serve('fields.qxm')).address]) {
    const page = await open(url);
    const seen = {};
    for (const label of ['heat', 'push, magnitude', 'push, z', 'load']) {
      await page.getByLabel('Colour by').selectOption({ label });
      await until(page, `window.qx.app.legend.title === '${label}'`);
      seen[label] = await run(page, 'return app.legend.range;');
    }
    assert.deepEqual([seen.heat, seen['push, z'], seen.load], [[0, 30], [0, 3], [1, 9]]);
    assert.ok(Math.abs(seen['push, magnitude'][0] - 5) < 1e-6);
    await page.getByLabel('Colour by').selectOption({ label: 'heat' });
    await until(page, "window.qx.app.legend.title === 'heat'");
    // The corners of the last quadrilateral: the range's upper end at x = 3, lower at 2.5.
    const colors = await run(page, `const { faces, table } = app.stage; const out = {};
      for (let t = 0; t < faces.face.length; t++) for (let v = 0; v < 3; v++) {
        const n = table.node[table.first[faces.face[t]] + faces.place[3 * t + v]];
        (out[app.mesh.nodeKey[n]] ||= []).push([...faces.tint.subarray(12 * t + 4 * v, 12 * t + 4 * v + 3)].join());
      }
      return Object.fromEntries([7, 3, 30, 33].map((key) => [key, [...new Set(out[key])]]));`);
    assert.deepEqual(colors[30], ['253,231,37'], 'the largest is the last colour of the palette');
    assert.deepEqual(colors[7], ['68,1,84'], 'the least is the first');
    assert.deepEqual(colors[30], colors[33]);
    assert.equal(colors[3].length, 1, 'one colour at one node');
    clean(page);
    await page.close();
  }
});

test('draws axes, systems and seeds where they are asked for', async () => {
  const model = faulty('axes');
  qxdb('orient', model, '12', '--vector', '0', '0', '1');
  const page = await open(htmlOf(model));
  await openPart(page, 'Axes');
  const shown = (name) => run(page, 'return app.stage.overlays.get(argument)?.geometry.attributes.instanceStart?.count ?? 0;', name);
  for (const [label, name, lines] of [['Local axes of elements', 'axes', 36], ['Material axes', 'material', 36], ['Orientations of lines', 'orientation', 2], ['Show coordinate systems', 'systems', 3]]) {
    const box = page.getByLabel(label);
    await box.check();
    await until(page, `window.qx.app.stage.overlays.has('${name}')`);
    assert.equal(await shown(name), lines, label);
    await box.uncheck();
    await until(page, `!window.qx.app.stage.overlays.has('${name}')`);
  }
  clean(page);
  await page.close();
  const { address, stop } = await serve(...seeded('seeded'));
  const seeds = await open(address);
  assert.ok(await run(seeds, "return app.stage.overlays.has('curves') && app.stage.overlays.get('seeds').geometry.attributes.position.count > 100;"));
  await openPart(seeds, 'Axes');
  await seeds.getByLabel('Seeds and size controls').uncheck();
  await until(seeds, "!window.qx.app.stage.overlays.has('seeds')");
  clean(seeds);
  await seeds.close();
  await stop();
});

test('repairs from the page, shown first', async () => {
  const { address, stop } = await serve(faulty('mended'), '--edit');
  const page = await open(address);
  await page.click('[data-edit=fix]');
  await page.getByRole('button', { name: 'Show what it does' }).click();
  await page.locator('[data-edit=do]').waitFor();
  assert.match(await page.locator('.counts').textContent(), /elem−1~1/);
  const marked = await run(page, 'return [...app.marks.keys()].filter((e) => e >= 0).map((e) => app.mesh.elementKey[e]).sort();');
  assert.deepEqual(marked, [8, 9]);
  assert.equal(await run(page, 'return app.mesh.elementCount;'), 12, 'only shown so far');
  await page.click('[data-edit=do]');
  await until(page, 'window.qx.app.mesh.elementCount === 11');
  // The history has it as one step, and marks what it changed.
  assert.match(await page.locator('.step').last().textContent(), /Repair mesh.*elem −1 ~1/);
  await page.keyboard.press('[');
  await until(page, 'window.qx.app.shownStep !== null && window.qx.app.mesh.elementCount === 12');
  assert.ok(await page.locator('[data-edit=delete]').isDisabled(), 'the past cannot be changed');
  await page.keyboard.press(']');
  await until(page, 'window.qx.app.mesh.elementCount === 11 && window.qx.app.marks.size > 0');
  assert.ok(await run(page, "return app.stage.overlays.has('absent');"), 'what went is outlined');
  clean(page);
  await page.close();
  await stop();
  assert.doesNotMatch(qxdb('check', 'mended.qxm'), /inverted solids|duplicate elements/);
});
