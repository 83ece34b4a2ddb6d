// What is known of what was picked: the record with all its members, where it is used, its sets.

import { el, grouped, short } from './dom.js';

const labels = { elem: 'Element', node: 'Node', mset: 'Mesh set', prop: 'Property', matl: 'Material', cord: 'Coordinate system' };

export function buildInspector(app, right) {
  const selection = el('section', { class: 'selection' });
  const measured = el('section', { class: 'measured' });
  const record = el('section', { class: 'record' });
  right.append(selection, measured, record);
  app.on('selected', () => {
    showSelection(app, selection);
    showRecord(app, record);
  });
  app.on('measured', () => showMeasured(app, measured));
  app.on('loaded', () => {
    showSelection(app, selection);
    showRecord(app, record);
    showMeasured(app, measured);
  });
}

function showSelection(app, holder) {
  const elements = app.selectedElements();
  const { faces, nodes } = app.selection;
  const parts = [];
  if (faces.size) parts.push(`${grouped(faces.size)} face${faces.size > 1 ? 's' : ''}`);
  if (elements.size) parts.push(`${grouped(elements.size)} element${elements.size > 1 ? 's' : ''}`);
  if (nodes.size) parts.push(`${grouped(nodes.size)} node${nodes.size > 1 ? 's' : ''}`);
  const text = parts.join(', ');
  const adding = el('input', { type: 'checkbox', checked: app.adding, onchange: () => (app.adding = adding.checked) });
  const angle = el('input', { type: 'number', min: 1, max: 179, value: app.angle, 'aria-label': 'Largest fold in degrees', onchange: () => (app.angle = Number(angle.value) || 30) });
  const act = (label, title, onclick) => el('button', { type: 'button', title, onclick }, label);
  holder.replaceChildren(
    el('h2', {}, text ? 'Selected' : 'Nothing selected'),
    text ? el('p', { class: 'count-line' }, text) : el('p', { class: 'hint' }, 'Click on the model. Ctrl adds, Shift and drag takes a box.'),
    text ? el('div', { class: 'row-buttons' },
      elements.size ? act('Hide', 'Hide the elements (H)', () => app.hideElements(app.selectedElements())) : '',
      elements.size ? act('Only', 'Show only the elements (I)', () => app.isolate('the selection', app.selectedElements())) : '',
      act('Fit', 'Look at what is selected', () => app.stage.fit(app.selectionPlaces())),
      act('Clear', 'Select nothing (Esc)', () => app.clearSelection())) : '',
    el('div', { class: 'options' }, el('label', { class: 'check' }, adding, ' Each click adds'), el('label', { class: 'check' }, 'Faces fold by at most ', angle, '°')));
  app.tell('said', text ? `Selected: ${text}` : 'Nothing selected');
}

function showMeasured(app, holder) {
  if (app.mode !== 'measure') {
    holder.replaceChildren();
    return;
  }
  const m = app.measurement();
  const unit = app.mesh.about.length_unit;
  const rows = [['nodes', m.keys.join(', ') || 'pick two, or three for an angle']];
  if (m.distance != null) rows.push(['distance', `${short(m.distance)} ${unit}`], ['in x, y, z', m.delta.map(short).join('  ')]);
  if (m.angle != null) rows.push(['angle', `${short(m.angle)}°`]);
  holder.replaceChildren(el('h2', {}, 'Measured'), table(rows));
}

const table = (rows) => el('table', {}, rows.map(([name, value]) => el('tr', {}, el('th', { scope: 'row' }, name), el('td', {}, value))));

const link = (app, tableName, key) => el('button', { type: 'button', class: 'link', onclick: () => {
  if (!app.select(tableName, key)) app.tell('notice', `${tableName} ${key} is not in the picture.`);
} }, `${tableName} ${key}`);

/** Keys in a value become links; texts stay texts. */
function valueOf(app, member) {
  if (!member.target) return member.value;
  const keys = member.value.match(/-?\d+/g) || [];
  if (!keys.length || (keys.length === 1 && keys[0] === '0')) return '–';
  const shown = keys.slice(0, 24).map((key) => link(app, member.target, Number(key)));
  return el('span', { class: 'links' }, shown, keys.length > 24 || member.value.endsWith('...') ? ` and more` : '');
}

