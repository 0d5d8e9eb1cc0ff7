// The page in Debian's Chromium against clipboard-host on the X11 backend, with xclip as the
// other program on the same display.
import { after, before, describe, test } from 'node:test';
import assert from 'node:assert/strict';
import http from 'node:http';
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import {
  launchBrowser, startHost, startXvfb, stopAll, stopProcess, waitFor, xclipIn, xclipOut,
} from './harness.mjs';

const ARTIFACTS = process.env.WEB_TEST_ARTIFACTS ?? join(import.meta.dirname, 'artifacts');

// A long first-answer limit, so that a read from a stalled owner is surely still waiting while
// another page is served, however busy the machine.
const X11_OPTIONS = ['--x11-timeouts', '8000,8000,20000', '--manager-handover', '0'];

let display;
let host;
let browser;

before(async () => {
  ({ display } = await startXvfb());
  host = await startHost(['--backend', 'x11', ...X11_OPTIONS, '--listen', '127.0.0.1:0'], { DISPLAY: display });
  browser = await launchBrowser();
});

after(async () => {
  await browser?.close();
  // SIGTERM ends the host cleanly, every connection's service object gone first.
  const status = host ? await stopProcess(host.child) : 0;
  await stopAll();
  assert.equal(status, 0, host?.stderr());
});

async function openPage(size = { width: 1280, height: 800 }) {
  const context = await browser.newContext({ viewport: size });
  const page = await context.newPage();
  const problems = [];
  page.on('pageerror', (error) => problems.push(String(error)));
  page.on('console', (message) => message.type() === 'error' && problems.push(message.text()));
  await page.goto(host.url.href);
  await page.waitForSelector('#status[data-state="open"]');
  return { page, context, problems };
}

const flavorsShown = (page) => page.$$eval('#flavors input', (boxes) => boxes.map((b) => b.value));
const errorsShown = (page) => page.$$eval('#error-list li span', (items) => items.map((i) => i.textContent));

async function paste(page, flavors) {
  await page.evaluate((wanted) => {
    for (const box of document.querySelectorAll('#flavors input')) {
      if (box.checked !== wanted.includes(box.value)) box.click();
    }
  }, flavors);
  await page.click('#paste');
  await page.waitForFunction((wanted) => wanted.every((m) => document.querySelector(`#preview .item[data-mime="${m}"]`)), flavors);
}

// A 37x23 picture with every pixel different, as PNG bytes made by the browser.
async function makePng(page) {
  const base64 = await page.evaluate(() => {
    const canvas = document.createElement('canvas');
    canvas.width = 37;
    canvas.height = 23;
    const ctx = canvas.getContext('2d');
    const image = ctx.createImageData(37, 23);
    for (let i = 0; i < image.data.length; i += 4) {
      const p = i / 4;
      image.data.set([(p * 7) % 256, (p * 13) % 256, (p * 29) % 256, 255], i);
    }
    ctx.putImageData(image, 0, 0);
    return canvas.toDataURL('image/png').split(',')[1];
  });
  return Buffer.from(base64, 'base64');
}

// Decodes PNG bytes in the browser and returns the RGBA pixels.
function pixels(page, png) {
  return page.evaluate(async (base64) => {
    const bytes = Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));
    const bitmap = await createImageBitmap(new Blob([bytes], { type: 'image/png' }));
    const canvas = new OffscreenCanvas(bitmap.width, bitmap.height);
    const ctx = canvas.getContext('2d');
    ctx.drawImage(bitmap, 0, 0);
    return { width: bitmap.width, height: bitmap.height, data: Array.from(ctx.getImageData(0, 0, bitmap.width, bitmap.height).data) };
  }, png.toString('base64'));
}

