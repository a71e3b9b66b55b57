// The example app (examples/app) in headless Chromium on `velqor-camera serve
// --app`, used as a person would: every button of the app, the phone's
// screens over it (the camera permission alert and its Settings button, the
// settings page where the camera is allowed, the camera picker with the
// browser's fake camera, a chosen file, the library with its crop, a cancel,
// the location fix). Checks what the app shows, prints how long an answer
// takes to reach the app's promise, and writes two screenshots into OUT_DIR.
//
// node example-app.mjs [VELQOR_CAMERA] [OUT_DIR]   (or env VELQOR_CAMERA, OUT_DIR)
import {spawn, spawnSync} from 'node:child_process';
import {existsSync, mkdtempSync, mkdirSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {dirname, join, resolve} from 'node:path';
import {fileURLToPath} from 'node:url';
import assert from 'node:assert/strict';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const cameraBin = process.argv[2] || process.env.VELQOR_CAMERA || join(root, 'build/velqor-camera');
const outDir = resolve(process.argv[3] || process.env.OUT_DIR || join(root, 'build'));
const CHROMIUM = '/usr/bin/chromium';
let chromium;
// The project's set-up installs both; a test that quietly skipped would hide a broken set-up.
try { ({chromium} = await import('playwright-core')); } catch {
  console.error('FAIL: playwright-core is not installed (run scripts/install-node-deps.sh)');
  process.exit(1);
}
if (!existsSync(CHROMIUM)) { console.error(`FAIL: no Chromium at ${CHROMIUM} (run scripts/install-node-deps.sh)`); process.exit(1); }

const work = mkdtempSync(join(tmpdir(), 'velqor-example-'));
mkdirSync(outDir, {recursive: true});
let server = null;
let browser = null;
const finish = async (code) => {
  await browser?.close().catch(() => {});
  server?.kill('SIGKILL');
  rmSync(work, {recursive: true, force: true, maxRetries: 5});
  process.exit(code);
};
// However the test ends, the server goes with it.
process.on('exit', () => server?.kill('SIGKILL'));
process.on('unhandledRejection', (e) => { console.error('FAIL:', e?.stack || e); finish(1); });
const deadline = setTimeout(() => { console.error('FAIL: the example app test took more than 240 s'); finish(1); }, 240_000);

// A photo as a camera stores it: 1600 x 1200 pixels shown turned (EXIF orientation 6).
const turnedPhoto = join(work, 'turned.jpg');
const made = spawnSync(cameraBin, ['sample', 'camera-jpeg', '--width', '1600', '--height', '1200', '--orientation', '6',
                                   '-o', turnedPhoto]);
assert.equal(made.status, 0, `sample: ${made.stderr}`);

// The camera starts refused, as on a phone where the user said no once.
server = spawn(cameraBin, ['serve', '--app', join(root, 'examples/app'), '--port', '0', '--camera-access', 'denied',
                           '--temp-dir', join(work, 'tmp'), '--library', join(work, 'library'), '--lang', 'en'],
               {stdio: ['ignore', 'pipe', 'inherit']});
const origin = await new Promise((resolveOrigin, reject) => {
  let text = '';
  server.stdout.on('data', (d) => {
    text += d;
    const m = text.match(/(http:\/\/[^\s/]+)\//);
    if (m) resolveOrigin(m[1]);
  });
  server.on('exit', (code) => reject(new Error(`serve exited with ${code}`)));
});

browser = await chromium.launch({executablePath: CHROMIUM, args: [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync', '--use-fake-ui-for-media-stream', '--use-fake-device-for-media-stream',
  '--autoplay-policy=no-user-gesture-required']});
const context = await browser.newContext({viewport: {width: 420, height: 860}, deviceScaleFactor: 1,
                                          permissions: ['camera', 'microphone', 'geolocation'],
                                          geolocation: {latitude: 46.204391, longitude: 6.143158, accuracy: 10}});
const page = await context.newPage();
const problems = [];
page.on('pageerror', (e) => problems.push(e.message));
page.setDefaultTimeout(30_000);

// The test watches the promises of the page API: each exec the module makes
// records when its answer reached the page, and when the answer's summary
// arrived on the bridge's stream.
await page.addInitScript(() => {
  window.velqorTiming = {answers: [], settled: []};
  addEventListener('velqorready', () => {
    window.velqor.subscribe((m) => { for (const a of m.answers || []) window.velqorTiming.answers.push({arrived: performance.now(), answeredAt: a.answeredAt}); });
    window.VelqorCamera.setExec((service, action, args) => {
      const settled = () => window.velqorTiming.settled.push(performance.now());
      return window.velqor.exec(service, action, args).then((v) => { settled(); return v; },
                                                             (e) => { settled(); throw e; });
    });
  });
});
await page.goto(origin + '/');
await page.waitForFunction(() => window.VelqorCamera && window.velqor.currentState().connected);

const testid = (id) => page.locator(`[data-testid="${id}"]`);
const status = async () => page.evaluate(() => ({state: document.getElementById('status').dataset.state,
  code: document.getElementById('status-code').textContent, message: document.getElementById('status-message').textContent}));
const waitStatus = (state) => page.waitForFunction((s) => document.getElementById('status').dataset.state === s, state);
const photoSize = () => page.evaluate(() => [document.getElementById('photo').naturalWidth, document.getElementById('photo').naturalHeight]);
const latencies = [];

// Ends a command with `act` (the user's last step) and measures the time from
// that click until the app's promise settles, and from the answer's arrival
// on the stream until then.
async function lastStep(act, settledState = 'ok') {
  const before = await page.evaluate(() => window.velqorTiming.settled.length);
  const clickedAt = await page.evaluate(() => performance.now());
  await act();
  await page.waitForFunction((n) => window.velqorTiming.settled.length > n, before);
  await page.waitForFunction(() => document.getElementById('status').dataset.state !== 'open');
  const shown = await status();
  assert.equal(shown.state, settledState, `the app shows ${JSON.stringify(shown)}`);
  const t = await page.evaluate(() => ({answer: window.velqorTiming.answers.at(-1), settled: window.velqorTiming.settled.at(-1)}));
  const settledWall = await page.evaluate((t) => performance.timeOrigin + t, t.settled);
  latencies.push({fromClick: t.settled - clickedAt, fromStream: t.settled - t.answer.arrived,
                  fromPlugin: settledWall - t.answer.answeredAt});
}

// 1. A photo while the camera is refused: the permission alert over the app.
await testid('photo-file').click();
await testid('velqor-alert').waitFor();
assert.equal((await status()).state, 'open');
const alertButtons = await testid('velqor-alert-button').allTextContents();
assert.deepEqual(alertButtons, ['Settings', 'Cancel'], 'the alert offers Settings, then Cancel');
assert.match(await testid('velqor-alert-message').textContent(), /camera/i);
await page.screenshot({path: join(outDir, 'example-app-alert.png'), animations: 'disabled'});

// 2. Settings: the command stays open and the app says so; the user allows
// the camera on the settings page.
await testid('velqor-alert-button').first().click();
await testid('velqor-settings').waitFor();
await testid('velqor-alert').waitFor({state: 'detached'});
await testid('velqor-open-item').first().waitFor();
assert.equal((await status()).state, 'open', 'after Settings the command is still open');
assert.match(await testid('status-title').textContent(), /still open/i);
await testid('velqor-allow-camera').click();
await page.waitForFunction(() => /allowed/.test(document.querySelector('[data-testid=velqor-settings-state]').textContent));
await testid('velqor-settings-back').click();

// 3. The photo again: the camera picker shows the fake camera; the shutter.
await testid('photo-file').click();
await testid('velqor-picker').waitFor();
await page.locator('[data-testid=velqor-shutter]:not([disabled])').waitFor();
const frame = await page.evaluate(() => {
  const v = document.querySelector('[data-testid=velqor-camera-view]');
  return [v.videoWidth, v.videoHeight];
});
await lastStep(() => testid('velqor-shutter').click());
await testid('velqor-picker').waitFor({state: 'detached'});
assert.deepEqual(await photoSize(), frame, 'the file URI photo has the camera frame size');
assert.match(await page.locator('#photo').getAttribute('src'), /^http:\/\/.*\/files\/.*\.jpg$/);
await page.screenshot({path: join(outDir, 'example-app-capture.png'), animations: 'disabled'});

// 4. A data URL from a chosen file: the turned 1600 x 1200 photo comes upright
// and fits 800 x 800.
await testid('photo-data').click();
await testid('velqor-picker').waitFor();
await lastStep(() => testid('velqor-picker-file').setInputFiles(turnedPhoto));
assert.match(await page.locator('#photo').getAttribute('src'), /^data:image\/jpeg;base64,/);
assert.deepEqual(await photoSize(), [600, 800], 'the turned photo is upright at its fitted size');

// 5. The library holds the photo of step 3 (the app saves its photos to the
// album); editing is on, so the picker offers its square crop.
await testid('pick-library').click();
await testid('velqor-asset').first().click();
await page.locator('[data-testid=velqor-crop-choose]:not([disabled])').waitFor();
await lastStep(() => testid('velqor-crop-choose').click());
const side = Math.min(...frame);
assert.deepEqual(await photoSize(), [side, side], 'the library pick is cropped to the centred square');

// 6. A clip from the fake camera, recorded while the view plays on for a second.
await testid('record-video').click();
await page.locator('[data-testid=velqor-record]:not([disabled])').waitFor();
const startedAt = await page.evaluate(() => document.querySelector('[data-testid=velqor-camera-view]').currentTime);
await testid('velqor-record').click();
await testid('velqor-stop').waitFor();
await page.waitForFunction((t) => document.querySelector('[data-testid=velqor-camera-view]').currentTime > t + 1.2, startedAt);
await lastStep(() => testid('velqor-stop').click());
const seconds = Number(await testid('movie-duration').getAttribute('data-seconds'));
assert.ok(Number.isFinite(seconds) && seconds > 0.8 && seconds < 30, `the clip lasts ${seconds} s`);
assert.match(await testid('movie-duration').textContent(), /^\d+\.\d s$/);

// 7. A photo with location: the answer waits for a fix, which the open
// command's note delivers from the browser's position.
await testid('photo-location').click();
await page.locator('[data-testid=velqor-shutter]:not([disabled])').waitFor();
await testid('velqor-shutter').click();
await testid('velqor-deliver-fix').waitFor();
assert.equal((await status()).state, 'open', 'the photo waits for its fix');
await lastStep(() => testid('velqor-deliver-fix').click());
const latitude = Number(await testid('gps-latitude').textContent());
const longitude = Number(await testid('gps-longitude').textContent());
assert.ok(Math.abs(latitude - 46.204391) < 1e-5 && Math.abs(longitude - 6.143158) < 1e-5,
          `GPS read back: ${latitude}, ${longitude}`);

// 8. A refusal: the picker cancelled shows its status and message.
await testid('photo-file').click();
await testid('velqor-picker-cancel').click();
await waitStatus('refused');
assert.deepEqual(await status(), {state: 'refused', code: 'NO_PERMISSION', message: 'no image selected'});

// 9. A page opened late gets the whole state: every answer so far and the
// command left open in step 2, explained over the app.
const late = await context.newPage();
await late.goto(origin + '/');
await late.locator('[data-testid=velqor-open-item]').first().waitFor();
const counts = (p) => p.evaluate(() => window.velqor.currentState().answerCount);
assert.equal(await counts(late), await counts(page), 'the late page knows every answer');
assert.match(await late.locator('[data-testid=velqor-open-item]').first().textContent(), /settings page/);
await late.close();

// 10. Cleanup: the app's photos leave the temporary folder.
const photoUrl = await page.locator('#photo').getAttribute('src');
await testid('cleanup').click();
await waitStatus('ok');
assert.equal((await page.request.get(photoUrl)).status(), 404, 'cleanup removed the photo file');

assert.deepEqual(problems, [], 'the page raised no error');
const ms = (v) => v.toFixed(1);
for (const [i, l] of latencies.entries())
  console.log(`answer ${i + 1}: last click -> promise ${ms(l.fromClick)} ms, plug-in answered -> promise ` +
              `${ms(l.fromPlugin)} ms, answer on the stream -> promise ${ms(l.fromStream)} ms`);
console.log(`plug-in answered -> promise: max ${ms(Math.max(...latencies.map((l) => l.fromPlugin)))} ms ` +
            `over ${latencies.length} answers`);
console.log(`screenshots: ${join(outDir, 'example-app-alert.png')}, ${join(outDir, 'example-app-capture.png')}`);
console.log('PASS: the example app');
clearTimeout(deadline);
await finish(0);