async function showRecord(app, holder) {
  const { picked } = app;
  if (!picked) {
    holder.replaceChildren();
    return;
  }
  const title = el('h2', {}, `${labels[picked.table] || picked.table} ${picked.key}`);
  const sets = setsOf(app, picked);
  let body;
  try {
    const record = await app.data.record(picked.table, picked.key, app.stepAsked);
    if (app.picked !== picked) return; // another was picked meanwhile
    body = record ? fromServer(app, record) : fromPage(app, picked);
  } catch (error) {
    body = [el('p', { class: 'hint' }, error.message)];
  }
  holder.replaceChildren(title, ...body,
    sets.length ? el('div', {}, el('h3', {}, 'In mesh sets'), el('div', { class: 'links' }, sets.map((s) => el('button', { type: 'button', class: 'link', onclick: () => app.select('mset', s.key) }, s.name)))) : '');
}

function fromServer(app, record) {
  return [
    el('table', { class: 'members' }, record.members.map((m) => el('tr', { title: m.kind }, el('th', { scope: 'row' }, m.name.replace(/^_/, '').toLowerCase().replaceAll('_', ' ')), el('td', {}, valueOf(app, m))))),
    el('h3', {}, record.use_count ? `Used ${grouped(record.use_count)} time${record.use_count > 1 ? 's' : ''}` : 'Used nowhere'),
    el('div', { class: 'links uses' }, record.uses.map((use) => el('span', {}, link(app, use.table, use.key)))),
  ];
}

/** What the page itself knows, where no server can be asked. */
function fromPage(app, { table: name, key }) {
  const { mesh } = app;
  const { about } = mesh;
  const hint = el('p', { class: 'hint' }, 'As far as this file knows; qxdb view shows every member.');
  if (name === 'elem') {
    const e = mesh.elementOfKey(key);
    const p = mesh.elementProperty[e];
    const kind = about.types.find((t) => t.code === mesh.elementType[e]);
    const nodes = mesh.nodesOf(e).map((n) => mesh.nodeKey[n]);
    return [el('table', { class: 'members' },
      el('tr', {}, el('th', { scope: 'row' }, 'kind'), el('td', {}, kind.name)),
      el('tr', {}, el('th', { scope: 'row' }, 'property'), el('td', {}, p < 0 ? 'none' : link(app, 'prop', about.properties[p].key))),
      el('tr', {}, el('th', { scope: 'row' }, mesh.solids ? 'corners' : 'nodes seen'), el('td', {}, el('span', { class: 'links' }, nodes.map((k) => link(app, 'node', k)))))), hint];
  }
  if (name === 'node') {
    const n = mesh.nodeOfKey(key);
    if (n < 0) return [hint];
    const rows = ['x', 'y', 'z'].map((c, i) => [c, `${short(mesh.position[3 * n + i] + about.origin[i])} ${about.length_unit}`]);
    const users = new Set();
    const { faces } = mesh;
    for (let f = 0; f < faces.count; f++) for (let i = faces.first[f]; i < faces.first[f + 1]; i++) if (faces.node[i] === n) users.add(faces.element[f]);
    mesh.lineNode.forEach((m, i) => m === n && users.add(mesh.lineElement[i >> 1]));
    return [table(rows), el('h3', {}, 'Elements seen at it'), el('div', { class: 'links' }, [...users].slice(0, 24).map((e) => link(app, 'elem', mesh.elementKey[e]))), hint];
  }
  const list = { mset: mesh.sets, prop: about.properties, matl: about.materials, cord: about.systems }[name] || [];
  const record = list.find((r) => r.key === key);
  if (!record) return [hint];
  const rows = [['name', record.name]];
  if (record.kind && name === 'prop') rows.push(['kind', record.kind]);
  if (name === 'cord') rows.push(['kind', ['rectangular', 'cylindrical', 'spherical'][record.kind]]);
  if (name === 'cord' && record.origin) rows.push(['origin', record.origin.map((c, i) => short(c + about.origin[i])).join('  ')]);
  if (record.material) rows.push(['material', link(app, 'matl', record.material)]);
  if (name === 'mset') rows.push(['elements', grouped(record.elements)], ['nodes', grouped(record.nodes)]);
  return [table(rows), hint];
}

function setsOf(app, { table: name, key }) {
  if (name === 'elem') {
    const e = app.mesh.elementOfKey(key);
    return e < 0 ? [] : app.mesh.setsOf(e);
  }
  if (name === 'node') {
    const n = app.mesh.nodeOfKey(key);
    return n < 0 ? [] : app.mesh.sets.filter((s) => s.nodeList.indexOf(n) >= 0);
  }
  return [];
}
