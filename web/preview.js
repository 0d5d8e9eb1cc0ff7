// Renders what a get request read: one card per flavor, each shown the way a person can check
// it (text as text, HTML rendered without scripts, images as images, file lists as paths).

const COPIED_FILES = 'x-special/gnome-copied-files';
// Listed beside a file list whose files were cut (by either convention), holding "1".
const CUT_MARK = 'application/x-kde-cutselection';

function el(tag, props = {}, ...children) {
  const node = document.createElement(tag);
  Object.assign(node, props);
  node.append(...children);
  return node;
}

function describeSize(text) {
  const bytes = new TextEncoder().encode(text).length;
  return bytes < 1024 ? `${bytes} bytes` : `${(bytes / 1024).toFixed(1)} KiB`;
}

// The action of a file list: cut when the cut mark says so, else from the GNOME copied-files
// flavor ("cut\nfile:///...") when an owner offers it as text.
function fileAction(items) {
  if (String(items[CUT_MARK] ?? '').trim() === '1') return 'cut';
  const copied = items[COPIED_FILES];
  if (typeof copied !== 'string') return null;
  const first = copied.split('\n', 1)[0].trim();
  return first === 'cut' || first === 'copy' ? first : null;
}

function renderValue(mime, value, items) {
  if (typeof value === 'string' && value.startsWith('data:image/')) {
    const img = el('img', { alt: `${mime} from the clipboard` });
    img.addEventListener('load', () => {
      img.title = `${img.naturalWidth} × ${img.naturalHeight} px`;
      img.closest('.item')?.querySelector('h3 span')?.append(` · ${img.naturalWidth} × ${img.naturalHeight} px`);
    });
    img.src = value;
    return [img, describeSize(value)];
  }
  if (Array.isArray(value)) {
    const action = fileAction(items);
    const list = el('ul', {}, ...value.map((path) => el('li', { textContent: String(path) })));
    const parts = [];
    if (action) parts.push(el('div', { className: 'action', textContent: action === 'cut' ? 'Cut (move)' : 'Copy' }));
    parts.push(list);
    return [parts, `${value.length} file${value.length === 1 ? '' : 's'}`];
  }
  if (typeof value === 'string' && (mime === 'text/html' || mime.startsWith('text/html;'))) {
    // No script, no forms, no navigation: an empty sandbox. The page's policy also applies.
    const frame = el('iframe', { title: 'HTML on the clipboard' });
    frame.setAttribute('sandbox', '');
    frame.srcdoc = value;
    return [frame, describeSize(value)];
  }
  if (typeof value === 'string') {
    return [el('pre', { textContent: value }), describeSize(value)];
  }
  const json = JSON.stringify(value);
  return [el('pre', { textContent: json.length > 4000 ? `${json.slice(0, 4000)}…` : json }), 'data'];
}

// `asked` are the flavors the person chose; the reply may hold more (the copied-files flavor
// read along with a file list for its action).
export function renderPreview(container, reply, asked) {
  container.replaceChildren();
  const items = reply.clipboardItems ?? {};
  for (const mime of asked) {
    if (!(mime in items)) continue;
    const [body, size] = renderValue(mime, items[mime], items);
    const card = el('article', { className: 'item' },
      el('h3', {}, mime, el('span', { textContent: size })));
    card.dataset.mime = mime;
    card.append(...[body].flat());
    container.append(card);
  }
  const missing = asked.filter((m) => !(m in items));
  if (missing.length) {
    container.append(el('p', { className: 'muted', textContent: `Not readable now: ${missing.join(', ')}` }));
  }
  if (!container.children.length) {
    container.append(el('p', { className: 'muted', textContent: 'Nothing to show.' }));
  }
}

export { COPIED_FILES, CUT_MARK };
