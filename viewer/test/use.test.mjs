// The page as a hand uses it: pointer, keyboard, the panels' controls.

import assert from 'node:assert/strict';
import { after, test } from 'node:test';

import { clean, closeAll, cube, faulty, htmlOf, mshModel, open, qxdb, run, sceneOf, seeded, serve, until } from './support.mjs';

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
  assert.equal(await drag(await run(page, 'return app.stage.project(...app.stage.center.toArray())[0] / app.stage.size.x;')), 8);
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
    assert.ok(await run(page, 'return app.stage.table.element.some((e) => app.mesh.elementKey[e] === argument);', keys[0]), 'it is drawn');
  }
  await page.getByRole('button', { name: 'Mark all' }).click();
  const marked = ['inverted-solids', 'duplicate-elements', 'shared-faces', 'free_edge']; // of nine solids, two shells, a line
  await until(page, "document.querySelectorAll('[data-finding][aria-pressed=true]').length === 4");
  assert.deepEqual(await page.locator('[data-finding][aria-pressed=true]').evaluateAll((all) => all.map((row) => row.dataset.finding)), marked);
  assert.equal(await page.locator('.legend .legend-row').count(), marked.length);
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
  qxdb('sql', model, '--write', "INSERT INTO coordinate_system (key, name, origin_x, pt_axis_x, pt_plain_x, pt_plain_y) VALUES (5, 'Hub', 1, 2, 1, 1)");
  const page = await open(htmlOf(model));
  await openPart(page, 'Axes');
  const shown = (name) => run(page, 'return app.stage.overlays.get(argument)?.geometry.attributes.instanceStart?.count ?? 0;', name);
  for (const [label, name, lines] of [['Local axes of elements', 'axes', 36], ['Material axes', 'material', 36], ['Orientations of lines', 'orientation', 2]]) {
    const box = page.getByLabel(label);
    await box.check();
    await until(page, `window.qx.app.stage.overlays.has('${name}')`);
    assert.equal(await shown(name), lines, label);
    await box.uncheck();
    await until(page, `!window.qx.app.stage.overlays.has('${name}')`);
  }
  // Systems are rows of the tree, shown one by one or alone, with their names beside them.
  const boxes = page.locator('[data-system]');
  assert.equal(await boxes.count(), 2);
  await boxes.first().check();
  await boxes.nth(1).check();
  await until(page, "document.querySelectorAll('.over .system').length === 2");
  assert.equal(await shown('systems'), 6);
  await page.getByRole('button', { name: /^Show only system 5/ }).click();
  await until(page, "document.querySelectorAll('.over .system').length === 1");
  assert.deepEqual([await shown('systems'), await boxes.first().isChecked()], [3, false]);
  clean(page);
  await page.close();
  const { address, stop } = await serve(...seeded('seeded'));
  const seeds = await open(address);
  assert.ok(await run(seeds, "return app.stage.overlays.has('curves') && app.stage.overlays.get('seeds').geometry.attributes.position.count > 100;"));
  assert.match(await seeds.locator('.legend').textContent(), /^Seedssize control \d+/);
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

test('finds records of every table, and lists of keys, as the command line names them', async () => {
  const model = faulty('sought');
  const { address, stop } = await serve(model);
  const page = await open(address);
  const cases = [['cord 1', 'Coordinate system 1', 0], ['CORD 1', 'Coordinate system 1', 0], ['mset 4', 'Mesh set 4', 9], ['3-1', 'Mesh set 4', 9], ['field 1', 'field 1', 0],
    ['elem 1-3,5', null, 4], ['elem 10-', null, 3], ['elem all', null, 12]];
  for (const [text, title, elements] of cases) {
    await page.keyboard.press('Escape');
    await page.fill('.search input', text);
    await page.locator('.search input').press('Enter');
    await until(page, `window.qx.app.selectedElements().size === ${elements} && ${title ? `document.querySelector('.record h2')?.textContent === '${title}'` : 'true'}`);
  }
  for (const text of ['prop 99', 'cord 7', 'field 99', 'nothing 1', 'elem 5-', 'elem 77-']) {
    await page.fill('.search input', text);
    await page.locator('.search input').press('Enter');
    const told = page.locator('.toast', { hasText: `Nothing is found for “${text}”` });
    if (text === 'elem 5-') assert.equal(await run(page, 'return app.selectedElements().size;'), 8);
    else await told.waitFor();
  }
  page.faults = page.faults.filter((fault) => !/404/.test(fault)); // which records there are not
  clean(page);
  await page.close();
  await stop();
});

