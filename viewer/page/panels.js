// The page's panels: what to show on the left, what is known on the right, the history below.

import { el, bytes, grouped, short, svg } from './dom.js';
import { buildEditing } from './editing.js';
import { buildInspector } from './inspector.js';
import { shownSystems } from './glyphs.js';
import { listFindings } from './marks.js';
import { buildLegend, drawTriad, leftBy, notDrawn } from './overlay.js';
import * as palette from './palette.js';
import { colorsOfRecords, ownFields, plainColors } from './colors.js';
import { views } from './stage.js';

const icons = {
  fit: 'M3 8V3h5M16 3h5v5M21 16v5h-5M8 21H3v-5M9 12h6M12 9v6',
  panel: 'M3 4h18v16H3zM9 4v16',
  side: 'M3 4h18v16H3zM15 4v16',
  moon: 'M20 14.5A8.5 8.5 0 0 1 9.5 4 8.5 8.5 0 1 0 20 14.5z',
  camera: 'M4 7h4l2-3h4l2 3h4v12H4zM12 16.5a3.5 3.5 0 1 0 0-7 3.5 3.5 0 0 0 0 7z',
  edges: 'M4 8l8-4 8 4v8l-8 4-8-4zM4 8l8 4 8-4M12 12v8',
  deep: 'M4 4h16v16H4zM9 9h6v6H9zM4 4l5 5M20 4l-5 5M4 20l5-5M20 20l-5-5',
  help: 'M9 9a3 3 0 1 1 4.5 2.6c-1 .6-1.5 1.2-1.5 2.4M12 17.5v.01M12 21a9 9 0 1 0 0-18 9 9 0 0 0 0 18z',
};
const icon = (name) => svg('svg', { viewBox: '0 0 24 24', width: 18, height: 18, fill: 'none', stroke: 'currentColor',
  'stroke-width': 1.8, 'stroke-linejoin': 'round', 'stroke-linecap': 'round', 'aria-hidden': 'true' }, svg('path', { d: icons[name] }));

const modes = { element: 'Element', node: 'Node', face: 'Face', box: 'Box', measure: 'Measure' };

export async function buildPanels(app, root) {
  const canvas = el('canvas', { id: 'view', tabIndex: 0,
    'aria-label': 'Picture of the model. Arrow keys turn it, plus and minus zoom, F fits it; a list of all keys is under the question mark.' });
  const legend = el('div', { class: 'legend', role: 'region', 'aria-label': 'Legend' });
  const triad = el('div', { class: 'triad' });
  const over = svg('svg', { class: 'over', 'aria-hidden': 'true' });
  const busy = el('div', { class: 'busy', role: 'status', hidden: true });
  const toasts = el('div', { class: 'toasts', 'aria-live': 'polite' });
  const past = el('div', { class: 'past', hidden: true });
  const said = el('div', { class: 'unseen', 'aria-live': 'polite' });
  const stageHolder = el('main', { id: 'stage' }, canvas, over, triad, legend, past, busy, toasts);
  const left = el('aside', { id: 'left', 'aria-label': 'What is shown' });
  const right = el('aside', { id: 'right', 'aria-label': 'What is known' });
  const history = el('footer', { id: 'history', 'aria-label': 'History', hidden: true });
  const head = el('header', {});
  root.append(head, left, stageHolder, right, history, said);

  app.on('busy', (text) => {
    busy.hidden = !text;
    busy.textContent = text ? `${text} …` : '';
  });
  const notice = (text) => {
    const toast = el('div', { class: 'toast' }, text);
    toasts.append(toast);
    setTimeout(() => toast.remove(), 6000);
  };
  app.on('notice', notice);
  app.on('said', (text) => (said.textContent = text));

  app.start(canvas);
  app.stage.area = () => leftBy(stageHolder, legend);
  buildHead(app, head, { left, right });
  app.on('legend', () => buildLegend(legend, app, true));
  buildLeft(app, left);
  buildInspector(app, right);
  buildHistory(app, history, past);
  buildEditing(app, right);
  takeInput(app, canvas, over);
  followCamera(app, triad, over);
  setTheme(app, localStore('theme'));

  new ResizeObserver(() => app.stage.resize()).observe(stageHolder);
  app.stage.resize();
  await app.load();
  if (app.data.served) follow(app, notice);
}

