// What is shown of the model, and how: visibility, colours, cuts, marks, selection, history.

import { elementColors } from './colors.js';
import * as glyphs from './glyphs.js';
import * as marks from './marks.js';
import { cutSolids, Mesh } from './mesh.js';
import * as palette from './palette.js';
import * as picking from './picking.js';
import { Stage } from './stage.js';

const softwareRenderer = () => {
  const gl = document.createElement('canvas').getContext('webgl2');
  if (!gl) return null;
  const info = gl.getExtension('WEBGL_debug_renderer_info');
  const name = info ? gl.getParameter(info.UNMASKED_RENDERER_WEBGL) : '';
  gl.getExtension('WEBGL_lose_context')?.loseContext();
  return /swiftshader|llvmpipe|software|basic render/i.test(name);
};

export class App {
  constructor(data) {
    this.data = data;
    this.hidden = new Set();
    this.hiddenElements = new Set();
    this.isolated = null;
    this.color = { by: null, palette: 'viridis', range: null, limit: null, only: false };
    this.selection = { elements: new Set(), nodes: new Set(), faces: new Set() };
    this.clip = { axis: null, at: 0.5, flip: false };
    this.glyphs = { axes: false, material: false, orientation: false, seeds: true };
    this.systems = new Set(); // keys of the coordinate systems that are drawn
    this.marks = new Map(); // elements by number: colour
    this.nodeMarks = [];
    this.markRows = []; // what the marks mean, for the legend
    this.markTitle = '';
    this.ahead = false; // the marks are of an edit that is asked about
    this.finding = null;
    this.step = null;
    this.angle = 30;
    this.mode = 'element';
    this.measured = [];
    this.packs = new Map();
    this.listeners = {};
    this.software = softwareRenderer();
  }

  on(event, listener) {
    (this.listeners[event] ||= []).push(listener);
  }
  tell(event, ...what) {
    for (const listener of this.listeners[event] || []) listener(...what);
  }

  start(canvas, antialias) {
    this.stage = new Stage(canvas, { antialias: antialias ?? !this.software });
    this.stage.warmUp();
  }

  /** A pack of the state that is shown, kept. */
  async pack(name) {
    const key = `${name}@${this.step ?? 'now'}`;
    if (!this.packs.has(key)) {
      if (this.packs.size > 40) this.packs.clear();
      this.packs.set(key, await this.data.get(name, this.stepAsked));
    }
    return this.packs.get(key);
  }
  get stepAsked() {
    return this.step == null || this.step === this.present ? undefined : this.step;
  }

  // ---- loading ----------------------------------------------------------------------------------

  async load({ keepCamera = false } = {}) {
    const base = await this.data.get('base', this.stepAsked);
    this.mesh = new Mesh(base);
    this.volume = null;
    if (this.stepAsked === undefined) this.present = this.mesh.about.step;
    this.steps = this.stepAsked === undefined ? this.mesh.about.steps : this.steps || this.mesh.about.steps;
    this.clearSelection(false);
    this.measured = [];
    this.isolated = null;
    this.hiddenElements.clear();
    this.marks.clear();
    this.nodeMarks = [];
    this.markRows = [];
    this.ahead = false;
    this.finding = null;
    this.color.by ||= this.firstColor();
    this.materialOf = new Map(this.mesh.about.properties.map((p) => [p.key, p.material]));
    if (this.needsVolume()) await this.loadVolume().catch(() => {});
    await glyphs.loadSeeds(this);
    this.rebuild();
    if (!keepCamera) this.stage.view('iso');
    await this.recolor();
    if (!keepCamera) this.stage.view('iso'); // into what the legend leaves
    await this.showGlyphs();
    this.applyClip();
    this.tell('loaded');
  }

  /** What tells most about a model at first sight: sets, if they are of most elements. */
  firstColor() {
    const { mesh } = this;
    const inSets = new Uint8Array(mesh.elementCount);
    for (const set of mesh.sets) for (const e of set.elementList) inSets[e] = 1;
    const listed = inSets.reduce((sum, one) => sum + one, 0);
    if (listed > mesh.elementCount / 2) return 'set';
    if (new Set(mesh.elementProperty).size > 1) return 'property';
    return mesh.about.types.length > 1 || !listed ? 'kind' : 'set';
  }

  needsVolume() {
    return this.clip.axis || this.hidden.size > 0;
  }