describe('the page and the X11 clipboard', () => {
  test('text with emoji copied by the page reaches xclip byte for byte', async () => {
    const { page, context, problems } = await openPage();
    const text = 'Grüße, 世界 — 😀👩‍💻 tab\there\nsecond line';
    await page.fill('#text-input', text);
    await page.click('#copy-text');
    const seen = await waitFor(async () => {
      const out = await xclipOut(display).catch(() => null);
      return out && out.equals(Buffer.from(text)) ? out : null;
    }, 'xclip to read the copied text');
    assert.equal(seen.toString('utf8'), text);
    const html = (await xclipOut(display, 'text/html')).toString('utf8');
    assert.match(html, /Gr&uuml;|Grüße/);
    assert.deepEqual(await errorsShown(page), []);
    assert.deepEqual(problems, []);
    await context.close();
  });

  test('a copy by xclip shows up in the flavor list within a second, and Paste shows it', async () => {
    const { page, context } = await openPage();
    const text = `from xclip ${Date.now()} ✂️`;
    const started = Date.now();
    await xclipIn(display, text);
    await waitFor(async () => (await flavorsShown(page)).includes('text/plain') &&
      (await page.textContent('#changed')) !== '' , 'the flavor list', 1000 + (Date.now() - started));
    await paste(page, ['text/plain']);
    assert.equal(await page.textContent('#preview .item[data-mime="text/plain"] pre'), text);
    await context.close();
  });

  test('an image copied by the page reads back through xclip as the same pixels', async () => {
    const { page, context } = await openPage();
    const png = await makePng(page);
    await page.setInputFiles('#image-file', { name: 'pattern.png', mimeType: 'image/png', buffer: png });
    const out = await waitFor(async () => {
      const targets = (await xclipOut(display, 'TARGETS').catch(() => Buffer.alloc(0))).toString();
      return targets.split('\n').includes('image/png') ? xclipOut(display, 'image/png') : null;
    }, 'image/png on the clipboard');
    const [want, got] = [await pixels(page, png), await pixels(page, out)];
    assert.equal(got.width, 37);
    assert.equal(got.height, 23);
    assert.deepEqual(got.data, want.data);
    await context.close();
  });

  test('an image copied by xclip appears in the preview', async () => {
    const { page, context } = await openPage();
    const png = await makePng(page);
    await xclipIn(display, png, 'image/png');
    await waitFor(async () => (await flavorsShown(page)).includes('image/png'), 'image/png in the flavor list');
    await paste(page, ['image/png']);
    const size = await page.$eval('#preview .item[data-mime="image/png"] img', async (img) => {
      await img.decode();
      return [img.naturalWidth, img.naturalHeight];
    });
    assert.deepEqual(size, [37, 23]);
    await context.close();
  });

  test('a file list cut by the page is cut for the file manager', async () => {
    const { page, context } = await openPage();
    await page.fill('#files-input', 'relative/path.txt');
    await page.click('#cut-files');
    assert.deepEqual(await errorsShown(page), ['Copy files: not an absolute path: relative/path.txt']);
    await page.click('#error-list button');
    assert.equal(await page.isHidden('#errors'), true);
    await page.fill('#files-input', '/tmp/report one.pdf\n/home/me/photo.png\n');
    await page.click('#cut-files');
    const copied = await waitFor(async () => {
      const out = await xclipOut(display, 'x-special/gnome-copied-files').catch(() => null);
      return out && out.toString().startsWith('cut') ? out.toString() : null;
    }, 'the copied-files target');
    assert.match(copied, /^cut\nfile:\/\/\/tmp\/report%20one\.pdf\nfile:\/\/\/home\/me\/photo\.png/);
    await waitFor(async () => (await flavorsShown(page)).includes('text/uri-list'), 'the file list flavor');
    await paste(page, ['text/uri-list']);
    assert.deepEqual(await page.$$eval('#preview .item[data-mime="text/uri-list"] li', (li) => li.map((l) => l.textContent)),
      ['/tmp/report one.pdf', '/home/me/photo.png']);
    await context.close();
  });

  test('files cut in a file manager show as a cut file list', async () => {
    const { page, context } = await openPage();
    await xclipIn(display, 'cut\nfile:///home/me/a%20b.txt', 'x-special/gnome-copied-files');
    await waitFor(async () => (await flavorsShown(page)).includes('application/x-kde-cutselection'),
      'the cut mark in the flavor list');
    await paste(page, ['text/uri-list']);
    const card = '#preview .item[data-mime="text/uri-list"]';
    assert.deepEqual(await page.$$eval(`${card} li`, (li) => li.map((l) => l.textContent)), ['/home/me/a b.txt']);
    assert.equal(await page.textContent(`${card} .action`), 'Cut (move)');
    await context.close();
  });

  test('two pages get their own notifications; closing one leaves the other working', async () => {
    const first = await openPage();
    const second = await openPage({ width: 420, height: 800 });
    const one = `both see this ${Date.now()}`;
    await xclipIn(display, one);
    for (const { page } of [first, second]) {
      await waitFor(async () => (await flavorsShown(page)).includes('text/plain'), 'a notification on each page');
    }
    // The first page's own copy reaches the second page as a notification.
    await first.page.fill('#text-input', 'from the first page');
    await first.page.click('#copy-text');
    await waitFor(async () => (await flavorsShown(second.page)).includes('text/html'), 'the second page to see text/html');
    await first.context.close();
    const two = `after the first page closed ${Date.now()}`;
    await xclipIn(display, two);
    await waitFor(async () => !(await flavorsShown(second.page)).includes('text/html'), 'the second page to see the new list');
    await paste(second.page, ['text/plain']);
    assert.equal(await second.page.textContent('#preview .item[data-mime="text/plain"] pre'), two);
    assert.deepEqual(await errorsShown(second.page), []);
    // The narrow window keeps everything inside the viewport.
    const overflow = await second.page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
    assert.ok(overflow <= 0, `the narrow page scrolls sideways by ${overflow}px`);
    await second.context.close();
  });

  test('a paste stuck on a stalled owner holds up its own page only', async () => {
    const stuck = await openPage();
    const other = await openPage();
    const owner = await xclipIn(display, 'about to stall');
    await waitFor(async () => (await flavorsShown(stuck.page)).includes('text/plain'), 'the flavor list');
    owner.kill('SIGSTOP');
    try {
      await stuck.page.click('#paste'); // its get waits for an owner that never answers
      // Give the host time to begin that read: a get that reached it only after the other page
      // took the clipboard would be answered from our own copy, and prove nothing.
      await new Promise((r) => setTimeout(r, 1000));
      assert.equal(await stuck.page.$$eval('#preview > *', (children) => children.length), 0);
      await other.page.fill('#text-input', 'while the other page waits');
      await other.page.click('#copy-text');
      await waitFor(async () => (await xclipOut(display).catch(() => Buffer.alloc(0))).toString() === 'while the other page waits',
        'the other page\'s copy');
      // The other page was served while the first page's request was still under way.
      assert.equal(await stuck.page.$$eval('#preview > *', (children) => children.length), 0);
      assert.deepEqual(await errorsShown(stuck.page), []);
    } finally {
      owner.kill('SIGCONT');
    }
    // The stuck request ends when the backend gives up on the owner; the page says what it got.
    await stuck.page.waitForFunction(() => document.querySelector('#preview').children.length > 0 ||
      document.querySelector('#error-list').children.length > 0, null, { timeout: 15000 });
    await stuck.context.close();
    await other.context.close();
  });

  test('the page shows a pasted clipboard and is saved as a screenshot', async () => {
    const { page, context } = await openPage();
    await xclipIn(display, '<p>Quarterly <b>figures</b> — see <i>table 3</i></p>', 'text/html');
    await page.fill('#text-input', 'Notes for the release — ✅ done');
    await page.click('#copy-text');
    // xclip's offer lists text/html too: wait for the page's own copy, which replaced it.
    await waitFor(async () => {
      const shown = await flavorsShown(page);
      return shown.includes('text/plain') && shown.includes('text/html');
    }, 'the page\'s copy in the list');
    await paste(page, ['text/plain', 'text/html']);
    const frame = await (await page.$('#preview .item[data-mime="text/html"] iframe')).contentFrame();
    await frame.waitForSelector('div');
    mkdirSync(ARTIFACTS, { recursive: true });
    await page.screenshot({ path: join(ARTIFACTS, 'front-end.png') });
    assert.deepEqual(await errorsShown(page), []);
    await context.close();
  });

  test('the page says it is disconnected while the host is down, and reconnects when it restarts', async () => {
    const { page, context } = await openPage();
    const port = host.url.port;
    const token = host.url.searchParams.get('token');
    assert.equal(await stopProcess(host.child), 0, host.stderr());
    await page.waitForSelector('#status[data-state="closed"]');
    assert.match(await page.textContent('#status'), /disconnected/);
    assert.equal(await page.isDisabled('#paste'), true);
    const dir = mkdtempSync(join(tmpdir(), 'clipboard-token-'));
    writeFileSync(join(dir, 'token'), `${token}\n`);
    try {
      host = await startHost(['--backend', 'x11', ...X11_OPTIONS, '--listen', `127.0.0.1:${port}`, '--token-file', join(dir, 'token')], { DISPLAY: display });
    } finally {
      rmSync(dir, { recursive: true });
    }
    await page.waitForSelector('#status[data-state="open"]', { timeout: 10000 });
    await xclipIn(display, 'after the restart');
    await waitFor(async () => (await flavorsShown(page)).includes('text/plain'), 'notifications after the reconnect');
    await paste(page, ['text/plain']);
    assert.equal(await page.textContent('#preview .item[data-mime="text/plain"] pre'), 'after the restart');
    await context.close();
  });
});

