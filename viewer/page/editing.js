// Editing, where the program was started for it: each edit is shown before it is done.

import { el, grouped } from './dom.js';

/** The buttons and, below them, the form of the edit that is asked for. */
export function buildEditing(app, right) {
  const buttons = el('div');
  const form = el('div', { class: 'edit-form' });
  right.append(el('section', { class: 'editing' }, buttons, form));
  const refresh = () => fill(app, buttons, form);
  const startAnew = () => {
    clear(form);
    refresh();
  };
  app.on('loaded', startAnew);
  app.on('selected', startAnew);
  app.on('step', () => (isPast(app) ? startAnew() : refresh()));
}

const isPast = (app) => app.shownStep != null && app.shownStep !== app.present;

/** An answer that is still to come is for a form that is gone. */
function clear(form) {
  form.asked = null;
  form.replaceChildren();
}

const keysOf = (keys, numbers) => [...numbers].filter((n) => n >= 0).map((n) => keys[n]);

function fill(app, buttons, form) {
  if (!app.mesh?.about.editable) {
    buttons.replaceChildren();
    return;
  }
  const elements = keysOf(app.mesh.elementKey, app.selectedElements());
  const own = keysOf(app.mesh.nodeKey, app.selection.nodes);
  const nodes = keysOf(app.mesh.nodeKey, app.selectedNodes());
  const past = isPast(app);
  const undone = app.steps.some((s) => !s.done);
  const act = (label, title, enabled, onclick, id) => el('button', { type: 'button', title, disabled: past || app.editingNow || !enabled, onclick, 'data-edit': id }, label);
  buttons.replaceChildren(
    el('h2', {}, 'Edit'),
    past ? el('p', { class: 'hint' }, 'The past cannot be changed; go back to the present.') : '',
    el('div', { class: 'row-buttons' },
      act('Delete', 'Delete what is selected, with what hangs on it', elements.length || own.length,
        () => preview(app, form, { edit: 'delete', records: { elem: elements, node: own } }), 'delete'),
      act('Make a set', 'A mesh set of the selection', elements.length || own.length, () => askSet(app, form, elements, own), 'set'),
      act('Move', 'Move the selected nodes, or those of the faces and elements', nodes.length || elements.length, () => askMove(app, form, nodes), 'move'),
      act('Fix', 'Repair the mesh', true, () => askFix(app, form), 'fix'),
      act('Undo', 'Take the last step back', app.present > 0, () => preview(app, form, { edit: 'undo' }), 'undo'),
      act('Redo', 'Do the step again that was undone', undone, () => preview(app, form, { edit: 'redo' }), 'redo')));
}

const cancel = (app, form) => el('button', { type: 'button', onclick: () => {
  clear(form);
  app.clearMarks();
} }, 'Cancel');

function ask(app, form, title, controls, request) {
  const go = el('form', { onsubmit: (event) => {
    event.preventDefault();
    const wanted = request();
    if (wanted) preview(app, form, wanted);
  } }, el('h3', {}, title), controls, el('div', { class: 'row-buttons' }, el('button', { type: 'submit', class: 'primary' }, 'Show what it does'), cancel(app, form)));
  clear(form);
  form.append(go);
  go.querySelector('input')?.focus();
}

function askSet(app, form, elements, nodes) {
  const name = el('input', { type: 'text', maxLength: 63, required: true, 'aria-label': 'Name of the set' });
  ask(app, form, 'Make a mesh set', el('label', { class: 'field' }, el('span', {}, 'Name'), name), () => ({ edit: 'set', name: name.value, elements, nodes }));
}

function askMove(app, form, nodes) {
  const all = new Set(nodes);
  for (const e of app.selection.elements) for (const n of app.mesh.nodesOf(e)) all.add(app.mesh.nodeKey[n]);
  const by = ['x', 'y', 'z'].map((axis) => el('input', { type: 'number', step: 'any', value: 0, 'aria-label': `By in ${axis}` }));
  ask(app, form, `Move ${grouped(all.size)} node${all.size > 1 ? 's' : ''} by`, el('div', { class: 'pair' }, by), () => ({ edit: 'move', nodes: [...all], by: by.map((i) => Number(i.value)) }));
}