  /** The inside of the solids, fetched when it is first needed. */
  async loadVolume() {
    if (this.mesh.solids) return;
    this.tell('busy', 'loading the inside');
    try {
      const mesh = this.mesh;
      this.volume ||= this.data.get('volume', this.stepAsked);
      const pack = await this.volume;
      if (!mesh.solids) mesh.addVolume(pack);
    } finally {
      this.tell('busy', null);
    }
  }

  // ---- visibility -------------------------------------------------------------------------------

  idOfProperty(e) {
    const p = this.mesh.elementProperty[e];
    return p < 0 ? 0 : this.mesh.about.properties[p].key;
  }

  /** A mark for each element that is shown; null when all are. */
  computeVisible() {
    const { mesh, hidden } = this;
    if (!hidden.size && !this.hiddenElements.size && !this.isolated) return null;
    const visible = new Uint8Array(mesh.elementCount).fill(1);
    if (this.isolated) for (let e = 0; e < visible.length; e++) visible[e] = this.isolated.elements[e];
    for (const set of mesh.sets) if (hidden.has(`set:${set.key}`)) for (const e of set.elementList) visible[e] = 0;
    const kinds = new Uint8Array(256);
    for (const type of mesh.about.types) if (hidden.has(`kind:${type.code}`)) kinds[type.code] = 1;
    const properties = mesh.about.properties.map((p) => hidden.has(`property:${p.key}`) || hidden.has(`material:${p.material}`));
    const none = hidden.has('property:0');
    for (let e = 0; e < visible.length; e++) {
      const p = mesh.elementProperty[e];
      if (kinds[mesh.elementType[e]] || (p < 0 ? none : properties[p])) visible[e] = 0;
    }
    for (const e of this.hiddenElements) visible[e] = 0;
    return visible;
  }

  /** After what is visible has changed. */
  async updateVisible() {
    if (!this.mesh.solids && this.mesh.about.solids) {
      await this.loadVolume().catch((error) => this.tell('notice', `Hidden solids leave the others open: ${error.message}`));
    }
    const target = this.selection;
    target.faces.clear();
    this.rebuild();
    await this.recolor();
    this.applyClip();
    this.tell('visible');
  }

  rebuild() {
    this.visible = this.computeVisible();
    const faces = this.mesh.visibleFaces(this.visible);
    this.adjacency = this.mesh.adjacency(faces, 30);
    this.stage.show(this.mesh, faces, this.adjacency, this.visible);
  }

  /** Hides or shows a row of the tree, of a set with those below it. */
  setHidden(id, hide) {
    const [what, key] = id.split(':');
    const ids = what === 'set' ? this.setsBelow(Number(key)).map((set) => `set:${set.key}`) : [id];
    for (const each of ids) {
      if (hide) this.hidden.add(each);
      else this.hidden.delete(each);
    }
    return this.updateVisible();
  }

  /** A set and all below it, each once. */
  setsBelow(key) {
    const found = new Set(this.mesh.sets.filter((set) => set.key === key));
    for (const set of found) for (const child of this.mesh.sets) if (child.parent === set.key) found.add(child);
    return [...found];
  }

  isolate(label, elements) {
    const marked = new Uint8Array(this.mesh.elementCount);
    for (const e of elements) marked[e] = 1;
    this.isolated = { label, elements: marked };
    return this.updateVisible().then(() => this.stage.fit());
  }

  hideElements(elements) {
    for (const e of elements) this.hiddenElements.add(e);
    this.clearSelection(false);
    return this.updateVisible();
  }

  showAll() {
    this.hidden.clear();
    this.hiddenElements.clear();
    this.isolated = null;
    return this.updateVisible();
  }

  /** The elements of a row of the tree. */
  elementsOf(id) {
    const [what, text] = id.split(':');
    const key = Number(text);
    const { mesh } = this;
    if (what === 'set') return [...new Set(this.setsBelow(key).flatMap((set) => [...set.elementList]))];
    const out = [];
    for (let e = 0; e < mesh.elementCount; e++) {
      const property = this.idOfProperty(e);
      if (what === 'kind' ? mesh.elementType[e] === key
        : what === 'property' ? property === key : this.materialOf.get(property) === key) out.push(e);
    }
    return out;
  }

  // ---- colours ----------------------------------------------------------------------------------

  async setColor(change) {
    Object.assign(this.color, change);
    if (change.by) {
      this.color.range = change.range || null;
      this.color.limit = null;
      this.color.only = false;
    }
    await this.recolor();
  }

  measureOf(name) {
    return this.mesh.about.measures.find((m) => m.name === name);
  }

