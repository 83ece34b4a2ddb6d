// What is drawn: the mesh in buffers of the graphics card, and cameras.

import {
  BufferAttribute, BufferGeometry, ColorManagement, DoubleSide, GLSL3, LinearSRGBColorSpace, LineBasicMaterial,
  LineSegments, Mesh as Drawn, OrthographicCamera, PerspectiveCamera, Plane, Points, Quaternion, Raycaster, Scene,
  ShaderMaterial, Vector2, Vector3, Vector4, WebGLRenderer,
} from 'three';
import { OrbitControls } from 'three/examples/jsm/controls/OrbitControls.js';
import { LineMaterial } from 'three/examples/jsm/lines/LineMaterial.js';
import { LineSegments2 } from 'three/examples/jsm/lines/LineSegments2.js';
import { LineSegmentsGeometry } from 'three/examples/jsm/lines/LineSegmentsGeometry.js';

import { middleShares, triangles } from './mesh.js';

ColorManagement.enabled = false; // colours are what the screen is to show

// Edges are drawn where a triangle's barycentric coordinate is small; a side that is no edge of its
// face has 1 there at all three corners. That costs no lines, which software renderers are slow at;
// the few edges at which faces fold are lines.
const faceVertex = `
  in vec4 edge; in vec4 tint;
  out vec3 vView; out vec3 vPlace; out vec3 vEdge; out vec4 vTint;
  void main() {
    vec4 view = modelViewMatrix * vec4(position, 1.0);
    vView = view.xyz; vPlace = position; vEdge = edge.xyz; vTint = tint;
    gl_Position = projectionMatrix * view;
    gl_Position.z -= 0.000004 * edge.w * gl_Position.w; // shells before the solids they lie on
  }`;
const faceFragment = `
  precision highp float;
  in vec3 vView; in vec3 vPlace; in vec3 vEdge; in vec4 vTint;
  out vec4 color;
  uniform vec4 clip; uniform vec3 ink; uniform float edges; uniform float cap; uniform float backShade; uniform float scale;
  float nearest(vec3 b, out float coarse) {
    vec3 w = fwidth(b);
    vec3 d = b / max(w, vec3(1e-6));
    coarse = max(w.x, max(w.y, w.z));
    return min(d.x, min(d.y, d.z));
  }
  void main() {
    if (dot(vPlace, clip.xyz) > clip.w) discard;
    vec3 n = normalize(cross(normalize(dFdx(vView)), normalize(dFdy(vView)))); // whatever the scale
    float front = abs(n.z);
    float light = cap > 0.5 ? 0.98 : 0.50 + 0.40 * front + 0.14 * max(dot(n.z < 0.0 ? -n : n, normalize(vec3(-0.35, 0.62, 0.7))), 0.0);
    vec3 c = vTint.rgb * light;
    if (cap < 0.5 && !gl_FrontFacing) c *= backShade;
    float coarse;
    float d = nearest(vEdge, coarse);
    // Edges closer together than a few pixels would turn everything dark.
    float fade = 1.0 - smoothstep(0.10, 0.42, coarse);
    float line = (1.0 - smoothstep(0.35 * scale, 1.15 * scale, d)) * edges * (0.10 + 0.48 * fade);
    color = vec4(mix(c, ink, line), 1.0);
  }`;
const pointVertex = `
  in vec4 tint; out vec4 vTint; out vec3 vPlace; uniform float size;
  void main() {
    vTint = tint; vPlace = position;
    gl_Position = projectionMatrix * modelViewMatrix * vec4(position, 1.0);
    gl_Position.z -= 0.0006 * gl_Position.w;
    gl_PointSize = size * tint.a;
  }`;
const pointFragment = `
  precision highp float;
  in vec4 vTint; in vec3 vPlace; out vec4 color; uniform vec4 clip; uniform vec3 ink;
  void main() {
    if (dot(vPlace, clip.xyz) > clip.w) discard;
    float r = length(gl_PointCoord - 0.5);
    if (r > 0.5) discard;
    color = vec4(mix(vTint.rgb, ink, smoothstep(0.34, 0.42, r)), 1.0);
  }`;

export const views = {
  iso: [1, -1.25, 0.85], front: [0, -1, 0], back: [0, 1, 0], left: [-1, 0, 0], right: [1, 0, 0], top: [0, 0, 1],
  bottom: [0, 0, -1],
};
const upOf = (view) => (view === 'top' || view === 'bottom' ? [0, 1, 0] : [0, 0, 1]);

