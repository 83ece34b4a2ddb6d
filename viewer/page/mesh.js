// The mesh as arrays: what is seen of it, and what would be seen if some of it were not.

/** Triangles of a face by its number of nodes: three places, then which side of the face is
 * opposite each of them, -1 for none. Corners come first in a face, then the nodes between them. */
export const triangles = {
  3: [[0, 1, 2, 1, 2, 0]],
  4: [[0, 1, 2, 1, -1, 0], [0, 2, 3, 2, 3, -1]],
  // Round the middle, so that each triangle at a node between corners has its side: place -1.
  6: [[0, 3], [3, 1], [1, 4], [4, 2], [2, 5], [5, 0]].map(([a, b], i) => [a, b, -1, -1, -1, i >> 1]),
  8: [[0, 4], [4, 1], [1, 5], [5, 2], [2, 6], [6, 3], [3, 7], [7, 0]].map(([a, b], i) => [a, b, -1, -1, -1, i >> 1]),
};
/** Shares of a corner and of a node between corners in the middle of a quadratic face. */
export const middleShares = { 6: [-1 / 9, 4 / 9], 8: [-1 / 4, 1 / 2] };
const cornersOf = { 3: 3, 4: 4, 6: 3, 8: 4 };

/** Faces of solids by their number of corners, outwards. */
const solidFaces = {
  4: [[0, 2, 1], [0, 1, 3], [1, 2, 3], [2, 0, 3]],
  5: [[0, 3, 2, 1], [0, 1, 4], [1, 2, 4], [2, 3, 4], [3, 0, 4]],
  6: [[0, 2, 1], [3, 4, 5], [0, 1, 4, 3], [1, 2, 5, 4], [2, 0, 3, 5]],
  8: [[0, 3, 2, 1], [4, 5, 6, 7], [0, 1, 5, 4], [1, 2, 6, 5], [2, 3, 7, 6], [3, 0, 4, 7]],
};
export const solidEdges = {
  4: [[0, 1], [1, 2], [2, 0], [0, 3], [1, 3], [2, 3]],
  5: [[0, 1], [1, 2], [2, 3], [3, 0], [0, 4], [1, 4], [2, 4], [3, 4]],
  6: [[0, 1], [1, 2], [2, 0], [3, 4], [4, 5], [5, 3], [0, 3], [1, 4], [2, 5]],
  8: [[0, 1], [1, 2], [2, 3], [3, 0], [4, 5], [5, 6], [6, 7], [7, 4], [0, 4], [1, 5], [2, 6], [3, 7]],
};

const powerAbove = (n) => 2 ** Math.ceil(Math.log2(Math.max(16, n)));

/** Faces in a row: of face f the nodes from first[f] to first[f + 1]. */
class FaceTable {
  constructor(count, nodes) {
    this.count = 0;
    this.first = new Uint32Array(count + 1);
    this.node = new Int32Array(nodes);
    this.element = new Int32Array(count);
    this.side = new Uint8Array(count);
  }
  size(f) {
    return this.first[f + 1] - this.first[f];
  }
  corners(f) {
    return cornersOf[this.size(f)];
  }
}

export class Mesh {
  constructor(pack) {
    this.pack = pack;
    this.about = pack.text;
    this.position = pack.array('node_position');
    this.nodeKey = pack.array('node_key');
    this.elementKey = pack.array('element_key');
    this.elementType = pack.array('element_type');
    this.elementProperty = pack.array('element_property');
    this.lineNode = pack.array('line_node');
    this.lineElement = pack.array('line_element');
    this.pointNode = pack.array('point_node');
    this.pointElement = pack.array('point_element');
    this.loneNode = pack.array('lone_node');
    this.solids = null;
    this.faces = this.readFaces();
    this.readSets();
  }

  get elementCount() {
    return this.elementKey.length;
  }

