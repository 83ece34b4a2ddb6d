// Colours. Ranges are told apart by their lightness as well, so that they can be read with any
// kind of colour vision and in grey; colours of things follow Okabe and Ito (2008), then Tol's
// "muted" and "light" schemes.

const stops = {
  // Sampled from the published tables of the maps of those names.
  viridis: ['#440154', '#482475', '#414487', '#355f8d', '#2a788e', '#21918c', '#22a884', '#44bf70', '#7ad151', '#bddf26', '#fde725'],
  cividis: ['#00224e', '#123570', '#3b496c', '#575d6d', '#707173', '#8a8678', '#a59c74', '#c3b369', '#e1cc55', '#fee838'],
  'blue-orange': ['#16537e', '#3a86b8', '#8fbfdc', '#eeeeee', '#f4b678', '#d97b29', '#8f4a0a'],
  grey: ['#2b2b2b', '#e6e6e6'],
};
export const palettes = {
  viridis: 'Viridis: from dark to light, readable with every colour vision',
  cividis: 'Cividis: made for red-green blindness',
  'blue-orange': 'Blue to orange: both ends stand out',
  grey: 'Grey: for print',
};

export const things = [
  0x56b4e9, 0xe69f00, 0x009e73, 0xcc79a7, 0x0072b2, 0xd55e00, 0xf0e442, 0x88ccee, 0xcc6677, 0xddcc77,
  0x117733, 0x882255, 0x44aa99, 0x999933, 0xaa4499, 0x77aadd, 0xee8866, 0xbbcc33,
];
export const thing = (i) => things[((i % things.length) + things.length) % things.length];

export const neutral = 0xb9c4d0;
export const outside = 0xa7a7a7;
export const selected = 0xff9500;
export const marks = { added: 0x1b9e5a, changed: 0x2b6cff, removed: 0xd03a6e, fault: 0xd55e00, note: 0x8a5cd6 };

/** Of kinds of findings, told apart before what has stepped back. */
export const findings = [0xd55e00, 0x0072b2, 0xcc79a7, 0x009e73, 0xe69f00, 0x882255, 0x56b4e9, 0x999933, 0xaa4499, 0x44aa99];

const parse = (hex) => [1, 3, 5].map((i) => parseInt(hex.slice(i, i + 2), 16));

/** 256 colours of a palette as 0xRRGGBB. */
export function table(name) {
  const colors = (stops[name] || stops.viridis).map(parse);
  const out = new Uint32Array(256);
  for (let i = 0; i < 256; i++) {
    const at = (i / 255) * (colors.length - 1);
    const k = Math.min(Math.floor(at), colors.length - 2);
    const mix = colors[k].map((c, j) => Math.round(c + (at - k) * (colors[k + 1][j] - c)));
    out[i] = (mix[0] << 16) | (mix[1] << 8) | mix[2];
  }
  return out;
}

export const css = (color) => `#${(color & 0xffffff).toString(16).padStart(6, '0')}`;