  async recolor() {
    let result;
    try {
      result = await elementColors(this);
    } catch (error) {
      this.tell('notice', `No colours by ${this.color.by}: ${error.message}`);
      this.color.by = 'set';
      result = await elementColors(this);
    }
    this.colors = result.colors;
    this.nodeColors = result.nodes;
    this.legend = result.legend;
    this.paint();
    this.tell('legend', this.legend);
    await this.outlineMarked(result.failed || new Map(), 'failed');
    this.stage.draw();
  }

  /** Puts colours, marks and selection on what is drawn. */
  paint() {
    const { colors, marks, selection, stage } = this;
    const mixed = (a, b, t) => {
      const part = (shift) => Math.round((a >> shift & 255) * (1 - t) + (b >> shift & 255) * t) << shift;
      return part(16) | part(8) | part(0);
    };
    // With marks on, everything else steps back.
    const paler = marks.size > 0;
    const of = (e, isFace) => {
      const mark = marks.get(e);
      // Of what an edit would do, the colours are to be seen: what it is done to is selected.
      if (mark !== undefined && this.ahead) return mark;
      if (isFace || selection.elements.has(e)) return palette.selected;
      if (mark !== undefined) return mark;
      const own = e < 0 ? palette.neutral : colors[e];
      return paler ? mixed(own, 0xc9ced6, 0.8) : own;
    };
    const { nodeColors } = this;
    stage.faces.paint((f) => {
      const e = stage.table.element[f];
      const isPlain = nodeColors && !paler && !selection.faces.has(f) && !selection.elements.has(e);
      return isPlain ? null : of(e, selection.faces.has(f));
    }, nodeColors && stage.colorAt(nodeColors));
    stage.caps.paint((i) => of(stage.capOf[i], false));
    stage.paintLines((e) => of(e, false));
    const chosen = [...selection.nodes].map((n) => [n, palette.selected]);
    const nodes = this.ahead ? chosen.concat(this.nodeMarks) : this.nodeMarks.concat(chosen);
    for (const n of this.measured) nodes.push([n, palette.marks.changed]);
    stage.paintPoints((e) => of(e, false), nodes.filter(([n]) => 3 * n < this.mesh.position.length));
    stage.draw();
  }

  // ---- cutting ----------------------------------------------------------------------------------

  async setClip(change) {
    Object.assign(this.clip, change);
    if (this.clip.axis && !this.mesh.solids && this.mesh.about.solids) {
      await this.loadVolume().catch((error) => this.tell('notice', `The cut stays open: ${error.message}`));
    }
    this.applyClip();
    this.tell('clip');
  }

  applyClip() {
    const { clip, stage } = this;
    if (!clip.axis) {
      stage.setClip(null);
      stage.setCaps(null);
      stage.caps.paint(() => 0);
      stage.draw();
      return;
    }
    const axis = 'xyz'.indexOf(clip.axis);
    const [low, high] = [this.fullLow(axis), this.fullHigh(axis)];
    const sign = clip.flip ? -1 : 1;
    const normal = [0, 0, 0];
    normal[axis] = sign;
    // A hair off, so that a plane on a layer of nodes cuts one side of it.
    const at = sign * (low + clip.at * (high - low)) + 1e-7 * (high - low);
    stage.setClip(normal, at);
    if (this.mesh.solids) stage.setCaps(cutSolids(this.mesh, this.visible, normal, at));
    this.paint();
  }
  /** The bounds of the whole model, whatever of it is shown, so that a cut stays where it is. */
  fullLow(axis) {
    return this.bounds()[0][axis];
  }
  fullHigh(axis) {
    return this.bounds()[1][axis];
  }
  bounds() {
    const { mesh } = this;
    if (this.boundsOf === mesh) return this.box;
    const low = [Infinity, Infinity, Infinity];
    const high = [-Infinity, -Infinity, -Infinity];
    const p = mesh.position;
    for (let i = 0; i < p.length; i++) {
      if (p[i] < low[i % 3]) low[i % 3] = p[i];
      if (p[i] > high[i % 3]) high[i % 3] = p[i];
    }
    this.boundsOf = mesh;
    return (this.box = low[0] <= high[0] ? [low, high] : [[-1, -1, -1], [1, 1, 1]]);
  }
  /** The place of the cut in the model's coordinates. */
  clipPlace() {
    const axis = 'xyz'.indexOf(this.clip.axis);
    return this.mesh.about.origin[axis] + this.fullLow(axis) + this.clip.at * (this.fullHigh(axis) - this.fullLow(axis));
  }

  // ---- selection --------------------------------------------------------------------------------

  clearSelection(repaint = true) {
    for (const set of Object.values(this.selection)) set.clear();
    this.picked = null;
    if (repaint) this.paint();
    this.tell('selected');
  }