  readFaces() {
    const sizes = [3, 4, 6, 8];
    const of = sizes.map((n) => this.pack.array(`face_element${n}`));
    const count = of.reduce((sum, a) => sum + a.length, 0);
    const faces = new FaceTable(count, of.reduce((sum, a, i) => sum + a.length * sizes[i], 0));
    sizes.forEach((n, i) => {
      const begin = faces.first[faces.count];
      faces.node.set(this.pack.array(`face_node${n}`), begin);
      faces.element.set(of[i], faces.count);
      faces.side.set(this.pack.array(`face_side${n}`), faces.count);
      for (let f = 0; f < of[i].length; f++) faces.first[++faces.count] = begin + n * (f + 1);
    });
    return faces;
  }

  readSets() {
    const elements = this.pack.array('set_element');
    const nodes = this.pack.array('set_node');
    let e = 0;
    let n = 0;
    this.sets = this.about.sets.map((set) => ({
      ...set,
      elementList: elements.subarray(e, (e += set.elements)),
      nodeList: nodes.subarray(n, (n += set.nodes)),
    }));
  }

  /** Takes in the solids and the nodes inside. */
  addVolume(pack) {
    const inner = pack.array('node_position');
    const position = new Float32Array(this.position.length + inner.length);
    position.set(this.position);
    position.set(inner, this.position.length);
    this.position = position;
    const keys = pack.array('node_key');
    const nodeKey = new Int32Array(this.nodeKey.length + keys.length);
    nodeKey.set(this.nodeKey);
    nodeKey.set(keys, this.nodeKey.length);
    this.nodeKey = nodeKey;
    this.solids = [4, 5, 6, 8].map((corners) => ({
      corners,
      node: pack.array(`solid_node${corners}`),
      element: pack.array(`solid_element${corners}`),
    }));
  }

  /** Bytes of the arrays, what is drawn aside. */
  bytes() {
    let sum = this.pack.buffer.byteLength + this.faces.node.byteLength + 9 * this.faces.count;
    if (this.solids) {
      sum += this.position.byteLength + this.nodeKey.byteLength;
      for (const s of this.solids) sum += s.node.byteLength + s.element.byteLength;
    }
    return sum;
  }

  elementOfKey(key) {
    return (this.elementIndex ||= new KeyIndex(this.elementKey)).find(key);
  }
  nodeOfKey(key) {
    if (this.nodeIndex?.keys !== this.nodeKey) this.nodeIndex = new KeyIndex(this.nodeKey);
    return this.nodeIndex.find(key);
  }

  /** Numbers of the sets that list an element. */
  setsOf(element) {
    return this.sets.filter((set) => contains(set.elementList, element));
  }

  /** The nodes of an element as far as they are known: of its drawn parts, or of the solid. */
  nodesOf(element) {
    for (const { corners, node, element: of } of this.solids || []) {
      const at = of.indexOf(element);
      if (at >= 0) return Array.from(node.subarray(corners * at, corners * (at + 1)));
    }
    const nodes = new Set();
    for (let f = 0; f < this.faces.count; f++) {
      if (this.faces.element[f] !== element) continue;
      for (let i = this.faces.first[f]; i < this.faces.first[f + 1]; i++) nodes.add(this.faces.node[i]);
    }
    this.lineElement.forEach((e, i) => {
      if (e === element) nodes.add(this.lineNode[2 * i]).add(this.lineNode[2 * i + 1]);
    });
    this.pointElement.forEach((e, i) => e === element && nodes.add(this.pointNode[i]));
    return [...nodes];
  }