const noClip = new Vector4(0, 0, 0, 1);

/** Non-indexed triangles of polygons; `color(i)` and `tri` of polygon i come later. */
class FaceBuffers {
  constructor(material) {
    this.geometry = new BufferGeometry();
    this.object = new Drawn(this.geometry, material);
    this.object.frustumCulled = false;
    this.face = new Uint32Array(0);
  }
  allocate(count) {
    this.geometry.dispose();
    this.geometry = this.object.geometry = new BufferGeometry();
    this.position = new Float32Array(9 * count);
    this.edge = new Uint8Array(12 * count);
    this.tint = new Uint8Array(12 * count);
    this.face = new Uint32Array(count);
    this.place = new Int8Array(3 * count); // of each corner in its face
    const set = (name, array, size, normalized) =>
      this.geometry.setAttribute(name, new BufferAttribute(array, size, normalized));
    set('position', this.position, 3, false);
    set('edge', this.edge, 4, true);
    set('tint', this.tint, 4, true);
  }
  bytes() {
    return this.face.length * (36 + 24 + 4 + 3);
  }
  /** The corner flags of triangle t: which sides opposite its corners are edges. */
  flags(t, edges) {
    for (let v = 0; v < 3; v++) {
      for (let c = 0; c < 3; c++) {
        const own = v === c ? 255 : 0;
        this.edge[12 * t + 4 * v + c] = edges[c] ? own : 255;
      }
    }
  }
  /** `colorOf(face)`, or where that is null `colorAt(face, place)`, place -1 being its middle. */
  paint(colorOf, colorAt) {
    const { tint, face, place } = this;
    for (let t = 0; t < face.length; t++) {
      const whole = colorOf(face[t]);
      for (let v = 0; v < 3; v++) {
        const c = whole ?? colorAt(face[t], place[3 * t + v]);
        const k = 12 * t + 4 * v;
        tint[k] = c >> 16;
        tint[k + 1] = c >> 8;
        tint[k + 2] = c;
      }
    }
    if (this.geometry.attributes.tint) this.geometry.attributes.tint.needsUpdate = true;
  }
}

export class Stage {
  constructor(canvas, { antialias }) {
    this.canvas = canvas;
    this.renderer = new WebGLRenderer({ canvas, antialias, alpha: true, preserveDrawingBuffer: true });
    this.renderer.outputColorSpace = LinearSRGBColorSpace;
    this.renderer.localClippingEnabled = true;
    this.renderer.setClearColor(0, 0);
    this.scene = new Scene();
    this.clip = noClip.clone();
    this.clipPlane = new Plane(new Vector3(-1, 0, 0), 1e30);
    this.ink = new Vector3(0.09, 0.13, 0.19);
    const uniforms = (cap) => ({
      clip: { value: cap ? noClip : this.clip }, ink: { value: this.ink }, edges: { value: 1 }, cap: { value: cap },
      backShade: { value: 0.86 }, scale: { value: 1 },
    });
    const material = (cap) => new ShaderMaterial({
      vertexShader: faceVertex, fragmentShader: faceFragment, glslVersion: GLSL3, uniforms: uniforms(cap), side: DoubleSide,
      polygonOffset: true, polygonOffsetFactor: 1, polygonOffsetUnits: 1,
    });
    this.faces = new FaceBuffers(material(0));
    this.caps = new FaceBuffers(material(1));
    this.points = new Points(new BufferGeometry(), new ShaderMaterial({
      vertexShader: pointVertex, fragmentShader: pointFragment, glslVersion: GLSL3,
      uniforms: { clip: { value: this.clip }, ink: { value: this.ink }, size: { value: 9 } },
    }));
    this.points.frustumCulled = false;
    this.scene.add(this.faces.object, this.caps.object, this.points);
    this.lines = null;
    this.overlays = new Map();
    this.size = new Vector2(1, 1);
    this.center = new Vector3();
    this.radius = 1;
    this.perspective = false;
    this.cameras = { flat: new OrthographicCamera(), deep: new PerspectiveCamera(35) };
    for (const camera of Object.values(this.cameras)) camera.up.set(0, 0, 1);
    this.panes = null; // of a picture with several views
    this.area = null; // tells the part of the canvas that nothing stands on: {left, top, width, height}
    this.shift = [0, 0]; // of the picture, in shares of the canvas, so that it is fitted there
    this.onDraw = [];
    this.useCamera(false);
    this.raycaster = new Raycaster();
  }

