// The clipboard panel: wires the page's controls to the host connection.
import { HostConnection } from './host_connection.js';
import { renderPreview, COPIED_FILES, CUT_MARK } from './preview.js';

const $ = (id) => document.getElementById(id);

const token = new URLSearchParams(location.search).get('token') ?? '';
const host = new HostConnection(`ws://${location.host}/ws?token=${encodeURIComponent(token)}`);

let flavors = [];              // as the last notification or flavors reply listed them
const unchosen = new Set();    // flavors the person unticked; new ones start ticked

function showError(text) {
  const dismiss = document.createElement('button');
  dismiss.type = 'button';
  dismiss.textContent = 'Dismiss';
  const item = document.createElement('li');
  item.append(document.createElement('span'), dismiss);
  item.firstChild.textContent = text;
  dismiss.addEventListener('click', () => {
    item.remove();
    $('errors').hidden = $('error-list').children.length === 0;
  });
  $('error-list').append(item);
  $('errors').hidden = false;
}

// Runs an action and shows whatever goes wrong; a reply whose success is false is an error too.
async function attempt(what, action) {
  try {
    const reply = await action();
    if (reply && reply.success !== true && reply.success !== 'true') {
      showError(`${what}: the host answered without success`);
      return null;
    }
    return reply;
  } catch (error) {
    showError(`${what}: ${error.message}`);
    return null;
  }
}

function showFlavors(list) {
  flavors = Array.isArray(list) ? list.map(String) : [];
  const ul = $('flavors');
  ul.replaceChildren();
  for (const mime of flavors) {
    const box = document.createElement('input');
    box.type = 'checkbox';
    box.value = mime;
    box.checked = !unchosen.has(mime);
    box.addEventListener('change', () => (box.checked ? unchosen.delete(mime) : unchosen.add(mime)));
    const label = document.createElement('label');
    label.append(box, mime);
    const li = document.createElement('li');
    li.append(label);
    ul.append(li);
  }
  $('no-flavors').hidden = flavors.length > 0;
  $('changed').textContent = `updated ${new Date().toLocaleTimeString()}`;
}

function chosenFlavors() {
  return flavors.filter((mime) => !unchosen.has(mime));
}

host.addEventListener('state', (event) => {
  const { state, why } = typeof event.detail === 'string' ? { state: event.detail } : event.detail;
  const status = $('status');
  status.dataset.state = state;
  status.textContent = state === 'open' ? 'connected' : state === 'closed' ? `disconnected, retrying (${why})` : 'connecting…';
  for (const id of ['paste', 'copy-text', 'copy-files', 'cut-files']) $(id).disabled = state !== 'open';
  if (state === 'open') {
    attempt('Subscribe to changes', () => host.request('subscribe'));
    attempt('List the flavors', () => host.request('flavors')).then((reply) => reply && showFlavors(reply.flavors));
  }
});
host.addEventListener('notification', (event) => showFlavors(event.detail?.flavors));
host.addEventListener('problem', (event) => showError(event.detail));

$('paste').addEventListener('click', async () => {
  const asked = chosenFlavors();
  if (asked.length === 0) {
    showError('Paste: choose at least one flavor');
    return;
  }
  const wanted = [...asked];
  if (asked.includes('text/uri-list')) {
    // The file list's action comes along: the cut mark, or the copied-files text.
    for (const extra of [CUT_MARK, COPIED_FILES]) {
      if (!asked.includes(extra) && (extra !== CUT_MARK || flavors.includes(extra))) wanted.push(extra);
    }
  }
  const reply = await attempt('Paste', () => host.request('get', { flavors: wanted }, 0));
  if (reply) renderPreview($('preview'), reply, asked);
});

$('select-all').addEventListener('click', () => {
  unchosen.clear();
  showFlavors(flavors);
});

function escapeHtml(text) {
  return text.replace(/[&<>"']/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&#39;' })[c]);
}

$('text-form').addEventListener('submit', (event) => {
  event.preventDefault();
  const text = $('text-input').value;
  const html = `<meta charset="utf-8"><div>${text.split('\n').map(escapeHtml).join('<br>')}</div>`;
  attempt('Copy text', () => host.request('set', {
    clipboardItems: [
      { mimeType: 'text/plain', data: text },
      { mimeType: 'text/html', data: html },
    ],
  }, 0));
});

async function copyImage(file) {
  if (!file || !file.type.startsWith('image/')) {
    showError(`Copy image: ${file ? `"${file.name}" is not an image` : 'no image given'}`);
    return;
  }
  let dataUrl;
  try {
    const bitmap = await createImageBitmap(file);
    const canvas = document.createElement('canvas');
    canvas.width = bitmap.width;
    canvas.height = bitmap.height;
    canvas.getContext('2d').drawImage(bitmap, 0, 0);
    bitmap.close();
    dataUrl = canvas.toDataURL('image/png');
  } catch (error) {
    showError(`Copy image: cannot read "${file.name}" (${error.message || error})`);
    return;
  }
  const shown = $('drop-preview');
  shown.src = dataUrl;
  shown.hidden = false;
  $('drop-hint').textContent = `${file.name || 'pasted image'}: copied as PNG`;
  await attempt('Copy image', () => host.request('set', { clipboardItems: [{ mimeType: 'image/png', data: dataUrl }] }, 0));
}

const zone = $('drop-zone');
zone.addEventListener('dragover', (event) => {
  event.preventDefault();
  zone.classList.add('over');
});
zone.addEventListener('dragleave', () => zone.classList.remove('over'));
zone.addEventListener('drop', (event) => {
  event.preventDefault();
  zone.classList.remove('over');
  copyImage(event.dataTransfer.files[0]);
});
zone.addEventListener('keydown', (event) => {
  if (event.key === 'Enter' || event.key === ' ') $('image-file').click();
});
zone.addEventListener('click', () => $('image-file').click());
$('image-file').addEventListener('change', (event) => copyImage(event.target.files[0]));
// An image pasted anywhere on the page (outside the text fields) goes to the image slot.
document.addEventListener('paste', (event) => {
  if (event.target instanceof HTMLTextAreaElement) return;
  const file = [...(event.clipboardData?.files ?? [])].find((f) => f.type.startsWith('image/'));
  if (file) {
    event.preventDefault();
    copyImage(file);
  }
});

$('files-form').addEventListener('submit', (event) => {
  event.preventDefault();
  const action = event.submitter?.value === 'cut' ? 'cut' : 'copy';
  const paths = $('files-input').value.split('\n').map((line) => line.trim()).filter(Boolean);
  const relative = paths.filter((path) => !path.startsWith('/'));
  if (paths.length === 0 || relative.length) {
    showError(paths.length === 0 ? 'Copy files: give at least one path' : `Copy files: not an absolute path: ${relative[0]}`);
    return;
  }
  attempt(action === 'cut' ? 'Cut files' : 'Copy files', () =>
    host.request('set', { clipboardItems: [{ mimeType: 'text/uri-list', data: paths, action }] }, 0));
});

if (!token) {
  showError('This address has no token: open the address clipboard-host printed when it started.');
}
host.connect();
