// What the browser tests start: Xvfb on a free display, clipboard-host on it, xclip as the other
// program, and Debian's Chromium driven through playwright-core. Everything started is ended
// by its process id.
import { spawn } from 'node:child_process';
import { join } from 'node:path';
import { chromium } from 'playwright-core';

export const HOST = process.env.CLIPBOARD_HOST ?? join(import.meta.dirname, '../../build/default/host/clipboard-host');
export const CHROMIUM = process.env.CHROMIUM ?? '/usr/bin/chromium';

const started = new Set();

function track(child) {
  started.add(child);
  child.on('exit', () => started.delete(child));
  return child;
}

// Resolves with the exit status (null when a signal ended it).
export async function stopProcess(child, signal = 'SIGTERM') {
  if (child.exitCode !== null || child.signalCode !== null) return child.exitCode;
  const exited = new Promise((resolve) => child.once('exit', (code) => resolve(code)));
  child.kill(signal);
  const timer = setTimeout(() => child.kill('SIGKILL'), 5000);
  const code = await exited;
  clearTimeout(timer);
  return code;
}

export async function stopAll() {
  await Promise.all([...started].map((child) => stopProcess(child)));
}

export async function startXvfb() {
  const child = track(spawn('Xvfb', ['-displayfd', '3', '-nolisten', 'tcp', '-noreset', '-screen', '0', '1280x800x24'], {
    stdio: ['ignore', 'ignore', 'pipe', 'pipe'],
  }));
  const display = await new Promise((resolve, reject) => {
    let text = '';
    child.stdio[3].on('data', (chunk) => {
      text += chunk;
      if (text.includes('\n')) resolve(`:${text.trim()}`);
    });
    child.on('exit', (code) => reject(new Error(`Xvfb exited with ${code}`)));
  });
  return { child, display };
}

// Starts the host and resolves with its page address (the first line on standard error).
export async function startHost(args, env = {}) {
  const child = track(spawn(HOST, args, { stdio: ['ignore', 'ignore', 'pipe'], env: { ...process.env, ...env } }));
  let err = '';
  const url = await new Promise((resolve, reject) => {
    child.stderr.on('data', (chunk) => {
      err += chunk;
      const line = err.split('\n');
      if (line.length > 1) resolve(line[0].replace(/^listening on /, ''));
    });
    child.on('exit', (code) => reject(new Error(`clipboard-host exited with ${code}: ${err}`)));
  });
  return { child, url: new URL(url), stderr: () => err };
}

function run(command, args, { env, input } = {}) {
  return new Promise((resolve, reject) => {
    const child = track(spawn(command, args, { env: { ...process.env, ...env }, stdio: ['pipe', 'pipe', 'pipe'] }));
    const out = [];
    let err = '';
    child.stdout.on('data', (c) => out.push(c));
    child.stderr.on('data', (c) => (err += c));
    child.on('exit', (code) => (code === 0 ? resolve(Buffer.concat(out)) : reject(new Error(`${command} ${args.join(' ')}: ${code} ${err}`))));
    child.stdin.on('error', () => {}); // a reader that exits early closes its input
    child.stdin.end(input ?? '');
  });
}

// The system clipboard as another program sees it.
export function xclipOut(display, target) {
  const args = ['-selection', 'clipboard', '-o'];
  if (target) args.push('-t', target);
  return run('xclip', args, { env: { DISPLAY: display } });
}

// Another program copies: xclip stays in the foreground (-quiet) owning the clipboard until it
// is replaced or stopped.
export async function xclipIn(display, data, target) {
  const args = ['-selection', 'clipboard', '-quiet', '-i'];
  if (target) args.push('-t', target);
  const child = track(spawn('xclip', args, { env: { ...process.env, DISPLAY: display }, stdio: ['pipe', 'ignore', 'ignore'] }));
  child.stdin.on('error', () => {});
  child.stdin.end(data);
  // It owns the selection once it has read its input; wait until a reader sees the data.
  for (let i = 0; i < 100; ++i) {
    try {
      const now = await xclipOut(display, target);
      if (now.equals(Buffer.from(data))) return child;
    } catch {
      // not owned yet
    }
    await new Promise((r) => setTimeout(r, 20));
  }
  throw new Error('xclip did not take the clipboard');
}

// playwright-core gives each launch a fresh profile of its own and removes it at close.
export async function launchBrowser() {
  const env = { ...process.env };
  delete env.DISPLAY; // headless, with a clipboard of its own
  return chromium.launch({
    executablePath: CHROMIUM,
    headless: true,
    env,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync'],
  });
}

export async function waitFor(predicate, what, timeoutMs = 10000) {
  const end = Date.now() + timeoutMs;
  for (;;) {
    const value = await predicate();
    if (value) return value;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
    await new Promise((r) => setTimeout(r, 25));
  }
}