  /** Draws a speck, so that the programs of the graphics card are made while the data are awaited. */
  warmUp() {
    for (const buffers of [this.faces, this.caps]) {
      buffers.allocate(1);
      buffers.object.geometry.setDrawRange(0, 3);
    }
    this.renderer.setSize(16, 16, false);
    this.renderer.render(this.scene, this.camera);
    this.renderer.getContext().flush();
  }

  get camera() {
    return this.perspective ? this.cameras.deep : this.cameras.flat;
  }

  // ---- cameras ----------------------------------------------------------------------------------

  useCamera(perspective) {
    const before = this.controls && { camera: this.camera, target: this.controls.target.clone() };
    this.perspective = perspective;
    this.controls?.dispose();
    this.controls = new OrbitControls(this.camera, this.canvas);
    this.controls.zoomToCursor = true;
    this.controls.enableDamping = false;
    this.controls.addEventListener('change', () => this.draw());
    if (!before) return;
    const direction = before.camera.position.clone().sub(before.target).normalize();
    this.controls.target.copy(before.target);
    if (perspective) {
      const height = (before.camera.top - before.camera.bottom) / before.camera.zoom;
      const distance = height / 2 / Math.tan((this.cameras.deep.fov * Math.PI) / 360);
      this.camera.position.copy(before.target).addScaledVector(direction, distance);
    } else {
      const distance = before.camera.position.distanceTo(before.target);
      const height = 2 * distance * Math.tan((this.cameras.deep.fov * Math.PI) / 360);
      this.camera.zoom = 1;
      this.flatHeight = height;
      this.camera.position.copy(before.target).addScaledVector(direction, 4 * this.radius);
    }
    this.resize();
  }

  resize() {
    const { clientWidth: width, clientHeight: height } = this.canvas.parentElement;
    const ratio = Math.min(window.devicePixelRatio || 1, 2);
    this.ratio = ratio;
    this.renderer.setPixelRatio(ratio);
    this.renderer.setSize(width, height, false);
    this.size.set(width, height);
    this.faces.object.material.uniforms.scale.value = ratio;
    this.caps.object.material.uniforms.scale.value = ratio;
    this.points.material.uniforms.size.value = 9 * ratio;
    this.frame(this.camera, width / height);
    this.draw();
  }

  /** The camera's frame for an aspect ratio. */
  frame(camera, aspect) {
    const far = 6 * this.radius;
    if (camera.isOrthographicCamera) {
      const h = (this.flatHeight || 2 * this.radius) / 2;
      camera.top = h;
      camera.bottom = -h;
      camera.right = h * aspect;
      camera.left = -h * aspect;
      camera.near = -far;
      camera.far = 2 * far + 4 * this.radius;
    } else {
      camera.aspect = aspect;
      const distance = camera.position.distanceTo(this.center);
      camera.near = Math.max(distance - 2 * this.radius, this.radius * 0.002);
      camera.far = distance + 4 * this.radius;
    }
    const { x, y } = this.size;
    if (camera === this.camera) camera.setViewOffset(x, y, this.shift[0] * x, this.shift[1] * y, x, y);
    camera.updateProjectionMatrix();
  }

  /** Looks along a direction at all that is there, or at `only`, a list of coordinates. */
  look(direction, up, only) {
    const d = new Vector3(...direction).normalize();
    this.camera.up.set(...(up || [0, 0, 1]));
    const { x, y } = this.size;
    const free = this.area?.() || { left: 0, top: 0, width: x, height: y };
    this.shift = [0.5 - (free.left + free.width / 2) / x, 0.5 - (free.top + free.height / 2) / y];
    this.aim(this.camera, d, x / y, only, [free.width / x, free.height / y]);
    this.controls.target.copy(this.aimed);
    this.controls.update();
    this.draw();
  }

  fit(only) {
    const d = this.camera.position.clone().sub(this.controls.target).normalize();
    this.look(d.toArray(), this.camera.up.toArray(), only);
  }

  view(name) {
    this.look(views[name], upOf(name));
  }

