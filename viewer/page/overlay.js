// What stands over the picture: the legend and the directions of the axes.

import { Vector3 } from 'three';

import { el, grouped, short, svg } from './dom.js';
import { seedRows } from './glyphs.js';
import * as palette from './palette.js';

const axes = [['x', '#d55e00', 1, 0, 0], ['y', '#009e73', 0, 1, 0], ['z', '#0072b2', 0, 0, 1]];

/** The axes as a camera sees them. */
export function drawTriad(camera) {
  const view = new Vector3();
  const arms = axes.map(([name, color, x, y, z]) => {
    view.set(x, y, z).transformDirection(camera.matrixWorldInverse);
    return { name, color, x: view.x, y: -view.y, z: view.z };
  });
  arms.sort((a, b) => a.z - b.z); // those that point away first
  const lines = arms.flatMap(({ name, color, x, y }) => [
    svg('line', { x1: 0, y1: 0, x2: 24 * x, y2: 24 * y, stroke: color, 'stroke-width': 2.6, 'stroke-linecap': 'round' }),
    svg('text', { x: 32 * x, y: 32 * y + 4, 'text-anchor': 'middle', fill: color, 'font-size': 12, 'font-weight': 700 }, name),
  ]);
  return svg('svg', { viewBox: '-40 -40 80 80', width: 76, height: 76, 'aria-hidden': 'true' }, ...lines);
}

const swatch = (color) => {
  const box = el('span', { class: 'swatch' });
  box.style.background = palette.css(color);
  return box;
};

/** What of a model its picture does not show, in words; empty where it shows all. */
export function notDrawn({ left_out_elements: elements, left_out_nodes: nodes }) {
  const some = (n, what) => (n ? `${grouped(n)} ${what}${n > 1 ? 's' : ''}` : '');
  const parts = [some(elements, 'element'), some(nodes, 'node')].filter(Boolean);
  return parts.length ? `${parts.join(' and ')} not drawn` : '';
}

/** The larger part of a picture that its legend leaves, of what lies below `top`: beside the legend,
 * above or below it. In pixels of the picture. */
export function leftBy(holder, legend, top = 0) {
  const whole = holder.getBoundingClientRect();
  const all = { left: 0, top, width: whole.width, height: whole.height - top };
  const box = legend.getBoundingClientRect();
  if (legend.hidden || !box.width) return all;
  const gap = 8;
  const at = { left: box.left - whole.left - gap, top: box.top - whole.top - gap, bottom: box.bottom - whole.top + gap };
  const parts = [{ ...all, width: at.left }, { ...all, height: at.top - top }, { ...all, top: at.bottom, height: whole.height - at.bottom }];
  const size = (part) => Math.min(part.width, part.height) > 0 ? part.width * part.height : 0;
  const best = parts.reduce((a, b) => (size(b) > size(a) ? b : a));
  return size(best) > size(all) / 4 ? best : all;
}

const rowsOf = (rows, most) => [
  ...rows.slice(0, most).map(({ label, color, count }) => el('div', { class: 'legend-row' }, swatch(color), el('span', { class: 'name', title: label }, label),
    count == null ? null : el('span', { class: 'count' }, grouped(count)))),
  rows.length > most ? el('div', { class: 'hint' }, `and ${rows.length - most} more`) : ''];

/** Fills a legend, with fewer rows where it is part of a small page: what the marks mean, then
 * what the colours do. */
export function buildLegend(holder, app, interactive) {
  holder.replaceChildren();
  const { legend, markRows } = app;
  const most = !interactive ? 14 : matchMedia('(max-width: 900px)').matches ? 6 : 16;
  if (markRows.length) holder.append(el('h3', {}, app.markTitle), ...rowsOf(markRows, most));
  const seeds = seedRows(app);
  if (seeds.length) holder.append(el('h3', {}, 'Seeds'), ...rowsOf(seeds, most));
  // Beside marks all that has a colour steps back.
  const any = legend && !(legend.rows && !legend.rows.length) && !markRows.length;
  holder.hidden = !any && !markRows.length && !seeds.length;
  if (!any) return;
  holder.append(el('h3', {}, legend.title, legend.unit ? el('small', {}, ` ${legend.unit}`) : null));
  if (legend.rows) {
    holder.append(...rowsOf(legend.rows, most));
    return;
  }
  const [from, to] = legend.range;
  if (!(to >= from)) {
    holder.append(el('p', { class: 'hint' }, 'no element has this value'));
    return;
  }
  if (app.color.only) {
    holder.append(...rowsOf([{ label: 'fails the limit', color: palette.marks.fault }, { label: 'the rest', color: palette.neutral }], 2));
  } else if (legend.uniform) {
    holder.append(...rowsOf([{ label: `all ${short(from)}`, color: legend.map[128] }], 1));
  } else {
    holder.append(scaleOf(legend, from, to));
  }
  if (legend.measure && legend.limit != null) {
    const word = legend.measure.high_is_bad ? 'above' : 'below';
    holder.append(el('p', { class: legend.failing ? 'fails' : 'hint' }, `${grouped(legend.failing)} ${word} the limit ${short(legend.limit)}`));
  }
  if (legend.unbounded) holder.append(el('p', { class: 'hint' }, `${grouped(legend.unbounded)} without bound`));
  if (legend.none) holder.append(...rowsOf([{ label: 'no value', color: palette.outside, count: legend.none }], 1));
}

/** The bar of a range with its ticks. */
function scaleOf(legend, from, to) {
  const bar = el('canvas', { class: 'bar', width: 14, height: 256, role: 'img', 'aria-label': `from ${short(from)} to ${short(to)}` });
  const context = bar.getContext('2d');
  for (let i = 0; i < 256; i++) {
    context.fillStyle = palette.css(legend.map[255 - i]);
    context.fillRect(0, i, 14, 1);
  }
  const ticks = el('div', { class: 'ticks' });
  for (let i = 0; i <= 4; i++) ticks.append(el('span', {}, short(to - (i * (to - from)) / 4)));
  const limitMark = [];
  if (legend.measure && legend.limit != null && legend.limit >= from && legend.limit <= to && to > from) {
    const mark = el('span', { class: 'limit-mark', title: `limit ${short(legend.limit)}` });
    mark.style.bottom = `${(100 * (legend.limit - from)) / (to - from)}%`;
    limitMark.push(mark);
  }
  return el('div', { class: 'scale' }, el('div', { class: 'bar-holder' }, bar, ...limitMark), ticks);
}
