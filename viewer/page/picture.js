// A picture for a report: views side by side with a legend, and nothing to click.

import { el } from './dom.js';
import { buildLegend, drawTriad, leftBy, notDrawn } from './overlay.js';

export async function buildPicture(app, root, scene) {
  document.documentElement.dataset.theme = scene.dark ? 'dark' : 'light';
  document.body.className = 'picture';
  const canvas = el('canvas', { id: 'view' });
  const legend = el('div', { class: 'legend' });
  const title = el('div', { class: 'caption' });
  const holder = el('div', { id: 'stage' }, canvas, title, legend);
  root.append(holder);
  app.start(canvas, true);
  app.stage.still = true; // drawn once, when all is in its place
  app.stage.setTheme(scene.dark);
  app.stage.setEdges(scene.edges);
  app.stage.useCamera(scene.perspective);
  Object.assign(app.color, { by: scene.color || null, range: scene.range || null, palette: scene.palette || app.color.palette });
  app.stage.resize();
  await app.load();
  if (scene.sets.length) {
    const keys = app.mesh.sets.filter((set) => scene.sets.includes(set.name)).map((set) => set.key);
    await app.isolate('', keys.flatMap((key) => app.elementsOf(`set:${key}`)));
  }
  if (scene.cut_axis) await app.setClip({ axis: scene.cut_axis, at: scene.cut_at });
  let note = '';
  if (scene.changes && app.mesh.about.step > 0) {
    const pack = await app.data.get('changes');
    await app.markChanges(pack);
    note = ` · step ${app.mesh.about.step}: ${pack.text.name || ''}`;
  }
  if (scene.findings) {
    await app.markFindings();
    if (!app.markRows.length) note += ' · nothing is found';
  }
  const out = notDrawn(app.mesh.about);
  title.textContent = app.mesh.about.name + note + (out ? ` · ${out}` : '');
  buildLegend(legend, app, false);
  const area = leftBy(holder, legend, Math.min(title.getBoundingClientRect().bottom, app.stage.size.y / 4));
  const columns = scene.views.length > 1 ? Math.ceil(Math.sqrt(scene.views.length)) : 1;
  const rows = Math.ceil(scene.views.length / columns);
  const width = area.width / columns;
  const height = area.height / rows;
  // Beside each view stand its axes and its name.
  const beside = Math.min(84, width / 4);
  app.stage.setPanes(scene.views.map((view, i) => ({
    view, x: (i % columns) * width + beside, y: area.top + Math.floor(i / columns) * height, width: width - beside, height,
  })));
  for (const pane of app.stage.panes) {
    const label = scene.views.length > 1 ? el('span', {}, pane.view) : '';
    const triad = el('div', { class: 'pane-triad' }, drawTriad(pane.camera), label);
    triad.style.left = `${pane.x - beside + 8}px`;
    triad.style.bottom = `${app.stage.size.y - pane.y - pane.height + 10}px`;
    holder.append(triad);
  }
  app.stage.drawNow();
}