function localStore(name, value) {
  try { // a file from the disk may have no store
    if (value === undefined) return localStorage.getItem(`qx.${name}`);
    localStorage.setItem(`qx.${name}`, value);
  } catch { /* kept for this visit only */ }
  return null;
}

function setTheme(app, theme) {
  const dark = theme ? theme === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;
  document.documentElement.dataset.theme = dark ? 'dark' : 'light';
  app.stage.setTheme(dark);
}

// ---- head -----------------------------------------------------------------------------------------

const button = (label, title, onclick, props = {}) =>
  el('button', { type: 'button', title, 'aria-label': title, onclick, ...props }, label);

function buildHead(app, head, { left, right }) {
  const name = el('h1', {});
  const facts = el('span', { class: 'facts' });
  const toggle = (what, title, state, onchange) => {
    const b = button(icon(what), title, () => {
      const on = b.getAttribute('aria-pressed') !== 'true';
      b.setAttribute('aria-pressed', on);
      onchange(on);
    }, { 'aria-pressed': String(state) });
    return b;
  };
  const narrow = () => matchMedia('(max-width: 900px)').matches;
  const drawer = (side, other) => () => {
    if (narrow()) {
      other.classList.remove('open');
      side.classList.toggle('open');
    } else {
      side.classList.toggle('closed');
    }
    setTimeout(() => app.stage.resize(), 220);
  };
  const viewButtons = el('div', { class: 'group', role: 'group', 'aria-label': 'Look from' },
    Object.keys(views).map((view, i) => button(view === 'iso' ? 'Iso' : view[0].toUpperCase() + view.slice(1), `Look from: ${view} (${i + 1})`, () => app.stage.view(view))));
  const modeButtons = el('div', { class: 'group', role: 'group', 'aria-label': 'A click picks' });
  for (const [mode, label] of Object.entries(modes)) {
    modeButtons.append(button(label, mode === 'face' ? 'Pick faces that hang together' : mode === 'box' ? 'Pick what a box holds (or drag with Shift)' : mode === 'measure' ? 'Measure distance and angle between nodes' : `Pick ${mode}s`,
      () => app.setMode(mode), { 'data-mode': mode, 'aria-pressed': String(mode === 'element') }));
  }
  app.setMode = (mode) => {
    app.mode = mode;
    if (mode !== 'measure') app.measured = [];
    for (const b of modeButtons.children) b.setAttribute('aria-pressed', String(b.dataset.mode === mode));
    app.stage.controls.enabled = mode !== 'box';
    app.paint();
    app.tell('measured');
  };
  const search = el('input', { type: 'search', placeholder: 'elem 12, a name …', 'aria-label': 'Find a record by key or name', spellcheck: false });
  const form = el('form', { class: 'search', role: 'search', onsubmit: (event) => {
    event.preventDefault();
    find(app, search.value);
  } }, search);
  app.focusSearch = () => search.focus();
  const help = el('dialog', { class: 'help', 'aria-label': 'Keys' });
  const deep = toggle('deep', 'Perspective (P)', false, (on) => app.stage.useCamera(on));
  const edges = toggle('edges', 'Edges of elements (E)', true, (on) => app.stage.setEdges(on));
  app.togglePerspective = () => deep.click();
  app.toggleEdges = () => edges.click();
  head.append(
    button(icon('panel'), 'Panel: what is shown', drawer(left, right)),
    el('div', { class: 'title' }, name, facts),
    el('div', { class: 'tools' }, viewButtons,
    el('div', { class: 'group' }, button(icon('fit'), 'Fit to the window (F)', () => app.stage.fit()), deep, edges),
    modeButtons,
    form,
    el('div', { class: 'group' },
      button(icon('camera'), 'Save the picture as PNG', () => savePicture(app)),
      button(icon('moon'), 'Light or dark', () => {
        const dark = document.documentElement.dataset.theme !== 'dark';
        localStore('theme', dark ? 'dark' : 'light');
        setTheme(app, dark ? 'dark' : 'light');
      }),
      button(icon('help'), 'Keys and facts (?)', () => {
        fillHelp(app, help);
        help.showModal();
      }))),
    button(icon('side'), 'Panel: what is known', drawer(right, left)),
    help);
  app.showHelp = () => {
    fillHelp(app, help);
    help.showModal();
  };
  app.on('loaded', () => {
    const { about } = app.mesh;
    document.title = `${about.name} – QX_db`;
    name.textContent = name.title = about.name;
    const out = notDrawn(about);
    facts.textContent = `${grouped(about.elements)} elements · ${grouped(about.nodes)} nodes${out ? ` · ${out}` : ''}${about.editable ? ' · editing' : ''}`;
    facts.title = out ? `${facts.textContent}. Not drawn: elements with a node that is missing or has no place, and nodes whose place is no number or too far from the others.` : facts.textContent;
  });
}

