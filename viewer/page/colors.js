// What colour each element has, and the legend that tells it.

import * as palette from './palette.js';

const UNBOUNDED = 1e29; // ratios without bound come as 1e30

export const plainColors = {
  set: 'mesh set', property: 'property', material: 'material', kind: 'element kind', part: 'connected part', none: 'nothing',
};
export const ownFields = { thickness: 'thickness', x: 'x of the middle', y: 'y of the middle', z: 'z of the middle' };

/** Own colours where the records have different ones, a palette's otherwise. */
export function colorsOfRecords(records) {
  const own = new Set(records.map((r) => r.color));
  return records.map((r, i) => (records.length > 1 && own.size > 1 ? r.color : palette.thing(i)));
}

/** Colours of all elements, and the legend that tells them. */
export async function elementColors(app) {
  const { mesh } = app;
  const { by } = app.color;
  const colors = new Uint32Array(mesh.elementCount).fill(palette.neutral);
  const things = (title, rows, place) => {
    for (let e = 0; e < colors.length; e++) {
      const row = rows[place(e)];
      if (row) colors[e] = row.color;
    }
    return { colors, legend: { title, rows: rows.filter((r) => r.show !== false) } };
  };
  if (by === 'none') return { colors, legend: null };
  if (by === 'set') {
    const depth = (set, seen = new Set()) => {
      const parent = mesh.sets.find((s) => s.key === set.parent);
      return !parent || seen.has(set) ? 0 : 1 + depth(parent, seen.add(set));
    };
    const ordered = [...mesh.sets].sort((a, b) => depth(a) - depth(b));
    for (const set of ordered) for (const e of set.elementList) colors[e] = set.color;
    const rows = mesh.sets.filter((s) => s.elements).map((s) => ({ label: s.name, color: s.color, count: s.elements }));
    const listed = new Uint8Array(mesh.elementCount);
    for (const set of mesh.sets) for (const e of set.elementList) listed[e] = 1;
    const others = listed.reduce((sum, one) => sum - one, mesh.elementCount);
    if (others) rows.push({ label: 'in no set', color: palette.neutral, count: others });
    return { colors, legend: { title: 'Mesh sets', rows } };
  }
  if (by === 'kind') {
    const place = new Int16Array(256);
    mesh.about.types.forEach((t, i) => (place[t.code] = i));
    const rows = mesh.about.types.map((t, i) => ({ label: t.name, color: palette.thing(i), count: t.elements }));
    return things('Element kinds', rows, (e) => place[mesh.elementType[e]]);
  }
  if (by === 'property' || by === 'material') {
    const { properties, materials } = mesh.about;
    const records = by === 'property' ? properties : materials;
    const own = colorsOfRecords(records);
    const used = new Set(mesh.elementProperty);
    const rows = records.map((r, i) => ({ label: `${r.key}  ${r.name}`, color: own[i] }));
    const placeOfMaterial = new Map(materials.map((m, i) => [m.key, i]));
    const place = properties.map((p, i) => (by === 'property' ? i : placeOfMaterial.get(p.material) ?? -1));
    properties.forEach((_, i) => {
      if (rows[place[i]]) rows[place[i]].show ||= used.has(i);
    });
    rows.forEach((r) => (r.show ||= false));
    const shown = things(by === 'property' ? 'Properties' : 'Materials', rows, (e) => place[mesh.elementProperty[e]] ?? -1);
    if (used.has(-1)) shown.legend.rows.push({ label: `no ${by}`, color: palette.neutral });
    return shown;
  }
  return valueColors(app, colors, by);
}

/** The least and the largest of numbers that are some, and how many have no bound. */
function rangeOf(values, counts) {
  const out = { low: Infinity, high: -Infinity, unbounded: 0 };
  for (let i = 0; i < values.length; i++) {
    const v = values[i];
    if (!(v === v) || !counts(i)) continue;
    if (Math.abs(v) > UNBOUNDED) out.unbounded++;
    else {
      if (v < out.low) out.low = v;
      if (v > out.high) out.high = v;
    }
  }
  return out;
}

async function valueColors(app, colors, by) {
  const pack = await app.pack(`values/${by}`);
  const values = pack.array('values');
  const { mesh, visible } = app;
  const isShown = (e) => !visible || visible[e];
  const measure = app.measureOf(by);
  // A field by node has its extremes at nodes, and colours between them.
  const atNodes = pack.array('node_values');
  const { low, high, unbounded } = atNodes.length ? rangeOf(atNodes, () => true) : rangeOf(values, isShown);
  if (by === 'part') {
    const count = Math.max(high, 0);
    for (let e = 0; e < values.length; e++) if (values[e] === values[e]) colors[e] = palette.thing(values[e] - 1);
    const rows = Array.from({ length: Math.min(count, 12) }, (_, i) => ({ label: `part ${i + 1}`, color: palette.thing(i) }));
    if (count > 12) rows.push({ label: `and ${count - 12} more`, color: palette.neutral });
    return { colors, legend: { title: 'Connected parts', rows } };
  }
  const [from, to] = app.color.range || [low, high];
  const limit = app.color.limit ?? measure?.acceptable ?? null;
  const fails = (v) => measure && limit != null && (measure.high_is_bad ? v > limit : v < limit);
  const map = palette.table(app.color.palette);
  // What differs by its rounding alone is one value, and neither the best nor the worst.
  const uniform = !(to > from) || !app.color.range && to - from <= 1e-5 * Math.max(Math.abs(from), Math.abs(to));
  const place = (v) => (uniform ? 128 : Math.max(0, Math.min(255, Math.round(((v - from) * 255) / (to - from)))));
  const colorOf = (v) => (v === v ? map[Math.abs(v) > UNBOUNDED ? (v > 0 ? 255 : 0) : place(v)] : palette.outside);
  let failing = 0;
  let none = 0;
  const failed = new Map(); // shown where only they are to be seen
  for (let e = 0; e < values.length; e++) {
    const v = values[e];
    if (!(v === v)) {
      colors[e] = palette.outside;
      none++;
      continue;
    }
    const bad = fails(v);
    if (bad && isShown(e)) failing++;
    if (bad && app.color.only && isShown(e)) failed.set(e, palette.marks.fault);
    colors[e] = !app.color.only ? colorOf(v) : bad ? palette.marks.fault : palette.neutral;
  }
  const label = pack.text.label ?? (measure ? measure.label : ownFields[by] || by);
  const unit = pack.text.unit ?? (measure ? measure.unit : mesh.about.length_unit);
  const legend = { title: label, unit, range: [from, to], data: [low, high], uniform, map, limit, measure, failing, unbounded, none };
  return { colors, legend, failed, nodes: atNodes.length ? { values: atNodes, colorOf } : null };
}