test('shows what a deletion takes in its colour, of elements and nodes alike', async () => {
  const { address, stop } = await serve(cube('taken', 3), '--edit');
  const page = await open(address);
  await run(page, "app.select('elem', 1); app.selection.nodes.add(app.mesh.nodeOfKey(64)); app.tell('selected');");
  await page.click('[data-edit=delete]');
  await page.locator('[data-edit=do]').waitFor();
  assert.match(await page.locator('.counts').textContent(), /node−1.*elem−2/);
  const colors = () => run(page, `const out = {}; const { faces, table } = app.stage;
    faces.face.forEach((f, t) => (out[app.mesh.elementKey[table.element[f]]] = [...faces.tint.subarray(12 * t, 12 * t + 3)].join()));
    return [1, 27, 14 - 1].map((key) => out[key]);`);
  assert.match(await page.locator('.legend').textContent(), /What it would do.*elements removed2.*nodes removed1/);
  const [first, last, other] = await colors();
  assert.deepEqual([first, last], ['208,58,110', '208,58,110'], 'removed, though selected');
  assert.notEqual(other, first);
  await page.getByRole('button', { name: 'Cancel' }).click();
  assert.equal((await colors())[0], '255,149,0', 'selected again');
  // What would leave the picture is refused, and told.
  await run(page, "app.select('node', 1);");
  await page.click('[data-edit=move]');
  await page.getByLabel('By in y').fill('1.7e308');
  await page.click('.edit-form .primary');
  assert.match(await page.locator('.edit-form [role=alert]').textContent(), /node 1: would have y = 1.7e\+308, where nothing can be drawn; move it less far/);
  page.faults = page.faults.filter((fault) => !/409/.test(fault));
  clean(page);
  await page.close();
  await stop();
});

test('the history grows while the past is looked at, and the server ends at once', async () => {
  const model = cube('grown', 3);
  qxdb('delete', model, 'elem', '1');
  const { address, stop } = await serve(model);
  const page = await open(address);
  await page.locator('.step').first().click();
  await until(page, 'window.qx.app.shownStep === 0');
  qxdb('delete', model, 'elem', '2');
  await until(page, "document.querySelectorAll('.step').length === 3");
  assert.equal(await run(page, 'return app.mesh.elementCount;'), 27, 'the past stays');
  await page.locator('.past button').click();
  await until(page, 'window.qx.app.mesh.elementCount === 25');
  clean(page);
  await page.close();
  const asked = performance.now();
  await stop();
  assert.ok(performance.now() - asked < 2500, `${performance.now() - asked} ms`);
});

test('a part is drawn though one of its nodes is nowhere near, and that is told', async () => {
  const nodes = [[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0], [0, 0, 1], [1, 0, 1], [1, 1, 1], [0, 1, 1], [0.5, 0.5, '1e300']];
  const model = mshModel('stray', ['$Nodes', 9, ...nodes.map((p, i) => [i + 1, ...p].join(' ')), '$EndNodes', '$Elements', 2,
    '1 5 2 1 1 1 2 3 4 5 6 7 8', '2 7 2 1 1 5 6 7 8 9', '$EndElements']);
  const page = await open(htmlOf(model));
  assert.match(await page.locator('.facts').textContent(), /1 element and 1 node not drawn/);
  assert.deepEqual(await run(page, 'return [app.stage.table.count, Math.round(10 * app.stage.radius)];'), [6, 9]);
  clean(page);
  await page.close();
});

test('one value everywhere is neither the best nor the worst', async () => {
  const page = await open(htmlOf(cube('uniform', 2)));
  for (const by of ['edge-ratio', 'min-angle']) {
    await page.getByLabel('Colour by').selectOption(by);
    await until(page, 'window.qx.app.legend.uniform');
    assert.match(await page.locator('.legend').textContent(), /all (1|90)/);
    assert.deepEqual(await run(page, 'return [...new Set(app.colors)].map((c) => c === app.legend.map[128]);'), [true]);
  }
  clean(page);
  await page.close();
});

test('a picture keeps its model clear of title and legend, and says what its colours are', async () => {
  const model = faulty('framed');
  const cases = [
    [{}, { width: 1000, height: 600 }, /Mesh sets|Properties|Element kinds/],
    [{ views: ['iso', 'front', 'top'], color: 'scaled-jacobian' }, { width: 900, height: 700 }, /Scaled Jacobian/i],
    [{ color: 'x', perspective: true }, { width: 400, height: 900 }, /x of the middle/],
    [{ findings: true, color: 'none' }, { width: 640, height: 480 }, /Findings.*inverted solids1.*duplicate elements1.*free edges of shells6/],
  ];
  for (const [scene, viewport, text] of cases) {
    const page = await open(sceneOf(model, scene), { viewport });
    assert.match(await page.locator('.legend').textContent(), text);
    const free = await run(page, `
      const { stage, mesh } = app; const rect = (name) => document.querySelector(name).getBoundingClientRect();
      const at = { left: Infinity, top: Infinity, right: -Infinity, bottom: -Infinity };
      const apart = (a, b) => a.right <= b.left || b.right <= a.left || a.bottom <= b.top || b.bottom <= a.top;
      return stage.panes.every((pane) => {
        for (let n = 0; n < mesh.position.length; n += 3) {
          const [x, y] = stage.project(...mesh.position.subarray(n, n + 3), pane.camera);
          const place = [pane.x + x / stage.size.x * pane.width, pane.y + y / stage.size.y * pane.height];
          at.left = Math.min(at.left, place[0]); at.right = Math.max(at.right, place[0]); at.top = Math.min(at.top, place[1]); at.bottom = Math.max(at.bottom, place[1]);
        }
        return ['.legend', '.caption', '.pane-triad'].every((name) => apart(at, rect(name))) && at.left >= 0 && at.right <= stage.size.x && at.bottom <= stage.size.y;
      });`);
    assert.ok(free, JSON.stringify([scene, viewport]));
    clean(page);
    await page.close();
  }
});