  /** Places a camera so that everything is in its frame, or in shares of its width and height. */
  aim(camera, direction, aspect, only, [wide, tall] = [1, 1]) {
    const points = only || this.sample || [];
    camera.position.copy(direction);
    camera.lookAt(0, 0, 0);
    camera.updateMatrixWorld();
    const axes = [0, 1, 2].map((i) => new Vector3().setFromMatrixColumn(camera.matrixWorld, i));
    const low = [1e30, 1e30, 1e30];
    const high = [-1e30, -1e30, -1e30];
    let any = false;
    for (let i = 0; i < points.length; i += 3) {
      if (!(points[i] + points[i + 1] + points[i + 2] < Infinity)) continue; // a node that has no place
      any = true;
      for (let a = 0; a < 3; a++) {
        const v = axes[a].x * points[i] + axes[a].y * points[i + 1] + axes[a].z * points[i + 2];
        if (v < low[a]) low[a] = v;
        if (v > high[a]) high[a] = v;
      }
    }
    if (!any) {
      low.fill(-1);
      high.fill(1);
    }
    const target = new Vector3();
    axes.forEach((axis, a) => target.addScaledVector(axis, (low[a] + high[a]) / 2));
    const least = only ? this.radius * 0.05 : this.radius * 1e-3;
    const height = Math.max((high[1] - low[1]) / tall, (high[0] - low[0]) / aspect / wide, least) * 1.14;
    camera.zoom = 1;
    this.aimed = target;
    if (camera.isOrthographicCamera) {
      this.flatHeight = height;
      camera.position.copy(target).addScaledVector(direction, 4 * this.radius);
    } else {
      const depth = (high[2] - low[2]) / 2;
      camera.position.copy(target).addScaledVector(direction, height / 2 / Math.tan((camera.fov * Math.PI) / 360) + depth);
    }
    this.frame(camera, aspect);
  }

  /** Turns the view about its axes by degrees. */
  turn(right, up) {
    const offset = this.camera.position.clone().sub(this.controls.target);
    const q = new Quaternion().setFromAxisAngle(this.camera.up, (right * Math.PI) / 180);
    offset.applyQuaternion(q);
    const side = new Vector3().crossVectors(this.camera.up, offset).normalize();
    const tilted = offset.clone().applyAxisAngle(side, (-up * Math.PI) / 180);
    if (tilted.angleTo(this.camera.up) > 0.02 && tilted.angleTo(this.camera.up) < Math.PI - 0.02) offset.copy(tilted);
    this.camera.position.copy(this.controls.target).add(offset);
    this.controls.update();
    this.draw();
  }

  zoom(factor) {
    if (this.perspective) this.camera.position.lerp(this.controls.target, 1 - 1 / factor);
    else this.camera.zoom *= factor;
    this.camera.updateProjectionMatrix();
    this.controls.update();
    this.draw();
  }

  // ---- contents ---------------------------------------------------------------------------------

  /** Takes the mesh and the table of the faces that are to be seen. */
  show(mesh, faces, adjacency, visible) {
    this.mesh = mesh;
    this.table = faces;
    const p = mesh.position;
    let count = 0;
    for (let f = 0; f < faces.count; f++) count += triangles[faces.size(f)].length;
    const buffers = this.faces;
    buffers.allocate(count);
    const middle = [0, 0, 0];
    let t = 0;
    for (let f = 0; f < faces.count; f++) {
      const at = faces.first[f];
      const size = faces.size(f);
      if (size > 4) {
        const [corner, between] = middleShares[size];
        middle.fill(0);
        for (let i = 0; i < size; i++) {
          const share = 2 * i < size ? corner : between;
          for (let c = 0; c < 3; c++) middle[c] += share * p[3 * faces.node[at + i] + c];
        }
      }
      const shell = faces.side[f] === 255 ? 255 : 0;
      for (const [a, b, c, sa, sb, sc] of triangles[size]) {
        let k = 9 * t;
        buffers.place[3 * t] = a;
        buffers.place[3 * t + 1] = b;
        buffers.place[3 * t + 2] = c;
        for (const place of [a, b, c]) {
          const from = place < 0 ? middle : p;
          const n = place < 0 ? 0 : 3 * faces.node[at + place];
          buffers.position[k++] = from[n];
          buffers.position[k++] = from[n + 1];
          buffers.position[k++] = from[n + 2];
        }
        for (let v = 0; v < 3; v++) buffers.edge[12 * t + 4 * v + 3] = shell;
        buffers.flags(t, [sa >= 0, sb >= 0, sc >= 0]);
        buffers.face[t++] = f;
      }
    }
    this.showFolds(faces, adjacency);
    this.showLines(visible);
    this.showPoints(visible);
    this.measure();
    this.setCaps(null);
  }

