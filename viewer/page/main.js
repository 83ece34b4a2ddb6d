// The page: opens its data, and builds the panels or a picture round the stage.

import { App } from './app.js';
import { openData } from './data.js';
import { el } from './dom.js';
import { buildPanels } from './panels.js';
import { buildPicture } from './picture.js';

async function start() {
  const data = openData();
  const app = new App(data);
  const scene = document.getElementById('scene');
  window.qx = { app, ready: false, times: {} };
  const root = document.getElementById('app');
  if (app.software === null) {
    root.append(el('p', { class: 'failed' }, 'This browser does not draw with WebGL 2. Another one, or its settings for hardware acceleration, may help.'));
    return;
  }
  try {
    if (scene) await buildPicture(app, root, JSON.parse(scene.dataset.scene));
    else await buildPanels(app, root);
    requestAnimationFrame(() => {
      window.qx.times.first_picture_ms = performance.now();
      window.qx.ready = true;
    });
  } catch (error) {
    root.append(el('p', { class: 'failed', role: 'alert' }, `The model cannot be shown: ${error.message}`));
    throw error;
  }
}

start();
