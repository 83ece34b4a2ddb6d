// Where the page's data come from: the server that the page is from, or the page itself.

/** Arrays and a text out of the packs that viewer/pack.h describes. */
export class Pack {
  constructor(buffer) {
    const bytes = new Uint8Array(buffer);
    const end = bytes.length - 8;
    if (end < 0 || String.fromCharCode(...bytes.subarray(end + 4)) !== 'QXP2') throw new Error('not a pack');
    const length = new DataView(buffer).getUint32(end, true);
    this.text = JSON.parse(new TextDecoder().decode(bytes.subarray(end - length, end)));
    this.buffer = buffer;
    this.cache = new Map();
  }
  /** The array of a name; empty where the pack has none. Differences are summed up in place. */
  array(name) {
    if (this.cache.has(name)) return this.cache.get(name);
    const entry = (this.text.arrays || {})[name];
    if (!entry) return new Int32Array(0);
    const [kind, first, count, stride] = entry;
    const Kind = { i: Int32Array, f: Float32Array, b: Uint8Array }[kind];
    const array = new Kind(this.buffer, first, count);
    if (kind === 'i') for (let i = stride; i < count; i++) array[i] += array[i - stride];
    this.cache.set(name, array);
    return array;
  }
}

async function inflate(bytes) {
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate'));
  return new Pack(await new Response(stream).arrayBuffer());
}

function fromBase64(text) {
  if (Uint8Array.fromBase64) return Uint8Array.fromBase64(text);
  const plain = atob(text);
  const bytes = new Uint8Array(plain.length);
  for (let i = 0; i < plain.length; i++) bytes[i] = plain.charCodeAt(i);
  return bytes;
}

/** Packs that stand in the page. */
class InPage {
  served = false;
  blocks = new Map();
  constructor() {
    for (const block of document.querySelectorAll('script[data-name]')) {
      this.blocks.set(block.dataset.name, block);
    }
  }
  named(name, step) {
    return step == null ? name : `${name}@${step}`;
  }
  has(name, step) {
    return this.blocks.has(this.named(name, step));
  }
  async get(name, step) {
    const block = this.blocks.get(this.named(name, step));
    if (!block) throw new Error(`this page was written without ${name}`);
    return inflate(fromBase64(block.textContent));
  }
  async record() {
    return null;
  }
}

/** Packs of the server; a name that it does not know is an error with the server's text. */
class FromServer {
  served = true;
  constructor() {
    // Asked for before anything else is made ready.
    this.first = this.fetch('base');
    this.first.catch(() => {}); // told to who asks
  }
  has() {
    return true;
  }
  url(name, query = {}) {
    const url = new URL(`api/${name}`, document.baseURI);
    for (const [key, value] of Object.entries(query)) {
      if (value != null) url.searchParams.set(key, value);
    }
    return url;
  }
  async ask(url, options) {
    const response = await fetch(url, options);
    if (!response.ok) {
      let text = `${response.status}`;
      try {
        text = (await response.json()).error;
      } catch { /* no text */ }
      throw new Error(text);
    }
    return response;
  }
  async fetch(name, step) {
    const response = await this.ask(this.url(name, { step }));
    return inflate(new Uint8Array(await response.arrayBuffer()));
  }
  get(name, step) {
    const { first } = this;
    this.first = null;
    return first && name === 'base' && step == null ? first : this.fetch(name, step);
  }
  async record(table, key, step) {
    return (await this.ask(this.url('record', { table, key, step }))).json();
  }
  async state() {
    return (await this.ask(this.url('state'))).json();
  }
  post(name, body) {
    return this.ask(this.url(name), {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body),
    });
  }
  async edit(request) {
    await this.post('edit', request);
  }
  async preview(request) {
    return inflate(new Uint8Array(await (await this.post('preview', request)).arrayBuffer()));
  }
  bye() {
    navigator.sendBeacon(this.url('bye'));
  }
}

/** Packs of the program that drives this browser to draw a picture. */
class FromProgram {
  served = false;
  waiting = new Map();
  has() {
    return true;
  }
  get(name) {
    return new Promise((resolve) => {
      this.waiting.set(name, resolve);
      window.qxAsk(name);
    });
  }
  give(name, text) {
    this.waiting.get(name)(inflate(fromBase64(text)));
  }
}

export const openData = () => {
  if (window.qxAsk) return new FromProgram();
  return document.querySelector('script[data-name="base"]') ? new InPage() : new FromServer();
};