  /** The faces that are seen when only the marked elements are there. `visible` null: all. */
  visibleFaces(visible) {
    if (!visible) return this.faces;
    const all = this.faces;
    const kept = [];
    let nodes = 0;
    for (let f = 0; f < all.count; f++) {
      if (!visible[all.element[f]]) continue;
      kept.push(f);
      nodes += all.size(f);
    }
    const bared = this.solids ? this.baredFaces(visible) : { element: [], side: [], node: [], size: [] };
    const table = new FaceTable(kept.length + bared.element.length, nodes + bared.node.length);
    let at = 0;
    for (const f of kept) {
      for (let i = all.first[f]; i < all.first[f + 1]; i++) table.node[at++] = all.node[i];
      table.element[table.count] = all.element[f];
      table.side[table.count] = all.side[f];
      table.first[++table.count] = at;
    }
    table.node.set(bared.node, at);
    bared.size.forEach((size, i) => {
      table.element[table.count] = bared.element[i];
      table.side[table.count] = bared.side[i];
      table.first[++table.count] = at += size;
    });
    return table;
  }

  /** Faces of solids that are there to ones that are not: every face of the smaller of the two
   * groups is put in a table, and those of the other are looked up in it. */
  baredFaces(visible) {
    let there = 0;
    let gone = 0;
    for (const { corners, element } of this.solids) {
      for (const e of element) visible[e] ? (there += corners === 8 ? 6 : 5) : (gone += corners === 8 ? 6 : 5);
    }
    const out = { element: [], side: [], node: [], size: [] };
    if (!there || !gone) return out;
    const keep = there <= gone ? 1 : 0; // which group goes into the table
    const mask = powerAbove(2 * Math.min(there, gone)) - 1;
    const slot = new Int32Array(mask + 1); // number of a kept face, from 1
    const key = [];
    const where = [];
    const sorted = new Int32Array(4);
    const sort = (node, base, face) => {
      sorted[3] = -1;
      for (let i = 0; i < face.length; i++) {
        let j = i - 1;
        const n = node[base + face[i]];
        for (; j >= 0 && sorted[j] > n; j--) sorted[j + 1] = sorted[j];
        sorted[j + 1] = n;
      }
    };
    const hash = () => (Math.imul(sorted[0], 73856093) ^ Math.imul(sorted[1], 19349663) ^
      Math.imul(sorted[2], 83492791)) >>> 0 & mask;
    const find = () => {
      let h = hash();
      for (; slot[h]; h = (h + 1) & mask) {
        const k = 4 * (slot[h] - 1);
        if (key[k] === sorted[0] && key[k + 1] === sorted[1] && key[k + 2] === sorted[2] &&
            key[k + 3] === sorted[3]) break;
      }
      return h;
    };
    const each = (wanted, visit) => {
      this.solids.forEach(({ corners, node, element }, group) => {
        for (let i = 0; i < element.length; i++) {
          if ((visible[element[i]] ? 1 : 0) !== wanted) continue;
          solidFaces[corners].forEach((face, side) => {
            sort(node, corners * i, face);
            visit(group, i, side);
          });
        }
      });
    };
    const push = (group, i, side) => {
      const { corners, node, element } = this.solids[group];
      const face = solidFaces[corners][side];
      for (const place of face) out.node.push(node[corners * i + place]);
      out.element.push(element[i]);
      out.side.push(side);
      out.size.push(face.length);
    };
    each(keep, (group, i, side) => {
      const h = find();
      if (slot[h]) return;
      key.push(sorted[0], sorted[1], sorted[2], sorted[3]);
      where.push(group, i, side);
      slot[h] = key.length / 4;
    });
    each(1 - keep, (group, i, side) => {
      const s = slot[find()];
      if (!s) return;
      if (keep) push(where[3 * s - 3], where[3 * s - 2], where[3 * s - 1]);
      else push(group, i, side);
    });
    return out;
  }