function fillHelp(app, dialog) {
  const keys = [['F', 'fit'], ['1 … 7', 'look from iso, front, back, left, right, top, bottom'], ['← ↑ → ↓', 'turn'], ['+ −', 'zoom'],
    ['P', 'perspective'], ['E', 'edges of elements'], ['H', 'hide what is selected'], ['I', 'show only what is selected'], ['A', 'show all'],
    ['[ ]', 'step back and forth in the history'], ['/', 'search'], ['Esc', 'select nothing, clear marks'],
    ['drag, two fingers', 'turn; pan and zoom'], ['right drag', 'pan'], ['Ctrl + click', 'add to the selection'], ['Shift + drag', 'select with a box']];
  dialog.replaceChildren(
    el('h2', {}, 'Keys'),
    el('dl', {}, keys.flatMap(([key, what]) => [el('dt', {}, key), el('dd', {}, what)])),
    el('h2', {}, 'This page'),
    el('p', {}, `Memory: ${bytes(app.bytes())} for the mesh and what is drawn of it${app.mesh.solids ? ', the inside included' : ''}. ` +
      `First picture after ${Math.round(window.qx.times.first_picture_ms)} ms. Drawn by ${app.software ? 'the processor' : 'the graphics card'}.`),
    el('p', {}, `Colours: ${palette.palettes[app.color.palette]}. Things are told apart by the colours of Okabe and Ito; x is vermilion, y green, z blue, and each arm bears its letter.`),
    el('form', { method: 'dialog' }, el('button', {}, 'Close')));
}

function savePicture(app) {
  app.stage.drawNow();
  const { canvas } = app.stage;
  const copy = el('canvas', { width: canvas.width, height: canvas.height });
  const context = copy.getContext('2d');
  context.fillStyle = getComputedStyle(document.documentElement).getPropertyValue('--ground-low');
  context.fillRect(0, 0, copy.width, copy.height);
  context.drawImage(canvas, 0, 0);
  const link = el('a', { download: `${app.mesh.about.name.replace(/\.[^.]*$/, '')}.png`, href: copy.toDataURL('image/png') });
  link.click();
}

/** Whether keys belong to ranges as the command line writes them: "12", "1-5,9,100-", "all". Null
 * where the text is no such list. */
function readKeys(text) {
  if (text === 'all') return () => true;
  const ranges = text.split(',').map((part) => part.match(/^(\d+)(-(\d*))?$/));
  if (ranges.includes(null)) return null;
  const bounds = ranges.map(([, first, dash, last]) => [Number(first), last ? Number(last) : dash ? Infinity : Number(first)]);
  return (key) => bounds.some(([first, last]) => key >= first && key <= last);
}

const tableNames = { element: 'elem', e: 'elem', n: 'node', set: 'mset', mesh_set: 'mset', coordinate_system: 'cord', property: 'prop', material: 'matl', system: 'cord' };

/** Finds "elem 12", "node 1-5,9", "cord 1", any table of the model with a key, a number (an
 * element), or a name. */
export async function find(app, typed) {
  const text = typed.trim().toLowerCase();
  if (!text) return false;
  const found = await findKeys(app, text) || findName(app, text);
  if (!found) {
    app.tell('notice', `Nothing is found for “${typed.trim()}”${app.data.served ? '' : ' in this file'}.`);
    return false;
  }
  const places = app.selectionPlaces();
  if (places.length) app.stage.fit(places);
  return true;
}

