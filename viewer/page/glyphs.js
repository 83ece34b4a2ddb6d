// Axes, coordinate systems and seeds in the picture.

import * as palette from './palette.js';

export async function showGlyphs(app) {
  const { stage, mesh } = app;
  const wanted = ['axes', 'material', 'orientation'].filter((name) => app.glyphs[name]);
  for (const name of ['axes', 'material', 'orientation', 'systems']) stage.setOverlay(name, null);
  const colors = [0xd55e00, 0x009e73, 0x0072b2].map((c) => [(c >> 16) / 255, (c >> 8 & 255) / 255, (c & 255) / 255]);
  const draw = (name, triads, count, size, which) => {
    const places = new Float32Array(count * which.length * 6);
    const tints = new Float32Array(places.length);
    let k = 0;
    for (let i = 0; i < count; i++) {
      for (const a of which) {
        for (let end = 0; end < 2; end++) {
          for (let c = 0; c < 3; c++) {
            places[k] = triads[12 * i + c] + end * size * triads[12 * i + 3 + 3 * a + c];
            tints[k++] = colors[a][c];
          }
        }
      }
    }
    stage.setOverlay(name, places, tints, 2.5, name === 'systems'); // which lie in corners and on axes of parts
  };
  if (wanted.length) {
    const pack = await app.pack('glyphs').catch((error) => app.tell('notice', error.message));
    if (!pack) return;
    for (const name of wanted) {
      const triads = pack.array(name);
      const of = pack.array(`${name}_element`);
      const kept = [];
      for (let i = 0; i < of.length; i++) {
        if (!app.visible || app.visible[of[i]]) kept.push(...triads.subarray(12 * i, 12 * i + 12));
      }
      const size = (1.1 * stage.radius) / Math.cbrt(Math.max(8, mesh.elementCount));
      draw(name, kept, kept.length / 12, size, name === 'orientation' ? [1, 2] : [0, 1, 2]);
      if (pack.text[`${name}_cut`]) app.tell('notice', 'Only the first 20 000 axes are drawn.');
    }
  }
  showSeeds(app);
  const systems = shownSystems(app);
  draw('systems', systems.flatMap((s) => [...s.origin, ...s.axes.flat()]), systems.length, 0.18 * stage.radius, [0, 1, 2]);
  stage.draw();
}

/** The coordinate systems that are drawn; one that gives no axes has no place. */
export const shownSystems = (app) => app.mesh.about.systems.filter((s) => s.origin && app.systems.has(s.key));

export async function loadSeeds(app) {
  if (!app.mesh.about.seeds || app.seeds) return;
  const pack = await app.data.get('seeds');
  const shift = pack.text.origin.map((c, i) => c - app.mesh.about.origin[i]);
  const placed = (name) => pack.array(name).map((v, i) => v + shift[i % 3]);
  app.seeds = { curves: placed('curves'), dots: placed('seeds'), curveControl: pack.array('curve_control'), seedControl: pack.array('seed_control') };
  app.seeds.controls = [...new Set(app.seeds.curveControl)].filter(Boolean).sort((a, b) => a - b);
  app.stage.beside = app.seeds.curves;
}

const seedColor = (seeds, control) => (control ? palette.thing(seeds.controls.indexOf(control)) : 0x8b949e);

/** What the colours of seeds mean, where they are shown. */
export function seedRows({ seeds, glyphs }) {
  if (!seeds || !glyphs.seeds) return [];
  const rows = seeds.controls.map((control) => ({ label: `size control ${control}`, color: seedColor(seeds, control) }));
  if (seeds.curveControl.includes(0)) rows.push({ label: 'no size control', color: seedColor(seeds, 0) });
  return rows;
}

/** Edges of geometry in the colours of their size controls, and their seeds. */
export function showSeeds(app) {
  const { seeds, stage } = app;
  const on = seeds && app.glyphs.seeds;
  stage.setOverlay('curves', null);
  stage.setDots('seeds', null);
  if (!on) return;
  const color = (control) => seedColor(seeds, control);
  const tints = new Float32Array(seeds.curves.length);
  seeds.curveControl.forEach((control, i) => {
    const c = color(control);
    for (let k = 6 * i; k < 6 * i + 6; k++) tints[k] = (c >> (16 - 8 * (k % 3)) & 255) / 255;
  });
  stage.setOverlay('curves', seeds.curves, tints, 2);
  stage.setDots('seeds', seeds.dots, Array.from(seeds.seedControl, color));
}