// An upgrade request as a hostile page or program would send it; resolves with the status.
function upgrade({ token = host.url.searchParams.get('token'), origin = host.url.origin, hostHeader = host.url.host, path = '/ws' } = {}) {
  return new Promise((resolve, reject) => {
    const headers = {
      Connection: 'Upgrade', Upgrade: 'websocket', 'Sec-WebSocket-Version': '13',
      'Sec-WebSocket-Key': 'dGhlIHNhbXBsZSBub25jZQ==', Host: hostHeader,
    };
    if (origin !== null) headers.Origin = origin;
    const target = token === null ? path : `${path}?token=${token}`;
    const request = http.request({ host: '127.0.0.1', port: host.url.port, path: target, headers });
    request.on('upgrade', (response, socket) => {
      socket.destroy();
      resolve({ status: response.statusCode, body: '' });
    });
    request.on('response', (response) => {
      let body = '';
      response.on('data', (c) => (body += c));
      response.on('end', () => resolve({ status: response.statusCode, body }));
    });
    request.on('error', reject);
    request.end();
  });
}

describe('who may connect', () => {
  test('a page of another origin gets no socket and no data', async () => {
    const other = http.createServer((req, res) => {
      res.setHeader('Content-Type', 'text/html');
      res.end('<!doctype html><title>elsewhere</title>');
    });
    await new Promise((r) => other.listen(0, '127.0.0.1', r));
    const context = await browser.newContext();
    const page = await context.newPage();
    await page.goto(`http://127.0.0.1:${other.address().port}/`);
    const outcome = await page.evaluate((url) => new Promise((resolve) => {
      const socket = new WebSocket(url);
      const seen = [];
      socket.onopen = () => seen.push('open');
      socket.onmessage = (event) => seen.push(`message ${event.data}`);
      socket.onclose = (event) => resolve({ seen, code: event.code });
      setTimeout(() => socket.readyState === WebSocket.OPEN && socket.send('{"kind":"flavors","request":{"requestid":"x","uid":"x"}}'), 50);
    }), `ws://${host.url.host}/ws?token=${host.url.searchParams.get('token')}`);
    assert.deepEqual(outcome.seen, []);
    assert.equal(outcome.code, 1006);
    await context.close();
    await new Promise((r) => other.close(r));
  });

  test('the host\'s own page with a wrong token gets no socket', async () => {
    const { page, context } = await openPage();
    const outcome = await page.evaluate((url) => new Promise((resolve) => {
      const socket = new WebSocket(url);
      let opened = false;
      socket.onopen = () => (opened = true);
      socket.onclose = (event) => resolve({ opened, code: event.code });
    }), `ws://${host.url.host}/ws?token=${'0'.repeat(32)}`);
    assert.deepEqual(outcome, { opened: false, code: 1006 });
    await context.close();
  });

  const refusals = [
    ['no token', { token: null }],
    ['an empty token', { token: '' }],
    ['a wrong token', { token: 'f'.repeat(32) }],
    ['the token with one more character', { token: () => `${host.url.searchParams.get('token')}0` }],
    ['no Origin', { origin: null }],
    ['another Origin', { origin: 'http://evil.example' }],
    ['an Origin on another port', { origin: () => `http://127.0.0.1:${Number(host.url.port) + 1}` }],
    ['another Host header (DNS rebinding)', { hostHeader: () => `evil.example:${host.url.port}` }],
    ['a Host header with another port', { hostHeader: '127.0.0.1:1' }],
    ['another path', { path: '/socket' }],
  ];
  for (const [name, change] of refusals) {
    test(`an upgrade with ${name} is refused with 403`, async () => {
      const options = Object.fromEntries(Object.entries(change).map(([k, v]) => [k, typeof v === 'function' ? v() : v]));
      const { status } = await upgrade(options);
      assert.equal(status, 403);
    });
  }

  test('the same upgrade with everything right is accepted (the refusals above are real)', async () => {
    assert.equal((await upgrade()).status, 101);
  });
});