  /** What is at a place of the canvas: {face, element, point, kind}, or null. */
  at(x, y) {
    return picking.pick(this.stage, x, y);
  }

  /** A pick at a place of the canvas, by the mode at work. */
  pickAt(x, y, add) {
    const { selection, stage } = this;
    const t0 = performance.now();
    if (this.mode === 'measure') return this.measureAt(x, y);
    if (!add) for (const set of Object.values(selection)) set.clear();
    if (this.mode === 'node') {
      const n = picking.pickNode(stage, x, y);
      if (n >= 0) {
        if (add && selection.nodes.has(n)) selection.nodes.delete(n);
        else selection.nodes.add(n);
        this.picked = { table: 'node', key: this.mesh.nodeKey[n] };
      }
    } else {
      const hit = picking.pick(stage, x, y);
      if (hit && hit.element >= 0) {
        if (this.mode === 'face' && hit.face >= 0) this.addFaces(hit.face);
        else if (add && selection.elements.has(hit.element)) selection.elements.delete(hit.element);
        else selection.elements.add(hit.element);
        this.picked = { table: 'elem', key: this.mesh.elementKey[hit.element] };
      } else if (hit && hit.node >= 0) {
        selection.nodes.add(hit.node);
        this.picked = { table: 'node', key: this.mesh.nodeKey[hit.node] };
      } else {
        this.picked = null;
      }
    }
    this.pickTime = performance.now() - t0;
    this.paint();
    this.tell('selected');
    return this.picked;
  }

  /** The faces that hang together with one without a fold beyond the angle. */
  addFaces(face) {
    const { across, normals } = this.adjacency;
    const bound = Math.cos((this.angle * Math.PI) / 180);
    const { faces } = this.selection;
    const todo = [face];
    faces.add(face);
    while (todo.length) {
      const f = todo.pop();
      for (let s = 0; s < 4; s++) {
        const g = across[4 * f + s];
        if (g < 0 || faces.has(g)) continue;
        const dot = normals[3 * f] * normals[3 * g] + normals[3 * f + 1] * normals[3 * g + 1] + normals[3 * f + 2] * normals[3 * g + 2];
        if (Math.abs(dot) < bound) continue;
        faces.add(g);
        todo.push(g);
      }
    }
  }

  pickBox(x0, y0, x1, y1, add) {
    const { selection, stage } = this;
    if (!add) for (const set of Object.values(selection)) set.clear();
    const box = [Math.min(x0, x1), Math.min(y0, y1), Math.max(x0, x1), Math.max(y0, y1)];
    for (const f of picking.facesIn(stage, ...box)) selection.elements.add(stage.table.element[f]);
    for (const e of picking.linesIn(stage, ...box)) selection.elements.add(e);
    this.picked = null;
    this.paint();
    this.tell('selected');
  }

  /** Elements and nodes of the selection, those of faces included, by number. */
  selectedElements() {
    const out = new Set(this.selection.elements);
    for (const f of this.selection.faces) out.add(this.stage.table.element[f]);
    return out;
  }
  selectedNodes() {
    const out = new Set(this.selection.nodes);
    const { table } = this.stage;
    for (const f of this.selection.faces) for (let i = table.first[f]; i < table.first[f + 1]; i++) out.add(table.node[i]);
    return out;
  }

  select(table, key) {
    this.clearSelection(false);
    if (table === 'elem') {
      const e = this.mesh.elementOfKey(key);
      if (e < 0) return false;
      this.selection.elements.add(e);
    } else if (table === 'node') {
      const n = this.mesh.nodeOfKey(key);
      if (n >= 0) this.selection.nodes.add(n);
      else if (this.mesh.solids || !this.data.served) return false;
    } else if (table === 'mset') {
      const set = this.mesh.sets.find((s) => s.key === key);
      if (!set) return false;
      for (const e of set.elementList) this.selection.elements.add(e);
      for (const n of set.nodeList) if (!set.elements && 3 * n < this.mesh.position.length) this.selection.nodes.add(n);
    } else if (table === 'cord') {
      if (!this.mesh.about.systems.some((s) => s.key === key)) return false;
      this.systems.add(key);
      this.showGlyphs();
    } else if (table === 'prop') {
      if (!this.mesh.about.properties.some((p) => p.key === key)) return false;
      for (const e of this.elementsOf(`property:${key}`)) this.selection.elements.add(e);
    } else if (table === 'matl') {
      if (!this.mesh.about.materials.some((m) => m.key === key)) return false;
      for (const e of this.elementsOf(`material:${key}`)) this.selection.elements.add(e);
    }
    this.picked = { table, key };
    this.paint();
    this.tell('selected');
    return true;
  }

