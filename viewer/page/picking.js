// What of a stage lies at a place of the screen, or in a box of it.

import { Vector2, Vector3 } from 'three';

function rayAt(stage, x, y) {
  stage.camera.updateMatrixWorld();
  stage.raycaster.setFromCamera(new Vector2((2 * x) / stage.size.x - 1, 1 - (2 * y) / stage.size.y), stage.camera);
  return stage.raycaster.ray;
}

function isCut(stage, x, y, z) {
  const { clip } = stage;
  return clip.x * x + clip.y * y + clip.z * z > clip.w;
}

/** The nearest triangle that a ray meets: [distance, triangle], or null. */
function cast(stage, buffers, ray, clipped) {
  const { position: p, face } = buffers;
  if (!face.length) return null;
  const { x: ox, y: oy, z: oz } = ray.origin;
  const { x: dx, y: dy, z: dz } = ray.direction;
  let best = Infinity;
  let found = -1;
  for (let t = 0, k = 0; t < face.length; t++, k += 9) {
    const ax = p[k];
    const ay = p[k + 1];
    const az = p[k + 2];
    const e1x = p[k + 3] - ax;
    const e1y = p[k + 4] - ay;
    const e1z = p[k + 5] - az;
    const e2x = p[k + 6] - ax;
    const e2y = p[k + 7] - ay;
    const e2z = p[k + 8] - az;
    const px = dy * e2z - dz * e2y;
    const py = dz * e2x - dx * e2z;
    const pz = dx * e2y - dy * e2x;
    const det = e1x * px + e1y * py + e1z * pz;
    if (det === 0) continue;
    const inv = 1 / det;
    const sx = ox - ax;
    const sy = oy - ay;
    const sz = oz - az;
    const u = (sx * px + sy * py + sz * pz) * inv;
    if (u < -1e-6 || u > 1.000001) continue;
    const qx = sy * e1z - sz * e1y;
    const qy = sz * e1x - sx * e1z;
    const qz = sx * e1y - sy * e1x;
    const v = (dx * qx + dy * qy + dz * qz) * inv;
    if (v < -1e-6 || u + v > 1.000001) continue;
    const distance = (e2x * qx + e2y * qy + e2z * qz) * inv;
    if (distance >= best) continue;
    if (!stage.perspective || distance > 0) {
      if (clipped && isCut(stage, ox + distance * dx, oy + distance * dy, oz + distance * dz)) continue;
      best = distance;
      found = t;
    }
  }
  return found < 0 ? null : [best, found];
}

/** What is at a place of the screen: {face, element, point, kind}, or null. */
export function pick(stage, x, y) {
  const ray = rayAt(stage, x, y);
  let hit = null;
  const on = cast(stage, stage.faces, ray, true);
  if (on) {
    const face = stage.faces.face[on[1]];
    hit = { distance: on[0], face, element: stage.table.element[face], kind: 'face' };
  }
  const cap = cast(stage, stage.caps, ray, false);
  if (cap && (!hit || cap[0] < hit.distance)) {
    hit = { distance: cap[0], face: -1, element: stage.capOf[stage.caps.face[cap[1]]], kind: 'cut' };
  }
  if (hit) hit.point = ray.at(hit.distance, new Vector3()).toArray();
  const depth = hit ? stage.project(...hit.point)[2] + 0.002 : 1;
  // Lines and points are met by their place on the screen, as they have no width in the model.
  let reach = 7;
  const lp = stage.linePosition;
  for (let i = 0; i < stage.lineOf.length; i++) {
    const a = stage.project(lp[6 * i], lp[6 * i + 1], lp[6 * i + 2]);
    const b = stage.project(lp[6 * i + 3], lp[6 * i + 4], lp[6 * i + 5]);
    const l2 = (b[0] - a[0]) ** 2 + (b[1] - a[1]) ** 2 || 1;
    const t = Math.min(1, Math.max(0, ((x - a[0]) * (b[0] - a[0]) + (y - a[1]) * (b[1] - a[1])) / l2));
    const d = Math.hypot(a[0] + t * (b[0] - a[0]) - x, a[1] + t * (b[1] - a[1]) - y);
    if (d >= reach || a[2] + t * (b[2] - a[2]) > depth) continue;
    const q = [0, 1, 2].map((c) => lp[6 * i + c] + t * (lp[6 * i + 3 + c] - lp[6 * i + c]));
    if (isCut(stage, ...q)) continue;
    reach = d;
    hit = { face: -1, element: stage.lineOf[i], kind: 'line', point: q };
  }
  const pp = stage.pointPosition;
  for (let i = 0; i < stage.pointNodes.length; i++) {
    const s = stage.project(pp[3 * i], pp[3 * i + 1], pp[3 * i + 2]);
    const d = Math.hypot(s[0] - x, s[1] - y);
    if (d >= Math.min(reach, 8) || s[2] > depth || isCut(stage, pp[3 * i], pp[3 * i + 1], pp[3 * i + 2])) continue;
    reach = d;
    hit = { face: -1, element: stage.pointOf[i], node: stage.pointNodes[i], kind: 'point', point: [...pp.subarray(3 * i, 3 * i + 3)] };
  }
  return hit;
}

