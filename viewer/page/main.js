// The page: opens its data, and builds the panels or a picture round the stage.

import { App } from './app.js';
import { openData } from './data.js';
import { el } from './dom.js';
import { buildPanels } from './panels.js';
import { buildPicture } from './picture.js';

const nextFrame = () => new Promise(requestAnimationFrame);

async function show(app) {
  const root = document.getElementById('app');
  const scene = document.getElementById('scene');
  try {
    if (app.software === null) throw new Error('This browser does not draw with WebGL 2. Another one, or its settings for hardware acceleration, may help.');
    if (scene) await buildPicture(app, root, JSON.parse(scene.dataset.scene));
    else await buildPanels(app, root);
    await nextFrame();
    window.qx.times.first_picture_ms = performance.now();
    window.qx.ready = true;
  } catch (error) {
    root.append(el('p', { class: 'failed', role: 'alert' }, `The model cannot be shown: ${error.message}`));
    throw error;
  }
}

const app = new App(openData());
window.qx = { app, ready: false, times: {} };
window.qx.shown = show(app);