  /** Shows a record of the model, whatever its table: it has no place in the picture. */
  showRecord(table, key) {
    this.clearSelection(false);
    this.picked = { table, key };
    this.paint();
    this.tell('selected');
  }

  /** Selects the elements or nodes that `has` says yes to by their keys. */
  selectMany(table, has) {
    this.clearSelection(false);
    const [keys, into] = table === 'elem' ? [this.mesh.elementKey, this.selection.elements] : [this.mesh.nodeKey, this.selection.nodes];
    for (let i = 0; i < keys.length; i++) if (has(keys[i])) into.add(i);
    this.paint();
    this.tell('selected');
    return into.size > 0;
  }

  /** Draws these coordinate systems and no others. */
  showSystems(keys) {
    this.systems = new Set(keys);
    this.tell('visible');
    return this.showGlyphs();
  }

  /** Coordinates of what is selected, for fitting. */
  selectionPlaces() {
    const p = this.mesh.position;
    const out = [];
    const add = (n) => out.push(p[3 * n], p[3 * n + 1], p[3 * n + 2]);
    for (const n of this.selectedNodes()) if (3 * n < p.length) add(n);
    const elements = this.selectedElements();
    const { table } = this.stage;
    for (let f = 0; f < table.count && elements.size; f++) {
      if (elements.has(table.element[f])) for (let i = table.first[f]; i < table.first[f + 1]; i++) add(table.node[i]);
    }
    this.mesh.lineElement.forEach((e, i) => elements.has(e) && [0, 1].forEach((k) => add(this.mesh.lineNode[2 * i + k])));
    this.mesh.pointElement.forEach((e, i) => elements.has(e) && add(this.mesh.pointNode[i]));
    if (!out.length && this.mesh.solids) for (const e of [...elements].slice(0, 100)) this.mesh.nodesOf(e).forEach(add);
    return out;
  }

  // ---- measuring --------------------------------------------------------------------------------

  measureAt(x, y) {
    const n = picking.pickNode(this.stage, x, y);
    if (n < 0) return null;
    if (this.measured.length >= 3) this.measured = [];
    this.measured.push(n);
    this.paint();
    this.tell('measured');
    return n;
  }

  /** Distance and its parts of two nodes; of three the angle at the second as well. */
  measurement() {
    const p = (n) => [...this.mesh.position.subarray(3 * n, 3 * n + 3)];
    const [a, b, c] = this.measured.map(p);
    const minus = (u, v) => u.map((x, i) => x - v[i]);
    const length = (u) => Math.hypot(...u);
    const out = { keys: this.measured.map((n) => this.mesh.nodeKey[n]) };
    if (b) {
      out.delta = minus(b, a);
      out.distance = length(out.delta);
    }
    if (c) {
      const u = minus(a, b);
      const v = minus(c, b);
      const dot = u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
      const cross = length([u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]]);
      out.angle = (Math.atan2(cross, dot) * 180) / Math.PI;
    }
    return out;
  }

  // ---- marks and glyphs ---------------------------------------------------------------------------

  clearMarks() {
    marks.clearMarks(this);
  }
  markChanges(pack, how) {
    return marks.markChanges(this, pack, how);
  }
  outlineMarked(of, name) {
    return marks.outlineMarked(this, of, name);
  }
  findings() {
    return this.pack('findings');
  }
  markFindings(names) {
    return marks.markFindings(this, names);
  }
  showGlyphs() {
    return glyphs.showGlyphs(this);
  }

  // ---- history ----------------------------------------------------------------------------------

  /** The state after so many steps, with what the last of them changed marked. */
  async goTo(step) {
    const before = this.step;
    this.step = step === this.present ? null : step;
    this.tell('busy', 'loading the step');
    try {
      await this.load({ keepCamera: true });
      this.shownStep = step;
      if (step > 0) {
        const changes = await this.data.get('changes', step);
        await this.markChanges(changes);
      } else {
        this.clearMarks();
      }
    } catch (error) {
      this.step = before;
      this.tell('notice', error.message);
    } finally {
      this.tell('busy', null);
    }
    this.tell('step');
  }

  async leaveHistory() {
    this.step = null;
    this.shownStep = null;
    await this.load({ keepCamera: true });
    this.clearMarks();
    this.tell('step');
  }

  bytes() {
    return this.mesh.bytes() + this.stage.bytes();
  }
}