function askFix(app, form) {
  const texts = { solids: 'Turn inverted solids over', shells: 'Make shells agree with their neighbours', duplicate_elements: 'Remove duplicate elements', unreferenced_nodes: 'Remove nodes that nothing uses' };
  const boxes = Object.entries(texts).map(([name, text]) => [name, el('input', { type: 'checkbox', checked: name !== 'unreferenced_nodes' }), text]);
  const tolerance = el('input', { type: 'number', step: 'any', min: 0, placeholder: 'no', 'aria-label': 'Merge nodes within' });
  ask(app, form, 'Repair the mesh', [boxes.map(([, box, text]) => el('label', { class: 'check' }, box, ` ${text}`)), el('label', { class: 'field' }, el('span', {}, 'Merge nodes within'), tolerance)], () => {
    const request = { edit: 'fix' };
    for (const [name, box] of boxes) request[name] = box.checked;
    if (tolerance.value !== '') request.merge_tolerance = Number(tolerance.value);
    return request;
  });
}

/** Shows what a request would do, in the picture and in numbers, and asks. */
async function preview(app, form, request) {
  form.asked = request;
  app.tell('busy', 'trying it on a copy');
  try {
    const back = request.edit === 'undo';
    const isOfStep = back || request.edit === 'redo';
    const pack = isOfStep ? await app.data.get('changes', app.present + (back ? 0 : 1)) : await app.data.preview(request);
    if (form.asked !== request) return;
    const counts = Object.entries(pack.text.counts || {}).map(([table, [added, removed, changed]]) =>
      [table, back ? [removed, added, changed] : [added, removed, changed]]);
    app.markChanges(pack, { ahead: true, back });
    const turned = [...pack.array('element_turned')];
    const rows = counts.map(([table, [added, removed, changed]]) => el('tr', {}, el('th', { scope: 'row' }, table), el('td', {}, added ? `+${grouped(added)}` : ''), el('td', {}, removed ? `−${grouped(removed)}` : ''), el('td', {}, changed ? `~${grouped(changed)}` : '')));
    form.replaceChildren(
      el('h3', {}, isOfStep ? `${back ? 'Undo' : 'Redo'}: ${pack.text.name}` : pack.text.name || request.edit),
      rows.length ? el('table', { class: 'counts' }, el('tr', {}, el('th', {}), el('td', {}, 'added'), el('td', {}, 'removed'), el('td', {}, 'changed')), rows) : el('p', { class: 'hint' }, 'Nothing would change.'),
      turned.length ? el('p', { class: 'hint' }, `Turns the local axes of ${turned.length > 1 ? `${grouped(turned.length)} elements` : 'element'}: ${turned.slice(0, 6).join(', ')}${turned.length > 6 ? ', …' : ''}`) : '',
      el('div', { class: 'row-buttons' }, rows.length ? el('button', { type: 'button', class: 'primary', 'data-edit': 'do', onclick: () => perform(app, form, { ...request, turn: true }) }, 'Do it') : '', cancel(app, form)));
    form.querySelector('.primary')?.focus();
  } catch (error) {
    if (form.asked === request) tellFault(app, form, error);
  } finally {
    app.tell('busy', null);
  }
}

function tellFault(app, form, error) {
  form.replaceChildren(el('p', { class: 'fails', role: 'alert' }, error.message), el('div', { class: 'row-buttons' }, cancel(app, form)));
}

/** Does it. Until all of it is shown there is no other edit: what one asked for meanwhile would go
    with the old picture. */
async function perform(app, form, request) {
  if (app.editingNow) return;
  app.editingNow = true;
  app.tell('step');
  app.tell('busy', 'editing');
  let fault = null;
  try {
    await app.data.edit(request);
    app.revisionSeen?.((await app.data.state()).revision);
    app.packs.clear();
    clear(form);
    app.clearMarks();
    app.step = null;
    app.shownStep = null;
    await app.load({ keepCamera: true });
    if (request.edit !== 'undo' && request.edit !== 'redo') app.markChanges(await app.data.get('changes'));
  } catch (error) {
    fault = error;
  }
  app.editingNow = false;
  app.tell('step');
  if (fault) tellFault(app, form, fault);
  app.tell('busy', null);
}