  /** The unit normal of a face of a table, into `out`. */
  normal(faces, f, out) {
    const p = this.position;
    const n = faces.node;
    const at = faces.first[f];
    const quad = faces.corners(f) === 4;
    const a = 3 * n[at];
    const b = 3 * n[at + 1];
    const c = 3 * n[at + 2];
    const d = quad ? 3 * n[at + 3] : a;
    // Of a quadrilateral the product of its diagonals.
    const ux = quad ? p[c] - p[a] : p[b] - p[a];
    const uy = quad ? p[c + 1] - p[a + 1] : p[b + 1] - p[a + 1];
    const uz = quad ? p[c + 2] - p[a + 2] : p[b + 2] - p[a + 2];
    const vx = quad ? p[d] - p[b] : p[c] - p[a];
    const vy = quad ? p[d + 1] - p[b + 1] : p[c + 1] - p[a + 1];
    const vz = quad ? p[d + 2] - p[b + 2] : p[c + 2] - p[a + 2];
    const x = uy * vz - uz * vy;
    const y = uz * vx - ux * vz;
    const z = ux * vy - uy * vx;
    const length = Math.hypot(x, y, z) || 1;
    out[0] = x / length;
    out[1] = y / length;
    out[2] = z / length;
  }

  /** How the faces of a table meet: `across[4 f + side]` the face at the other side of a side, -1
   * for none or several; `sharp[f]` a bit for each side that is free, shared by more than two, or
   * at which faces turn by more than the angle. */
  adjacency(faces, angleDeg) {
    const count = faces.count;
    const normals = new Float32Array(3 * count);
    const one = [0, 0, 0];
    for (let f = 0; f < count; f++) {
      this.normal(faces, f, one);
      normals.set(one, 3 * f);
    }
    const across = new Int32Array(4 * count).fill(-1);
    const sharp = new Uint8Array(count);
    const mask = powerAbove(8 * count) - 1;
    const slot = new Int32Array(mask + 1); // side that came first, from 1; negative: several
    const low = new Int32Array(4 * count);
    const high = new Int32Array(4 * count);
    const bound = Math.cos((angleDeg * Math.PI) / 180);
    for (let f = 0; f < count; f++) {
      const corners = faces.corners(f);
      const at = faces.first[f];
      for (let s = 0; s < corners; s++) {
        const a = faces.node[at + s];
        const b = faces.node[at + ((s + 1) % corners)];
        const me = 4 * f + s;
        low[me] = Math.min(a, b);
        high[me] = Math.max(a, b);
        // A shell that lies on a solid is no neighbour of the solid's faces.
        const shell = faces.side[f] === 255;
        let h = (Math.imul(low[me], 73856093) ^ Math.imul(high[me], 19349663) ^ (shell ? 0x5bd1e995 : 0)) >>> 0 & mask;
        for (; slot[h]; h = (h + 1) & mask) {
          const k = Math.abs(slot[h]) - 1;
          if (low[k] === low[me] && high[k] === high[me] && (faces.side[k >> 2] === 255) === shell) break;
        }
        if (!slot[h]) {
          slot[h] = me + 1;
          sharp[f] |= 1 << s; // until another face is met
          continue;
        }
        const other = Math.abs(slot[h]) - 1;
        const g = other >> 2;
        if (slot[h] < 0) { // a third face
          sharp[f] |= 1 << s;
          sharp[g] |= 1 << (other & 3);
          if (across[other] >= 0) across[across[other] * 4 + this.sideTo(faces, across[other], low[me], high[me])] = -1;
          across[other] = -1;
          continue;
        }
        slot[h] = -slot[h];
        across[me] = g;
        across[other] = f;
        const dot = normals[3 * f] * normals[3 * g] + normals[3 * f + 1] * normals[3 * g + 1] +
          normals[3 * f + 2] * normals[3 * g + 2];
        // Shells may be turned against each other; what counts is the fold.
        if (Math.abs(dot) < bound || (dot < 0 && faces.side[f] !== 255)) sharp[f] |= 1 << s;
        else sharp[g] &= ~(1 << (other & 3));
      }
    }
    return { across, sharp, normals };
  }