async function findKeys(app, text) {
  const [, word = 'elem', keys] = text.match(/^(?:([a-z_]\w*)\s+)?(\d[\d,-]*|all)$/) || [];
  const has = keys && readKeys(keys);
  if (!has) return false;
  const table = tableNames[word] || word;
  if (!/^\d+$/.test(keys)) return ['elem', 'node'].includes(table) && app.selectMany(table, has);
  const key = Number(keys);
  if (['elem', 'node', 'mset', 'prop', 'matl', 'cord'].includes(table)) return app.select(table, key);
  const isThere = await app.data.record(table, key, app.stepAsked).catch(() => null);
  if (isThere) app.showRecord(table, key);
  return Boolean(isThere);
}

function findName(app, text) {
  const { properties, materials, systems } = app.mesh.about;
  for (const [table, list] of [['mset', app.mesh.sets], ['prop', properties], ['matl', materials], ['cord', systems]]) {
    const record = list.find((each) => each.name.toLowerCase() === text) || list.find((each) => each.name.toLowerCase().includes(text));
    if (record) return app.select(table, record.key);
  }
  return false;
}

// ---- left -----------------------------------------------------------------------------------------

const section = (title, open, ...content) => el('details', { open }, el('summary', {}, title), el('div', { class: 'content' }, content));
const field = (label, control) => el('label', { class: 'field' }, el('span', {}, label), control);
const choice = (options, value, onchange, label) => {
  const select = el('select', { onchange: () => onchange(select.value), 'aria-label': label });
  for (const [group, entries] of options) {
    const made = Object.entries(entries).map(([v, text]) => el('option', { value: v, selected: v === value }, text));
    select.append(group ? el('optgroup', { label: group }, made) : null, ...(group ? [] : made));
  }
  return select;
};

function buildLeft(app, left) {
  const tree = el('div', { class: 'tree' });
  const colour = el('div', {});
  const cut = el('div', {});
  const faults = el('div', {});
  const glyphs = el('div', {});
  left.append(section('Shown', true, tree), section('Colours', true, colour), section('Cut', false, cut),
    section('Findings', false, faults), section('Axes', false, glyphs));
  const isolatedNote = el('div', { class: 'row-buttons' });
  app.on('loaded', () => {
    buildTree(app, tree, isolatedNote);
    buildColour(app, colour);
    buildCut(app, cut);
    buildFindings(app, faults);
    buildGlyphs(app, glyphs);
  });
  const update = () => {
    for (const box of tree.querySelectorAll('input[data-id]')) box.checked = !app.hidden.has(box.dataset.id);
    for (const box of tree.querySelectorAll('input[data-system]')) box.checked = app.systems.has(Number(box.dataset.system));
    showIsolated(app, isolatedNote);
  };
  app.on('visible', update);
  app.on('selected', update);
  app.on('legend', () => buildColour(app, colour));
  app.on('clip', () => buildCut(app, cut));
}

function showIsolated(app, holder) {
  const parts = [];
  if (app.isolated?.label) parts.push(`only ${app.isolated.label}`);
  if (app.hiddenElements.size) parts.push(`${grouped(app.hiddenElements.size)} elements hidden`);
  const any = app.isolated || app.hidden.size || app.hiddenElements.size;
  holder.replaceChildren(el('span', { class: 'hint' }, parts.join(', ')), any ? button('Show all', 'Show all (A)', () => app.showAll()) : '');
}

