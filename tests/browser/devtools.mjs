// Headless Chromium driven over the DevTools protocol on a pipe (fd 3 in,
// fd 4 out), so no driver package is needed. The browser's camera is
// Chromium's fake device, and its permission prompts are answered yes.
import {spawn} from 'node:child_process';
import {existsSync} from 'node:fs';
import {join} from 'node:path';

export function findChromium() {
  return ['/usr/bin/chromium', '/usr/bin/chromium-browser', '/usr/bin/google-chrome'].find(existsSync);
}

// Starts the browser with a fresh profile inside `work`; `children` collects
// the process so the caller's exit handler can stop it.
export async function launch(chromium, work, children) {
  const browser = spawn(chromium, [
    '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
    '--disable-component-update', '--disable-sync', '--remote-debugging-pipe', `--user-data-dir=${join(work, 'profile')}`,
    '--use-fake-device-for-media-stream', '--use-fake-ui-for-media-stream', '--autoplay-policy=no-user-gesture-required',
    '--window-size=1400,1000', 'about:blank'], {stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe']});
  children.push(browser);
  const toBrowser = browser.stdio[3];
  let nextId = 1;
  const waiting = new Map();
  let buffered = Buffer.alloc(0);
  browser.stdio[4].on('data', (chunk) => {
    buffered = Buffer.concat([buffered, chunk]);
    let end;
    while ((end = buffered.indexOf(0)) >= 0) {
      const message = JSON.parse(buffered.subarray(0, end).toString());
      buffered = buffered.subarray(end + 1);
      const w = waiting.get(message.id);
      if (!w) continue;
      waiting.delete(message.id);
      message.error ? w.reject(new Error(JSON.stringify(message.error))) : w.resolve(message.result);
    }
  });
  const send = (method, params = {}, sessionId) => {
    const id = nextId++;
    toBrowser.write(JSON.stringify({id, method, params, ...(sessionId ? {sessionId} : {})}) + '\0');
    return new Promise((resolve, reject) => waiting.set(id, {resolve, reject}));
  };

  const {targetId} = await send('Target.createTarget', {url: 'about:blank'});
  const {sessionId} = await send('Target.attachToTarget', {targetId, flatten: true});
  const page = (method, params) => send(method, params, sessionId);
  await page('Page.enable');

  async function evaluate(expression) {
    const r = await page('Runtime.evaluate', {expression, awaitPromise: true, returnByValue: true});
    if (r.exceptionDetails) throw new Error(`${expression}: ${r.exceptionDetails.exception?.description}`);
    return r.result.value;
  }
  // Waits for `expression` to be truthy. On a time-out the error says what the
  // page showed then (its notice and answer), which is usually why.
  async function until(expression, what, ms = 45_000) {
    const start = Date.now();
    for (;;) {
      const v = await evaluate(expression).catch(() => undefined);
      if (v) return v;
      if (Date.now() - start > ms) {
        const shown = await evaluate(`[...document.querySelectorAll('#notice, #open, #answer')]
          .map((e) => e.id + ': ' + e.textContent).join(' | ')`).catch(() => '');
        throw new Error(`timed out waiting for ${what}; the page showed ${shown}`);
      }
      await new Promise((r) => setTimeout(r, 100));
    }
  }
  async function close() {
    await send('Browser.close').catch(() => {});
    await new Promise((resolve) => { browser.exitCode !== null ? resolve() : browser.on('exit', resolve); });
  }
  return {send, page, evaluate, until, close};
}
