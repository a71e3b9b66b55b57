// Drives headless Chromium through the web host's page over the DevTools
// protocol (on a pipe, so no driver package is needed): a capture as a file
// URI, one as a data URL, a cancelled picker and a refused camera with its
// alert. Checks the answers the page shows and that the image is displayed,
// and leaves a screenshot of the page after the first capture.
//
// node capture.mjs VELQOR_CAMERA OUT_DIR PHOTO
import {spawn} from 'node:child_process';
import {mkdtempSync, rmSync, writeFileSync, existsSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import assert from 'node:assert/strict';

const [cameraBin, outDir, photo] = process.argv.slice(2);
const chromium = ['/usr/bin/chromium', '/usr/bin/chromium-browser', '/usr/bin/google-chrome'].find(existsSync);
if (!chromium) {
  console.log('SKIP: Chromium is not installed (make test-browser installs it)');
  process.exit(77);
}

const work = mkdtempSync(join(tmpdir(), 'velqor-browser-'));
const children = [];
// On any exit: stop the browser and the server, then remove their files; a
// browser still writing its profile can race the removal, hence the retries.
const cleanup = () => {
  for (const c of children) c.kill('SIGKILL');
  try { rmSync(work, {recursive: true, force: true, maxRetries: 10}); } catch { /* a leftover in /tmp is harmless */ }
};
process.on('exit', cleanup);
const deadline = setTimeout(() => { console.error('FAIL: the browser test took more than 120 s'); process.exit(1); }, 120_000);

// ---- the web host ----------------------------------------------------------
const server = spawn(cameraBin, ['serve', '--port', '0', '--temp-dir', join(work, 'tmp'), '--library', join(work, 'library')],
  {stdio: ['ignore', 'pipe', 'inherit']});
children.push(server);
const origin = await new Promise((resolve, reject) => {
  let text = '';
  server.stdout.on('data', (d) => {
    text += d;
    const m = text.match(/serving (http:\/\/[^\s/]+)\//);
    if (m) resolve(m[1]);
  });
  server.on('exit', (code) => reject(new Error(`serve exited with ${code}`)));
});

// ---- Chromium on a DevTools pipe (fd 3 in, fd 4 out) -------------------------
const browser = spawn(chromium, [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync', '--remote-debugging-pipe', `--user-data-dir=${join(work, 'profile')}`,
  '--window-size=1400,1000', 'about:blank'], {stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe']});
children.push(browser);
const toBrowser = browser.stdio[3];
const fromBrowser = browser.stdio[4];
let nextId = 1;
const waiting = new Map();
let buffered = Buffer.alloc(0);
fromBrowser.on('data', (chunk) => {
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
function send(method, params = {}, sessionId) {
  const id = nextId++;
  toBrowser.write(JSON.stringify({id, method, params, ...(sessionId ? {sessionId} : {})}) + '\0');
  return new Promise((resolve, reject) => waiting.set(id, {resolve, reject}));
}

const {targetId} = await send('Target.createTarget', {url: 'about:blank'});
const {sessionId} = await send('Target.attachToTarget', {targetId, flatten: true});
const page = (method, params) => send(method, params, sessionId);
await page('Page.enable');
await page('Page.navigate', {url: origin + '/'});

async function evaluate(expression) {
  const r = await page('Runtime.evaluate', {expression, awaitPromise: true, returnByValue: true});
  if (r.exceptionDetails) throw new Error(`${expression}: ${r.exceptionDetails.exception?.description}`);
  return r.result.value;
}
async function until(expression, what, ms = 20_000) {
  const start = Date.now();
  for (;;) {
    const v = await evaluate(expression).catch(() => undefined);
    if (v) return v;
    if (Date.now() - start > ms) throw new Error(`timed out waiting for ${what}`);
    await new Promise((r) => setTimeout(r, 100));
  }
}
const click = (id) => evaluate(`document.getElementById(${JSON.stringify(id)}).click(), true`);
const answer = () => evaluate(`({outcome: document.getElementById('outcome').textContent,
                                 answer: document.getElementById('answer').textContent})`);
async function request(args) {
  await evaluate(`document.getElementById('args').value = ${JSON.stringify(JSON.stringify(args))}, true`);
  await click('call-take');
}
async function chooseFile(path) {
  const {root} = await page('DOM.getDocument');
  const {nodeId} = await page('DOM.querySelector', {nodeId: root.nodeId, selector: '#picker-file'});
  await page('DOM.setFileInputFiles', {nodeId, files: [path]});
  await click('picker-use');
}
const pickerShown = () => until(`!document.getElementById('picker').hidden`, 'the picker');
const settled = () => until(`['resolved', 'rejected'].includes(document.getElementById('outcome').textContent)`, 'the answer');

await until(`document.getElementById('connection').textContent === 'connected'`, 'the page to connect');

// 1. A camera photo as a file URI, fitted to 640x640: the image is displayed.
await request([50, 1, 1, 640, 640, 0, 0, false, true]);
await pickerShown();
await chooseFile(photo);
await settled();
let a = await answer();
assert.equal(a.outcome, 'resolved', a.answer);
assert.match(a.answer, new RegExp(`"${origin}/files/.*velqor_photo_\\d{14}\\.jpg"`));
const size = await until(`(() => { const i = document.getElementById('result-media');
  return i && i.complete && i.naturalWidth ? [i.naturalWidth, i.naturalHeight] : null; })()`, 'the image to load');
assert.ok(Math.max(...size) <= 640 && Math.max(...size) >= 600, `displayed size ${size}`);
await until(`document.getElementById('meta-after').textContent.includes('PixelWidth')`, 'the metadata after');
const shot = await page('Page.captureScreenshot', {format: 'png'});
writeFileSync(join(outDir, 'browser-capture.png'), Buffer.from(shot.data, 'base64'));
console.log(`file URI: resolved, image ${size.join('x')} displayed; screenshot ${join(outDir, 'browser-capture.png')}`);

// 2. The same photo as a data URL.
await request([30, 0, 1, 320, 320]);
await pickerShown();
await chooseFile(photo);
await settled();
a = await answer();
assert.equal(a.outcome, 'resolved', a.answer);
assert.match(a.answer, /"data:image\/jpeg;base64,\/9j\//);
await until(`(() => { const i = document.getElementById('result-media'); return i && i.complete && i.naturalWidth > 0; })()`,
  'the data URL image');
console.log('data URL: resolved, image displayed');

// 3. The user cancels the camera.
await request([50, 1, 1]);
await pickerShown();
await click('picker-cancel');
await settled();
a = await answer();
assert.equal(a.outcome, 'rejected', a.answer);
assert.match(a.answer, /no image selected/);
console.log('cancel: rejected with', JSON.parse(a.answer).payload);

// 4. Camera access denied: the alert appears with its message and two buttons; the user cancels.
await evaluate(`document.getElementById('dev-camera-access').value = 'denied', true`);
await click('apply-device');
await until(`document.getElementById('notice').textContent === 'device settings applied'`, 'the device settings');
await request([50, 1, 1]);
await until(`!document.getElementById('alert').hidden`, 'the alert');
const alert = await evaluate(`({message: document.getElementById('alert-message').textContent,
  buttons: [...document.querySelectorAll('.alert-button')].map((b) => b.textContent)})`);
assert.equal(alert.buttons.length, 2, JSON.stringify(alert));
await evaluate(`document.querySelectorAll('.alert-button')[1].click(), true`);
await settled();
a = await answer();
assert.equal(a.outcome, 'rejected', a.answer);
assert.match(a.answer, /NO_PERMISSION/);
assert.match(a.answer, /Not have permission to use the camera\./);
console.log(`camera refused: alert "${alert.message}" [${alert.buttons.join(' | ')}], rejected with`, JSON.parse(a.answer).payload);

clearTimeout(deadline);
await send('Browser.close').catch(() => {});
await new Promise((resolve) => { browser.exitCode !== null ? resolve() : browser.on('exit', resolve); });
server.kill('SIGTERM');
await new Promise((resolve) => { server.exitCode !== null ? resolve() : server.on('exit', resolve); });
console.log('PASS');
process.exit(0);