function buildTree(app, tree, note) {
  const { mesh } = app;
  const { about } = mesh;
  const row = (id, label, color, count, depth, rule) => {
    const box = el('input', { type: 'checkbox', checked: !app.hidden.has(id), 'data-id': id, 'aria-label': `Show ${label}`,
      onchange: () => app.setHidden(id, !box.checked) });
    const swatch = el('span', { class: 'swatch' });
    if (color != null) swatch.style.background = palette.css(color);
    const pick = el('button', { type: 'button', class: 'name', title: `Select ${label}${rule ? `, by the rule: ${rule}` : ''}`, onclick: () => {
      const [what, key] = id.split(':');
      const table = { set: 'mset', property: 'prop', material: 'matl' }[what];
      if (table && Number(key)) app.select(table, Number(key));
      else {
        app.clearSelection(false);
        for (const e of app.elementsOf(id)) app.selection.elements.add(e);
        app.paint();
        app.tell('selected');
      }
    } }, label);
    const line = el('div', { class: 'tree-row' }, box, color == null ? null : swatch, pick,
      count == null ? null : el('span', { class: 'count' }, grouped(count)),
      button('only', `Show only ${label}`, () => app.isolate(label, app.elementsOf(id)), { class: 'only' }));
    line.style.setProperty('--depth', depth || 0);
    return line;
  };
  const parts = [];
  const part = (title, rows) => {
    if (rows.length) parts.push(el('h3', {}, title), ...rows.slice(0, 500));
    if (rows.length > 500) parts.push(el('div', { class: 'hint' }, `and ${rows.length - 500} more; search for them`));
  };
  const rows = [];
  const seen = new Set();
  const add = (set, depth) => {
    if (seen.has(set)) return;
    seen.add(set);
    rows.push(row(`set:${set.key}`, set.name, set.color, set.elements || set.nodes, depth, set.rule));
    for (const child of mesh.sets) if (child.parent === set.key) add(child, depth + 1);
  };
  const keys = new Set(mesh.sets.map((s) => s.key));
  mesh.sets.filter((s) => !keys.has(s.parent)).forEach((s) => add(s, 0));
  mesh.sets.forEach((s) => add(s, 0));
  part('Mesh sets', rows);
  part('Element kinds', about.types.map((t, i) => row(`kind:${t.code}`, t.name, palette.thing(i), t.elements)));
  const own = colorsOfRecords(about.properties);
  part('Properties', about.properties.map((p, i) => row(`property:${p.key}`, `${p.key} ${p.name}`, own[i])));
  const colors = colorsOfRecords(about.materials);
  part('Materials', about.materials.map((m, i) => row(`material:${m.key}`, `${m.key} ${m.name}`, colors[i])));
  part('Coordinate systems', about.systems.map((s) => systemRow(app, s)));
  tree.replaceChildren(note, ...parts);
  showIsolated(app, note);
}

function systemRow(app, { key, name, origin }) {
  const label = `${key} ${name}`;
  const box = el('input', { type: 'checkbox', checked: app.systems.has(key), disabled: !origin, 'data-system': key, 'aria-label': `Show system ${label}`,
    onchange: () => {
      if (box.checked) app.systems.add(key);
      else app.systems.delete(key);
      app.showGlyphs();
    } });
  return el('div', { class: 'tree-row', title: origin ? null : 'gives no axes' }, box,
    el('button', { type: 'button', class: 'name', title: `Select ${label}`, onclick: () => app.select('cord', key) }, label),
    button('only', `Show only system ${label}`, () => app.showSystems([key]), { class: 'only', disabled: !origin }));
}

function buildColour(app, holder) {
  const { about } = app.mesh;
  const common = {};
  const rare = {};
  for (const m of about.measures) (m.common ? common : rare)[m.name] = m.label;
  const has = (name) => app.data.has(`values/${name}`, app.stepAsked);
  const only = (entries) => Object.fromEntries(Object.entries(entries).filter(([name]) => has(name)));
  const plain = Object.fromEntries(Object.entries(plainColors).filter(([name]) => name !== 'part' || has('part')));
  const groups = [['', plain], ['Quality', only(common)], ['Quality, more', only(rare)], ['Fields', { ...only(Object.fromEntries(about.fields.map((f) => [f.name, f.label]))), ...only(ownFields) }]].filter(([, e]) => Object.keys(e).length);
  const content = [field('Colour by', choice(groups, app.color.by, (by) => app.setColor({ by }), 'Colour by'))];
  const { legend } = app;
  if (legend && legend.map) {
    content.push(field('Palette', choice([['', Object.fromEntries(Object.keys(palette.palettes).map((p) => [p, p]))]], app.color.palette, (p) => app.setColor({ palette: p }), 'Palette')));
    const bound = (i) => el('input', { type: 'number', step: 'any', value: short(legend.range[i]), 'aria-label': i ? 'Last value' : 'First value', onchange: (event) => {
      const range = [...legend.range];
      range[i] = Number(event.target.value);
      app.setColor({ range: range[1] > range[0] ? range : null });
    } });
    content.push(el('div', { class: 'field wide' }, el('span', {}, 'Range'), el('div', { class: 'pair' }, bound(0), bound(1),
      button('auto', 'The range of what there is', () => app.setColor({ range: null })))));
    if (legend.measure) {
      const limit = el('input', { type: 'number', step: 'any', value: legend.limit ?? '', 'aria-label': 'Limit', onchange: () => app.setColor({ limit: limit.value === '' ? null : Number(limit.value) }) });
      const box = el('input', { type: 'checkbox', checked: app.color.only, onchange: () => app.setColor({ only: box.checked }) });
      content.push(field(legend.measure.high_is_bad ? 'Limit, at most' : 'Limit, at least', limit), el('label', { class: 'check' }, box, ' Only what fails the limit'));
      if (legend.failing) content.push(button(`Select the ${grouped(legend.failing)} that fail`, 'Select what fails the limit', () => selectFailing(app), { class: 'wide' }));
    }
    content.push(el('p', { class: 'hint' }, palette.palettes[app.color.palette]));
  }
  holder.replaceChildren(...content);
}

