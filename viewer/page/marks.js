// Marks in the picture: what a step changed, what an edit would do, what a check found.

import { solidEdges } from './mesh.js';
import * as palette from './palette.js';

const MOVED = 0x9db8ff; // elements at nodes that moved

export function clearMarks(app) {
  app.marks.clear();
  app.nodeMarks = [];
  app.markRows = [];
  app.ahead = false;
  app.finding = null;
  for (const name of ['absent', 'free_edge', 'shared_edge', 'inside']) app.stage.setOverlay(name, null);
  app.paint();
  app.tell('marks', null);
  app.tell('legend');
}

/** Marks what a pack of changes names: a step of the history, or what an edit would do. `ahead`:
 * it has not happened yet, so that what it removes is still there; `back`: it is to be undone. */
export function markChanges(app, pack, { ahead = false, back = false } = {}) {
  clearMarks(app);
  app.ahead = ahead;
  const { mesh } = app;
  const came = back ? 'removed' : 'added';
  const went = back ? 'added' : 'removed';
  const mark = (name, word) => {
    const color = palette.marks[word];
    const elements = pack.array(`element_${name}`);
    const nodes = pack.array(`node_${name}`);
    for (const [what, keys] of [['elements', elements], ['nodes', nodes]]) {
      if (keys.length) app.markRows.push({ label: `${what} ${word}`, count: keys.length, color });
    }
    if (word === 'removed' && !ahead) return; // and no longer there
    for (const key of elements) {
      const e = mesh.elementOfKey(key);
      if (e >= 0) app.marks.set(e, color);
    }
    for (const key of nodes) {
      const n = mesh.nodeOfKey(key);
      if (n >= 0 && app.nodeMarks.length < 20000) app.nodeMarks.push([n, color]);
    }
  };
  mark(came, 'added');
  mark('changed', 'changed');
  mark(went, 'removed');
  app.markTitle = ahead ? 'What it would do' : 'What the step did';
  // Nodes that moved say little by themselves: the elements at them are marked too, paler.
  const moved = new Set(app.nodeMarks.filter(([, c]) => c === palette.marks.changed).map(([n]) => n));
  if (moved.size) {
    app.markRows.push({ label: 'elements at changed nodes', color: MOVED });
    const { table } = app.stage;
    for (let f = 0; f < table.count; f++) {
      if (app.marks.has(table.element[f])) continue;
      for (let i = table.first[f]; i < table.first[f + 1]; i++) {
        if (moved.has(table.node[i])) app.marks.set(table.element[f], MOVED);
      }
    }
  }
  // What is not in the picture: what went, or is to come.
  const relative = pack.array(`outlines_${ahead ? came : went}`);
  const from = pack.text.outline_origin;
  const shift = from.map((c, i) => c - mesh.about.origin[i]);
  const places = new Float32Array(relative.length);
  for (let i = 0; i < places.length; i++) places[i] = relative[i] + shift[i % 3];
  app.stage.setOverlay('absent', places, ahead ? palette.marks.added : palette.marks.removed, 1.8, true);
  if (!app.marks.size && (app.nodeMarks.length || places.length)) app.marks.set(-2, 0); // still pale
  app.paint();
  app.tell('marks', pack);
  app.tell('legend');
  return outlineMarked(app);
}

/** Outlines marked solids, which may lie inside, so that they are seen through what is before. */
export async function outlineMarked(app, marks = app.marks, name = 'inside') {
  const { mesh, stage } = app;
  stage.setOverlay(name, null);
  if (!mesh.about.solids || ![...marks.keys()].some((e) => e >= 0)) return;
  await app.loadVolume().catch(() => {});
  if (!mesh.solids || app.mesh !== mesh) return;
  const lines = [];
  const tints = [];
  const p = mesh.position;
  for (const { corners, node, element } of mesh.solids) {
    for (let i = 0; i < element.length && lines.length < 600000; i++) {
      const color = marks.get(element[i]);
      if (color === undefined || color === MOVED) continue;
      for (const edge of solidEdges[corners]) {
        for (const place of edge) {
          const n = 3 * node[corners * i + place];
          lines.push(p[n], p[n + 1], p[n + 2]);
          tints.push((color >> 16) / 255, (color >> 8 & 255) / 255, (color & 255) / 255);
        }
      }
    }
  }
  stage.setOverlay(name, new Float32Array(lines), new Float32Array(tints), 1.6, true);
  stage.draw();
}

/** Edges of which the check tells, beside its findings. */
const edgeFindings = { free_edge: 'free edges of shells', shared_edge: 'edges of three or more shells' };

/** What the check found, faults first: name, label, count, fault, of_nodes, remedy, color. */
export async function listFindings(app) {
  const pack = await app.findings();
  const list = pack.text.findings.concat(Object.entries(edgeFindings).map(([name, label]) => ({ name, label, count: pack.array(name).length / 2 })));
  return list.filter((f) => f.count).sort((a, b) => (b.fault ? 1 : 0) - (a.fault ? 1 : 0))
    .map((f, i) => ({ ...f, color: palette.findings[i % palette.findings.length] }));
}

/** Findings that are marked unasked: not the elements at the rim of a mesh, which is no fault, and
 * of which edges tell. */
const isTold = (f) => f.fault || f.of_nodes || f.name in edgeFindings;

/** Marks findings, those that `isTold` unless some are named; each has its colour, which the legend
 * tells. */
export async function markFindings(app, names) {
  const pack = await app.findings();
  const list = await listFindings(app);
  clearMarks(app);
  app.markTitle = 'Findings';
  app.finding = names || list.filter(isTold).map((f) => f.name);
  const p = app.mesh.position;
  for (const { name, label, count, of_nodes: ofNodes, color } of list) {
    if (!app.finding.includes(name)) continue;
    app.markRows.push({ label, count, color });
    const own = pack.array(name);
    if (name in edgeFindings) {
      const of = pack.array(`${name}_of`);
      const places = [];
      own.forEach((n, i) => (!app.visible || app.visible[of[i >> 1]]) && places.push(...p.subarray(3 * n, 3 * n + 3)));
      app.stage.setOverlay(name, new Float32Array(places), color, 4);
      continue;
    }
    for (const key of own) {
      if (ofNodes) {
        const n = app.mesh.nodeOfKey(key);
        if (n >= 0) app.nodeMarks.push([n, color]);
      } else {
        const e = app.mesh.elementOfKey(key);
        if (e >= 0 && !app.marks.has(e)) app.marks.set(e, color); // that of the worst
      }
    }
  }
  if (!app.marks.size) app.marks.set(-2, 0);
  app.paint();
  app.tell('marks', null);
  app.tell('legend');
  await outlineMarked(app);
}