  /** Colours of corners of faces by values of nodes. */
  colorAt({ values, colorOf }) {
    const { table } = this;
    return (f, place) => {
      const at = table.first[f];
      if (place >= 0) return colorOf(values[table.node[at + place]]);
      const size = table.size(f);
      const [corner, between] = middleShares[size];
      let sum = 0;
      for (let i = 0; i < size; i++) sum += (2 * i < size ? corner : between) * values[table.node[at + i]];
      return colorOf(sum);
    };
  }

  /** The box of what is seen, and some of its points for fitting. */
  measure() {
    const parts = [this.faces.position, this.linePosition, this.pointPosition, this.beside].filter((a) => a && a.length);
    const low = new Vector3(1e30, 1e30, 1e30);
    const high = new Vector3(-1e30, -1e30, -1e30);
    const sample = [];
    for (const a of parts) {
      const step = 3 * Math.max(1, Math.floor(a.length / 3 / 30000));
      for (let i = 0; i < a.length; i += 3) {
        if (a[i] < low.x) low.x = a[i];
        if (a[i + 1] < low.y) low.y = a[i + 1];
        if (a[i + 2] < low.z) low.z = a[i + 2];
        if (a[i] > high.x) high.x = a[i];
        if (a[i + 1] > high.y) high.y = a[i + 1];
        if (a[i + 2] > high.z) high.z = a[i + 2];
        if (i % step === 0) sample.push(a[i], a[i + 1], a[i + 2]);
      }
    }
    this.sample = sample;
    if (!sample.length) {
      low.set(-1, -1, -1);
      high.set(1, 1, 1);
    }
    this.low = low;
    this.high = high;
    this.center.addVectors(low, high).multiplyScalar(0.5);
    this.radius = low.distanceTo(high) / 2 || 1e-9;
  }

  fatLines(position, color, width) {
    const geometry = new LineSegmentsGeometry();
    geometry.setPositions(position);
    if (color instanceof Float32Array) geometry.setColors(color);
    const vertexColors = color instanceof Float32Array;
    const material = new LineMaterial({ linewidth: width, vertexColors, color: vertexColors ? 0xffffff : color });
    material.clippingPlanes = [this.clipPlane];
    material.resolution.set(this.size.x, this.size.y);
    const object = new LineSegments2(geometry, material);
    object.frustumCulled = false;
    return object;
  }

  /** Lines, broad ones as far as there are not too many of them. */
  anyLines(position, color, width) {
    if (position.length <= 300000) return this.fatLines(position, color, width);
    const geometry = new BufferGeometry();
    geometry.setAttribute('position', new BufferAttribute(position, 3));
    const vertexColors = color instanceof Float32Array;
    if (vertexColors) geometry.setAttribute('color', new BufferAttribute(color, 3));
    const object = new LineSegments(geometry, new LineBasicMaterial({ vertexColors, color: vertexColors ? 0xffffff : color, clippingPlanes: [this.clipPlane] }));
    object.frustumCulled = false;
    return object;
  }

  /** The edges at which faces fold, end, or meet by more than two. */
  showFolds(faces, { sharp, across }) {
    const p = this.mesh.position;
    const places = [];
    for (let f = 0; f < faces.count; f++) {
      if (!sharp[f]) continue;
      const corners = faces.corners(f);
      const at = faces.first[f];
      for (let s = 0; s < corners; s++) {
        if (!(sharp[f] >> s & 1) || across[4 * f + s] > f) continue; // the other face draws it
        const ends = [faces.node[at + s], faces.node[at + ((s + 1) % corners)]];
        if (faces.size(f) > corners) ends.splice(1, 0, faces.node[at + corners + s]);
        for (let i = 1; i < ends.length; i++) for (const n of [3 * ends[i - 1], 3 * ends[i]]) places.push(p[n], p[n + 1], p[n + 2]);
      }
    }
    this.remove(this.folds);
    this.folds = null;
    if (!places.length) return;
    this.folds = this.anyLines(new Float32Array(places), this.inkColor(), 1.7);
    this.scene.add(this.folds);
  }
  inkColor() {
    return this.ink.toArray().reduce((sum, c) => (sum << 8) | Math.round(255 * c), 0);
  }