async function selectFailing(app) {
  const { legend } = app;
  const values = (await app.pack(`values/${app.color.by}`)).array('values');
  app.clearSelection(false);
  values.forEach((v, e) => {
    if ((!app.visible || app.visible[e]) && (legend.measure.high_is_bad ? v > legend.limit : v < legend.limit)) app.selection.elements.add(e);
  });
  app.paint();
  app.tell('selected');
}

function buildCut(app, holder) {
  const { clip } = app;
  const axis = choice([['', { '': 'none', x: 'across x', y: 'across y', z: 'across z' }]], clip.axis || '', (a) => app.setClip({ axis: a || null }), 'Cutting plane');
  const content = [field('Plane', axis)];
  if (clip.axis) {
    const place = el('output', {}, `${short(app.clipPlace())} ${app.mesh.about.length_unit}`);
    const slider = el('input', { type: 'range', min: 0, max: 1, step: 0.002, value: clip.at, 'aria-label': 'Place of the plane', oninput: () => {
      clip.at = Number(slider.value);
      place.textContent = `${short(app.clipPlace())} ${app.mesh.about.length_unit}`;
      if (slider.waiting) return;
      slider.waiting = true;
      requestAnimationFrame(() => {
        slider.waiting = false;
        app.applyClip();
      });
    } });
    const flip = el('input', { type: 'checkbox', checked: clip.flip, onchange: () => app.setClip({ flip: flip.checked }) });
    content.push(field('Place', slider), place, el('label', { class: 'check' }, flip, ' Keep the other side'));
  }
  holder.replaceChildren(...content);
}

function buildFindings(app, holder) {
  const list = el('div', { class: 'findings' });
  const check = button('Check the mesh', 'Find faults, as qxdb check does', async () => {
    app.tell('busy', 'checking');
    try {
      const found = await listFindings(app);
      list.replaceChildren(...(found.length ? found.map((f) => finding(app, f)) : [el('p', { class: 'hint' }, 'nothing is found')]),
        found.length > 1 ? button('Mark all', 'Mark all faults, nodes and edges, each kind in its colour', () => app.markFindings(), { class: 'wide' }) : '',
        button('Clear marks', 'Take the marks away', () => app.clearMarks(), { class: 'wide' }));
    } catch (error) {
      app.tell('notice', error.message);
    }
    app.tell('busy', null);
  }, { class: 'wide' });
  holder.replaceChildren(check, list);
  app.on('marks', () => {
    for (const row of list.querySelectorAll('[data-finding]')) row.setAttribute('aria-pressed', String(Boolean(app.finding?.includes(row.dataset.finding))));
  });
}

function finding(app, { name, label, count, fault, remedy, color }) {
  const mark = el('span', { class: 'mark' }, fault ? '!' : '·');
  mark.style.background = palette.css(color);
  return el('button', { type: 'button', class: `finding ${fault ? 'fault' : ''}`, 'data-finding': name,
    title: remedy ? `Mended by: qxdb ${remedy}` : 'Mark in the picture', onclick: () => app.markFindings([name]) },
  mark, el('span', { class: 'name' }, label), el('span', { class: 'count' }, grouped(count)));
}

function buildGlyphs(app, holder) {
  const texts = { axes: 'Local axes of elements', material: 'Material axes', orientation: 'Orientations of lines' };
  if (app.mesh.about.seeds) texts.seeds = 'Seeds and size controls';
  holder.replaceChildren(...Object.entries(texts).map(([name, text]) => {
    const box = el('input', { type: 'checkbox', checked: app.glyphs[name], onchange: () => {
      app.glyphs[name] = box.checked;
      app.showGlyphs();
      app.tell('legend');
    } });
    return el('label', { class: 'check' }, box, ` ${text}`);
  }), el('p', { class: 'hint' }, 'x vermilion, y green, z blue'));
}

