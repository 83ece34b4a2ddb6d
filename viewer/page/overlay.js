// What stands over the picture: the legend and the directions of the axes.

import { Vector3 } from 'three';

import { el, grouped, short, svg } from './dom.js';
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

/** Fills a legend; with controls of its range where it is part of the page. */
export function buildLegend(holder, app, interactive) {
  holder.replaceChildren();
  const { legend } = app;
  holder.hidden = !legend || (legend.rows && !legend.rows.length);
  if (holder.hidden) return;
  holder.append(el('h3', {}, legend.title, legend.unit ? el('small', {}, ` ${legend.unit}`) : null));
  if (legend.rows) {
    const most = !interactive ? 14 : matchMedia('(max-width: 900px)').matches ? 6 : 16;
    for (const { label, color, count } of legend.rows.slice(0, most)) {
      holder.append(el('div', { class: 'legend-row' }, swatch(color), el('span', { class: 'name' }, label),
        count == null ? null : el('span', { class: 'count' }, grouped(count))));
    }
    if (legend.rows.length > most) holder.append(el('div', { class: 'hint' }, `and ${legend.rows.length - most} more`));
    return;
  }
  const [from, to] = legend.range;
  if (!(to >= from)) {
    holder.append(el('p', { class: 'hint' }, 'no element has this value'));
    return;
  }
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
  holder.append(el('div', { class: 'scale' }, el('div', { class: 'bar-holder' }, bar, ...limitMark), ticks));
  if (legend.measure && legend.limit != null) {
    const word = legend.measure.high_is_bad ? 'above' : 'below';
    holder.append(el('p', { class: legend.failing ? 'fails' : 'hint' }, `${grouped(legend.failing)} ${word} the limit ${short(legend.limit)}`));
  }
  if (legend.unbounded) holder.append(el('p', { class: 'hint' }, `${grouped(legend.unbounded)} without bound`));
  if (legend.none) holder.append(el('div', { class: 'legend-row' }, swatch(palette.outside), el('span', { class: 'name' }, 'no value'), el('span', { class: 'count' }, grouped(legend.none))));
}
