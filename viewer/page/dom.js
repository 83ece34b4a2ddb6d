// Making elements. Texts are always set as text, so that no name of a model becomes markup.

/** An element of a tag with properties; children are elements and texts. */
export function el(tag, props = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(props)) {
    if (value == null || value === false) continue;
    if (name === 'class') node.className = value;
    else if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
    else if (name in node && name !== 'list') node[name] = value;
    else node.setAttribute(name, value === true ? '' : value);
  }
  node.append(...children.flat().filter((child) => child != null && child !== false));
  return node;
}

export function svg(tag, props = {}, ...children) {
  const node = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(props)) node.setAttribute(name, value);
  node.append(...children);
  return node;
}

export const grouped = (n) => String(n).replace(/\B(?=(\d{3})+(?!\d))/g, '\u202f');
export const short = (n) => (n === 0 ? '0' : String(Number(n.toPrecision(5))));
export const bytes = (n) => (n < 1e6 ? `${Math.round(n / 1e3)} kB` : `${(n / 1e6).toPrecision(3)} MB`);