// ---- history --------------------------------------------------------------------------------------

function buildHistory(app, history, past) {
  const list = el('ol', {});
  const go = (by) => {
    const at = app.shownStep ?? app.present;
    const to = Math.min(Math.max(at + by, 0), app.steps.length);
    if (to !== at || app.shownStep == null) app.goTo(to);
  };
  app.stepBy = (by) => app.steps.length && go(by);
  history.append(el('div', { class: 'history-head' }, el('h3', {}, 'History'), button('‹', 'Step back ([)', () => go(-1)), button('›', 'Step forth (])', () => go(1))), list);
  const fill = () => {
    history.hidden = !app.steps.length;
    const shown = app.shownStep ?? app.present;
    const entry = (step, number) => {
      const counts = step ? Object.entries(step.counts).map(([table, [added, removed, changed]]) =>
        `${table} ${[added && `+${grouped(added)}`, removed && `−${grouped(removed)}`, changed && `~${grouped(changed)}`].filter(Boolean).join(' ')}`).join(', ') : 'as it began';
      const when = step && step.time_ms ? new Date(step.time_ms).toLocaleString() : '';
      return el('li', {}, el('button', { type: 'button', class: `step ${step && !step.done ? 'undone' : ''}`, 'aria-current': number === shown ? 'step' : null,
        title: [when, step && !step.done ? 'undone' : '', counts].filter(Boolean).join(' · '), disabled: number !== app.present && !app.data.has('base', number),
        onclick: () => app.goTo(number) },
      el('span', { class: 'step-number' }, number === 0 ? '0' : String(number)), el('span', { class: 'step-name' }, step ? step.name : 'Beginning'), el('span', { class: 'step-counts' }, counts)));
    };
    list.replaceChildren(entry(null, 0), ...app.steps.map((step, i) => entry(step, i + 1)));
    list.querySelector('[aria-current]')?.scrollIntoView({ block: 'nearest', inline: 'nearest' });
    past.hidden = app.shownStep == null;
    if (!past.hidden) {
      const step = app.steps[app.shownStep - 1];
      past.replaceChildren(el('strong', {}, step ? `Step ${app.shownStep} of ${app.steps.length}: ${step.name}` : 'The beginning'),
        button('Back to the present', 'Leave the history (Esc)', () => app.leaveHistory()));
    }
  };
  app.on('loaded', fill);
  app.on('step', fill);
}

// ---- input ----------------------------------------------------------------------------------------

function takeInput(app, canvas, over) {
  let down = null;
  let box = null;
  const at = (event) => {
    const r = canvas.getBoundingClientRect();
    return [event.clientX - r.left, event.clientY - r.top];
  };
  const adds = (event) => event.ctrlKey || event.metaKey || app.adding;
  canvas.addEventListener('pointerdown', (event) => {
    if (event.button !== 0 || !event.isPrimary) {
      down = null;
      return;
    }
    down = at(event);
    if (event.shiftKey || app.mode === 'box') {
      app.stage.controls.enabled = false;
      box = svg('rect', { class: 'rubber', x: down[0], y: down[1], width: 0, height: 0 });
      over.append(box);
      canvas.setPointerCapture(event.pointerId);
    }
  }, true);
  canvas.addEventListener('pointermove', (event) => {
    if (!box || !down) return;
    const [x, y] = at(event);
    box.setAttribute('x', Math.min(x, down[0]));
    box.setAttribute('y', Math.min(y, down[1]));
    box.setAttribute('width', Math.abs(x - down[0]));
    box.setAttribute('height', Math.abs(y - down[1]));
  });
  const end = () => {
    box?.remove();
    box = null;
    down = null;
    app.stage.controls.enabled = app.mode !== 'box';
  };
  canvas.addEventListener('pointerup', (event) => {
    if (!down) return;
    const [x, y] = at(event);
    const far = Math.hypot(x - down[0], y - down[1]) > 5;
    if (box && far) app.pickBox(...down, x, y, adds(event));
    else if (!far) app.pickAt(x, y, adds(event));
    end();
  });
  canvas.addEventListener('pointercancel', end);

  const names = Object.keys(views);
  const keys = {
    f: () => app.stage.fit(), p: () => app.togglePerspective(), e: () => app.toggleEdges(), a: () => app.showAll(),
    h: () => app.selectedElements().size && app.hideElements(app.selectedElements()),
    i: () => app.selectedElements().size && app.isolate('the selection', app.selectedElements()),
    '/': () => app.focusSearch(), '?': () => app.showHelp(), '[': () => app.stepBy(-1), ']': () => app.stepBy(1),
    ArrowLeft: () => app.stage.turn(-10, 0), ArrowRight: () => app.stage.turn(10, 0), ArrowUp: () => app.stage.turn(0, 10), ArrowDown: () => app.stage.turn(0, -10),
    '+': () => app.stage.zoom(1.2), '=': () => app.stage.zoom(1.2), '-': () => app.stage.zoom(1 / 1.2),
    Escape: () => {
      if (app.shownStep != null) app.leaveHistory();
      else {
        app.measured = [];
        app.tell('measured');
        app.clearMarks();
        app.clearSelection();
      }
    },
  };
  names.forEach((name, i) => (keys[String(i + 1)] = () => app.stage.view(name)));
  window.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.target.closest?.('input, select, textarea, dialog')) return;
    if (event.target !== canvas && event.target !== document.body && event.key.startsWith('Arrow')) return;
    const act = keys[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (!act) return;
    event.preventDefault();
    act();
  });
}