  showLines(visible) {
    const { lineNode, lineElement, position: p } = this.mesh;
    const of = [];
    const position = [];
    for (let i = 0; i < lineElement.length; i++) {
      if (visible && !visible[lineElement[i]]) continue;
      of.push(lineElement[i]);
      for (const n of [3 * lineNode[2 * i], 3 * lineNode[2 * i + 1]]) position.push(p[n], p[n + 1], p[n + 2]);
    }
    this.lineOf = of;
    this.linePosition = new Float32Array(position);
    this.remove(this.lines);
    this.lines = null;
  }

  paintLines(colorOf) {
    const count = this.lineOf.length;
    if (!count) return;
    const color = new Float32Array(6 * count);
    for (let i = 0; i < count; i++) {
      const c = colorOf(this.lineOf[i]);
      for (let k = 6 * i; k < 6 * i + 6; k += 3) {
        color[k] = (c >> 16 & 255) / 255;
        color[k + 1] = (c >> 8 & 255) / 255;
        color[k + 2] = (c & 255) / 255;
      }
    }
    this.remove(this.lines);
    this.lines = this.anyLines(this.linePosition, color, 3.2);
    this.scene.add(this.lines);
  }

  showPoints(visible) {
    const { pointNode, pointElement, loneNode, position: p } = this.mesh;
    const of = [];
    const nodes = [];
    const position = [];
    const add = (n, e) => {
      of.push(e);
      nodes.push(n);
      position.push(p[3 * n], p[3 * n + 1], p[3 * n + 2]);
    };
    for (let i = 0; i < pointNode.length; i++) {
      if (!visible || visible[pointElement[i]]) add(pointNode[i], pointElement[i]);
    }
    if (!visible || !this.mesh.elementCount) for (const n of loneNode) add(n, -1);
    this.pointOf = of;
    this.pointNodes = nodes;
    this.pointPosition = new Float32Array(position);
  }

  /** Points: of elements, without elements, and the nodes that are selected or marked. */
  paintPoints(colorOf, more) {
    // Nodes that no element has are many where a part hangs on links: small.
    const all = this.pointNodes.map((n, i) => [n, colorOf(this.pointOf[i]), this.pointOf[i] < 0 ? 130 : 255]).concat(more);
    const position = new Float32Array(3 * all.length);
    const tint = new Uint8Array(4 * all.length);
    all.forEach(([n, c, size = 255], i) => {
      position.set(this.mesh.position.subarray(3 * n, 3 * n + 3), 3 * i);
      tint.set([c >> 16, c >> 8, c, size], 4 * i);
    });
    const geometry = new BufferGeometry();
    geometry.setAttribute('position', new BufferAttribute(position, 3));
    geometry.setAttribute('tint', new BufferAttribute(tint, 4, true));
    this.points.geometry.dispose();
    this.points.geometry = geometry;
  }

  /** Polygons where the plane cuts solids; null for none. */
  setCaps(cut) {
    const polygons = cut ? cut.element.length : 0;
    let count = 0;
    for (let i = 0; i < polygons; i++) count += cut.first[i + 1] - cut.first[i] - 2;
    this.caps.allocate(count);
    this.capOf = cut ? cut.element : [];
    let t = 0;
    for (let i = 0; i < polygons; i++) {
      const a = cut.first[i];
      const k = cut.first[i + 1] - a;
      for (let j = 1; j + 1 < k; j++) {
        [a, a + j, a + j + 1].forEach((q, v) => {
          for (let c = 0; c < 3; c++) this.caps.position[9 * t + 3 * v + c] = cut.points[3 * q + c];
        });
        this.caps.flags(t, [true, j + 2 === k, j === 1]);
        this.caps.face[t++] = i;
      }
    }
    this.caps.object.visible = count > 0;
  }

  setClip(normal, at) {
    if (!normal) {
      this.clip.copy(noClip);
      this.clipPlane.set(new Vector3(-1, 0, 0), 1e30);
    } else {
      this.clip.set(...normal, at);
      this.clipPlane.set(new Vector3(...normal).negate(), at);
    }
  }