/** The node nearest to a place of the screen that is not hidden: its number, or -1. */
export function pickNode(stage, x, y) {
  const hit = pick(stage, x, y);
  const p = stage.mesh.position;
  let best = 18;
  let found = -1;
  const ask = (n) => {
    const s = stage.project(p[3 * n], p[3 * n + 1], p[3 * n + 2]);
    const d = Math.hypot(s[0] - x, s[1] - y);
    if (d < best) {
      best = d;
      found = n;
    }
  };
  if (hit && hit.kind === 'face') {
    best = Infinity; // one of its own, however large it is on the screen
    for (let i = stage.table.first[hit.face]; i < stage.table.first[hit.face + 1]; i++) ask(stage.table.node[i]);
    return found;
  }
  if (hit && hit.kind === 'point') return hit.node;
  if (hit) {
    best = Infinity;
    for (const n of stage.mesh.nodesOf(hit.element)) ask(n);
    return found;
  }
  for (const n of stage.pointNodes) ask(n);
  for (let i = 0; i < stage.table.node.length && stage.table.node.length < 400000; i++) ask(stage.table.node[i]);
  return found;
}

/** The faces that look towards the eye with their middle in a box of the screen. */
export function facesIn(stage, x0, y0, x1, y1) {
  const p = stage.mesh.position;
  const { table } = stage;
  const found = [];
  const view = new Vector3();
  const n = [0, 0, 0];
  stage.camera.getWorldDirection(view);
  for (let f = 0; f < table.count; f++) {
    let x = 0;
    let y = 0;
    let z = 0;
    const k = table.corners(f);
    for (let i = 0; i < k; i++) {
      const at = 3 * table.node[table.first[f] + i];
      x += p[at] / k;
      y += p[at + 1] / k;
      z += p[at + 2] / k;
    }
    if (isCut(stage, x, y, z)) continue;
    const s = stage.project(x, y, z);
    if (s[0] < x0 || s[0] > x1 || s[1] < y0 || s[1] > y1) continue;
    stage.mesh.normal(table, f, n);
    if (stage.perspective) view.set(x, y, z).sub(stage.camera.position).normalize();
    if (table.side[f] !== 255 && n[0] * view.x + n[1] * view.y + n[2] * view.z > -0.02) continue;
    found.push(f);
  }
  return found;
}

export function linesIn(stage, x0, y0, x1, y1) {
  const lp = stage.linePosition;
  return stage.lineOf.filter((_, i) => {
    const s = stage.project((lp[6 * i] + lp[6 * i + 3]) / 2, (lp[6 * i + 1] + lp[6 * i + 4]) / 2, (lp[6 * i + 2] + lp[6 * i + 5]) / 2);
    return s[0] >= x0 && s[0] <= x1 && s[1] >= y0 && s[1] <= y1;
  });
}