/** Keeps what stands over the picture in its place. */
function followCamera(app, triad, over) {
  app.stage.onDraw.push(() => {
    triad.replaceChildren(drawTriad(app.stage.camera));
    for (const node of over.querySelectorAll('.measure, .system')) node.remove();
    if (app.mesh) {
      const labels = [];
      for (const { key, name, origin } of shownSystems(app).slice(0, 40)) {
        const [x, y, z] = app.stage.project(...origin);
        let below = y + 14; // and below those that stand there
        while (labels.some(([otherX, otherY]) => Math.abs(otherX - x) < 90 && Math.abs(otherY - below) < 14)) below += 14;
        labels.push([x, below]);
        if (z < 1) over.append(svg('text', { class: 'system', x: x + 6, y: below }, name || String(key)));
      }
    }
    if (!app.measured.length || !app.mesh) return;
    const places = app.measured.map((n) => app.stage.project(...app.mesh.position.subarray(3 * n, 3 * n + 3)));
    const group = svg('g', { class: 'measure' });
    group.append(svg('polyline', { points: places.map(([x, y]) => `${x},${y}`).join(' ') }));
    const m = app.measurement();
    const label = (x, y, text) => group.append(svg('text', { x, y: y - 8, 'text-anchor': 'middle' }, text));
    if (m.distance != null) label((places[0][0] + places[1][0]) / 2, (places[0][1] + places[1][1]) / 2, `${short(m.distance)} ${app.mesh.about.length_unit}`);
    if (m.angle != null) label(places[1][0], places[1][1] - 8, `${short(m.angle)}°`);
    over.append(group);
  });
  app.on('measured', () => app.stage.draw());
}

/** Asks the server whether the model has changed, and takes over what has. */
function follow(app, notice) {
  let revision = null;
  let lost = false;
  const ask = async () => {
    try {
      const state = await app.data.state();
      if (lost) notice('The server is back.');
      lost = false;
      if (revision !== null && state.revision !== revision && !app.editingNow) {
        app.packs.clear();
        if (app.shownStep == null) {
          await app.load({ keepCamera: true });
          const last = app.steps[app.present - 1];
          notice(last ? `The model has changed: ${last.name}` : 'The model has changed.');
        } else {
          notice('The model has changed; its present is one click away.');
          const { steps, step } = (await app.data.get('steps')).text;
          Object.assign(app, { steps, present: step });
          app.tell('step');
        }
      }
      revision = state.revision;
      app.revisionSeen = (r) => (revision = r);
    } catch {
      if (!lost) notice('The server has ended: the picture stays, but nothing new comes.');
      lost = true;
    }
    setTimeout(ask, lost ? 4000 : 1000);
  };
  ask();
  window.addEventListener('pagehide', () => app.data.bye());
}