  /** Lines over the mesh under a name; null takes them away. `color` may be one for each end. */
  setOverlay(name, position, color, width = 2.5, through = false) {
    this.remove(this.overlays.get(name));
    this.overlays.delete(name);
    if (!position || !position.length) return;
    const object = this.fatLines(position, color, width);
    object.renderOrder = 2;
    object.material.polygonOffset = true; // before the folds that it may lie on
    object.material.polygonOffsetFactor = -2;
    object.material.polygonOffsetUnits = -40;
    if (through) { // seen through what lies before it
      object.material.depthTest = false;
      object.material.transparent = true;
      object.material.opacity = 0.75;
    }
    this.overlays.set(name, object);
    this.scene.add(object);
  }

  /** Points over the mesh under a name, with colours 0xRRGGBB. */
  setDots(name, position, colors) {
    this.remove(this.overlays.get(name));
    this.overlays.delete(name);
    if (!position || !position.length) return;
    const tint = new Uint8Array(4 * colors.length);
    colors.forEach((c, i) => tint.set([c >> 16, c >> 8, c, 255], 4 * i));
    const geometry = new BufferGeometry();
    geometry.setAttribute('position', new BufferAttribute(position, 3));
    geometry.setAttribute('tint', new BufferAttribute(tint, 4, true));
    const object = new Points(geometry, this.points.material.clone());
    object.material.uniforms.clip.value = this.clip;
    object.material.uniforms.ink.value = this.ink;
    object.frustumCulled = false;
    this.overlays.set(name, object);
    this.scene.add(object);
  }

  remove(object) {
    if (!object) return;
    this.scene.remove(object);
    object.geometry.dispose();
    object.material.dispose();
  }

  setTheme(dark) {
    if (dark) this.ink.set(0.03, 0.045, 0.07);
    else this.ink.set(0.09, 0.13, 0.19);
    this.folds?.material.color.set(this.inkColor());
    this.draw();
  }

  setEdges(on) {
    this.faces.object.material.uniforms.edges.value = on ? 1 : 0;
    this.caps.object.material.uniforms.edges.value = on ? 1 : 0;
    this.draw();
  }

  bytes() {
    return this.faces.bytes() + this.caps.bytes();
  }

  // ---- drawing ----------------------------------------------------------------------------------

  /** Draws with the next frame of the screen. */
  draw() {
    if (this.waiting || this.still) return;
    this.waiting = true;
    requestAnimationFrame(() => this.drawNow());
  }

  drawNow() {
    this.waiting = false;
    const { renderer } = this;
    renderer.setScissorTest(false);
    renderer.clear();
    const lines = [this.lines, this.folds, ...this.overlays.values()].filter((o) => o && o.material.resolution);
    if (!this.panes) {
      if (this.perspective) this.frame(this.camera, this.size.x / this.size.y);
      renderer.setViewport(0, 0, this.size.x, this.size.y);
      renderer.render(this.scene, this.camera);
    } else {
      renderer.setScissorTest(true);
      renderer.autoClear = false;
      for (const pane of this.panes) {
        const y = this.size.y - pane.y - pane.height;
        renderer.setViewport(pane.x, y, pane.width, pane.height);
        renderer.setScissor(pane.x, y, pane.width, pane.height);
        for (const o of lines) o.material.resolution.set(pane.width, pane.height);
        renderer.clear();
        renderer.render(this.scene, pane.camera);
      }
    }
    for (const then of this.onDraw) then();
  }

  /** Several views share the picture; each is given its place. */
  setPanes(places) {
    const flat = this.flatHeight;
    this.panes = places.map(({ view, ...place }) => {
      const camera = this.perspective ? new PerspectiveCamera(35) : new OrthographicCamera();
      camera.up.set(...upOf(view));
      this.aim(camera, new Vector3(...views[view]).normalize(), place.width / place.height);
      camera.updateMatrixWorld();
      return { ...place, view, camera };
    });
    this.flatHeight = flat;
  }

  /** Where a place of the model is on the screen: x, y in pixels, and depth; from -1 to 1. */
  project(x, y, z, camera = this.camera) {
    const v = this.projected ||= new Vector3();
    v.set(x, y, z).project(camera);
    return [((v.x + 1) / 2) * this.size.x, ((1 - v.y) / 2) * this.size.y, v.z];
  }
}