  sideTo(faces, f, low, high) {
    const corners = faces.corners(f);
    for (let s = 0; s < corners; s++) {
      const a = faces.node[faces.first[f] + s];
      const b = faces.node[faces.first[f] + ((s + 1) % corners)];
      if (Math.min(a, b) === low && Math.max(a, b) === high) return s;
    }
    return 0;
  }
}

/** From keys to places. Ascending keys are searched, others get a map. */
class KeyIndex {
  constructor(keys) {
    this.keys = keys;
    for (let i = 1; i < keys.length && !this.map; i++) {
      if (keys[i] <= keys[i - 1]) this.map = new Map(Array.from(keys, (key, place) => [key, place]));
    }
  }
  find(key) {
    if (this.map) return this.map.get(key) ?? -1;
    const at = lowerBound(this.keys, key);
    return this.keys[at] === key ? at : -1;
  }
}

function lowerBound(sorted, value) {
  let low = 0;
  let high = sorted.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (sorted[middle] < value) low = middle + 1;
    else high = middle;
  }
  return low;
}
export const contains = (sorted, value) => sorted[lowerBound(sorted, value)] === value;

/** Where a plane cuts the visible solids: polygons as a list of points, with their elements. The
 * plane is where normal . p = at. */
export function cutSolids(mesh, visible, normal, at) {
  const p = mesh.position;
  const count = p.length / 3;
  const distance = new Float32Array(count);
  for (let n = 0; n < count; n++) {
    distance[n] = normal[0] * p[3 * n] + normal[1] * p[3 * n + 1] + normal[2] * p[3 * n + 2] - at;
  }
  // Two directions in the plane, to go round each polygon.
  const helper = Math.abs(normal[0]) < 0.6 ? [1, 0, 0] : [0, 1, 0];
  const cross = (a, b) => [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
  const u = cross(normal, helper);
  const v = cross(normal, u);
  const points = [];
  const first = [0];
  const element = [];
  const own = new Float64Array(3 * 12);
  const angle = new Float64Array(12);
  const order = new Int8Array(12);
  for (const { corners, node, element: of } of mesh.solids) {
    const edges = solidEdges[corners];
    for (let i = 0; i < of.length; i++) {
      if (visible && !visible[of[i]]) continue;
      const base = corners * i;
      let above = 0;
      for (let c = 0; c < corners; c++) if (distance[node[base + c]] > 0) above++;
      if (above === 0 || above === corners) continue;
      let k = 0;
      let cx = 0;
      let cy = 0;
      let cz = 0;
      for (const [a, b] of edges) {
        const na = node[base + a];
        const nb = node[base + b];
        const da = distance[na];
        const db = distance[nb];
        if (da > 0 === db > 0) continue;
        const t = da / (da - db);
        cx += own[3 * k] = p[3 * na] + t * (p[3 * nb] - p[3 * na]);
        cy += own[3 * k + 1] = p[3 * na + 1] + t * (p[3 * nb + 1] - p[3 * na + 1]);
        cz += own[3 * k + 2] = p[3 * na + 2] + t * (p[3 * nb + 2] - p[3 * na + 2]);
        k++;
      }
      if (k < 3) continue;
      cx /= k;
      cy /= k;
      cz /= k;
      for (let j = 0; j < k; j++) {
        const x = own[3 * j] - cx;
        const y = own[3 * j + 1] - cy;
        const z = own[3 * j + 2] - cz;
        angle[j] = Math.atan2(x * v[0] + y * v[1] + z * v[2], x * u[0] + y * u[1] + z * u[2]);
        let m = j - 1;
        for (; m >= 0 && angle[order[m]] > angle[j]; m--) order[m + 1] = order[m];
        order[m + 1] = j;
      }
      for (let j = 0; j < k; j++) {
        const o = 3 * order[j];
        points.push(own[o], own[o + 1], own[o + 2]);
      }
      first.push(points.length / 3);
      element.push(of[i]);
    }
  }
  return { points, first, element };
}
