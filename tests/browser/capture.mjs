// Drives headless Chromium through the web host's page as a user would: a
// photo and a video from the browser's (fake) camera, file choices, a cancel,
// the browser's location, a refused camera whose Settings button leaves the
// command open with its reason shown, a library answer and a cropped library
// pick. Checks the answers the page shows and the media it displays, and
// leaves screenshots in OUT_DIR. Then writes a demo report with one good and
// one malformed scenario and screenshots its first screen.
//
// The browser is the system's Chromium driven by playwright-core, the host is
// started by the test kit; a missing browser fails the test.
//
// node capture.mjs VELQOR_CAMERA OUT_DIR PHOTO
import {spawnSync} from 'node:child_process';
import {mkdtempSync, mkdirSync, rmSync, writeFileSync, copyFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join, dirname} from 'node:path';
import {fileURLToPath} from 'node:url';
import assert from 'node:assert/strict';
import {launchBrowser, startHost} from '../../js/testkit/index.js';

const [cameraBin, outDir, photo] = process.argv.slice(2);
const work = mkdtempSync(join(tmpdir(), 'velqor-browser-'));
process.on('exit', () => {
  try { rmSync(work, {recursive: true, force: true, maxRetries: 10}); } catch { /* a leftover in /tmp is harmless */ }
});
const deadline = setTimeout(() => { console.error('FAIL: the browser test took more than 240 s'); process.exit(1); }, 240_000);

const host = await startHost({binary: cameraBin});
const origin = host.origin;
const browser = await launchBrowser({fakeCamera: true});
// The checks below are expressions evaluated in the page, which its own security policy forbids.
const context = await browser.newContext({viewport: {width: 1400, height: 1000}, bypassCSP: true,
  permissions: ['geolocation', 'camera', 'microphone'], geolocation: {latitude: 0, longitude: 0}});
const tab = await context.newPage();
await tab.goto(host.url);

const evaluate = (expression) => tab.evaluate(expression);
async function until(expression, what) {
  try {
    const handle = await tab.waitForFunction(expression, null, {timeout: 30_000});
    return handle.jsonValue();
  } catch (e) {
    throw new Error(`waiting for ${what}: ${e.message}`);
  }
}
const byId = (id) => `document.getElementById(${JSON.stringify(id)})`;
const click = (id) => evaluate(`${byId(id)}.click(), true`);
const textOf = (id) => evaluate(`${byId(id)}.textContent`);
const answer = () => evaluate(`({outcome: ${byId('outcome')}.textContent, answer: ${byId('answer')}.textContent})`);
async function request(args) {
  await evaluate(`${byId('args')}.value = ${JSON.stringify(JSON.stringify(args))}, true`);
  await click('call-take');
}
async function chooseFile(path) {
  await tab.setInputFiles('#picker-file', path);
  await click('picker-use');
}
async function setDevice(id, value) {
  await evaluate(`(() => { const s = ${byId(id)}; s.value = ${JSON.stringify(value)};
    s.dispatchEvent(new Event('change', {bubbles: true})); return true; })()`);
  await until(`${byId('notice')}.className === 'ok' && ${byId('notice')}.textContent.includes(${JSON.stringify(value)})`,
    `the device change to ${value}`);
}
async function screenshot(name) {
  await tab.screenshot({path: join(outDir, name)});
  return join(outDir, name);
}
const visible = (id) => until(`!${byId(id)}.hidden`, id);
const settled = () => until(`['resolved', 'rejected'].includes(${byId('outcome')}.textContent)`, 'the answer');
const loadedImage = (what) => until(`(() => { const i = ${byId('result-media')};
  return i && i.complete && i.naturalWidth ? [i.naturalWidth, i.naturalHeight] : null; })()`, what);
async function resolvedWith(pattern) {
  await settled();
  const a = await answer();
  assert.equal(a.outcome, 'resolved', a.answer);
  assert.match(a.answer, pattern);
  return a;
}

await until(`${byId('connection')}.textContent === 'connected'`, 'the page to connect');

// 1. A photo from the browser's camera, as a file URI fitted to 640x640.
await request([50, 1, 1, 640, 640, 0, 0, false, true]);
await visible('camera-shoot');
await until(`${byId('camera-view')}.videoWidth > 0`, 'the camera view');
await click('camera-shoot');
await resolvedWith(new RegExp(`"${origin}/files/.*velqor_photo_\\d{14}(_\\d+)?\\.jpg"`));
let size = await loadedImage('the camera photo');
assert.ok(Math.max(...size) <= 640 && Math.max(...size) >= 600, `displayed size ${size}`);
await until(`${byId('meta-before')}.textContent.includes('DateTimeOriginal')`, 'the capture time before');
await until(`${byId('meta-after')}.textContent.includes('PixelWidth')`, 'the metadata after');
const cameraShot = await screenshot('browser-capture.png');
console.log(`camera photo: resolved, ${size.join('x')} displayed, capture time in EXIF; screenshot ${cameraShot}`);

// 2. A short video from the browser's camera, handed over as the picker's movie.
await request([50, 1, 1, null, null, 0, 1]);
await visible('camera-record');
await until(`${byId('camera-view')}.videoWidth > 0`, 'the camera view');
await click('camera-record');
// A second and a half of recording, measured on the camera view's own clock.
const recordFrom = await evaluate(`${byId('camera-view')}.currentTime`);
await until(`${byId('camera-view')}.currentTime >= ${recordFrom + 1.5}`, 'a second and a half of recording');
await click('camera-stop');
await resolvedWith(/"http:\/\/[^"]*\/files\/[^"]*\.mp4"/);
const seconds = await until(`(() => { const v = ${byId('result-media')};
  return v && v.tagName === 'VIDEO' && v.readyState >= 1 && v.duration > 0 ? v.duration : null; })()`, 'the movie to load');
console.log(`camera video: resolved, a ${seconds.toFixed(1)} s movie plays in the page`);

// 3. A photo dropped on the picker, answered as a data URL.
await request([30, 0, 1, 320, 320]);
await visible('drop-zone');
await evaluate(`(async () => {
  const canvas = Object.assign(document.createElement('canvas'), {width: 400, height: 300});
  const g = canvas.getContext('2d');
  g.fillStyle = '#c04020'; g.fillRect(0, 0, 400, 300); g.fillStyle = '#2040c0'; g.fillRect(100, 75, 200, 150);
  const blob = await new Promise((r) => canvas.toBlob(r, 'image/jpeg', 0.9));
  const drop = new DataTransfer();
  drop.items.add(new File([blob], 'dropped.jpg', {type: 'image/jpeg'}));
  ${byId('drop-zone')}.dispatchEvent(new DragEvent('drop', {dataTransfer: drop, bubbles: true, cancelable: true}));
  return true; })()`);
await resolvedWith(/"data:image\/jpeg;base64,\/9j\//);
size = await loadedImage('the data URL image');
assert.deepEqual(size, [320, 240]);
console.log('dropped file as data URL: resolved, 320x240 image displayed');

// 4. The user cancels the camera.
await request([50, 1, 1]);
await visible('picker');
await click('picker-cancel');
await settled();
let a = await answer();
assert.equal(a.outcome, 'rejected', a.answer);
assert.match(a.answer, /no image selected/);
console.log('cancel: rejected with', JSON.parse(a.answer).payload);

// 5. The browser's location: the switch feeds the overridden position to a photo waiting for a fix.
await context.setGeolocation({latitude: 48.858370, longitude: 2.294481, accuracy: 12});
await click('loc-browser');
await until(`${byId('loc-browser-state')}.textContent.includes('48.85837')`, 'the browser position');
await request([50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]);
await visible('picker');
await chooseFile(photo);
await resolvedWith(/velqor_photo_\d{14}(_\d+)?\.jpg/);
await until(`${byId('meta-after')}.textContent.includes('"Latitude": 48.85837')`, 'the GPS latitude in the file');
const gps = JSON.parse(await textOf('meta-after'))['{GPS}'];
assert.equal(gps.LatitudeRef, 'N');
assert.ok(Math.abs(gps.Longitude - 2.294481) < 1e-5, JSON.stringify(gps));
await click('loc-browser');
console.log(`browser location: the photo carries GPS ${gps.Latitude} ${gps.LatitudeRef}, ${gps.Longitude} ${gps.LongitudeRef}`);

// 6. Camera refused, the user taps Settings: the command stays open and the page says why.
await setDevice('dev-camera-access', 'denied');
await request([50, 1, 1]);
await visible('alert');
const alert = await evaluate(`({message: ${byId('alert-message')}.textContent,
  buttons: [...document.querySelectorAll('.alert-button')].map((b) => b.textContent)})`);
assert.equal(alert.buttons.length, 2, JSON.stringify(alert));
await until(`${byId('open')}.textContent.includes('Tap one of the alert')`, 'the open reason of the alert');
await evaluate(`document.querySelectorAll('.alert-button')[0].click(), true`);
await until(`${byId('open')}.textContent.includes('the settings page was opened')`, 'the reason after Settings');
const open = await evaluate(`fetch('/api/state').then((r) => r.json()).then((s) => s.open)`);
assert.equal(open.length, 1, JSON.stringify(open));
assert.match(open[0].reason, /settings page was opened/);
assert.equal(await textOf('outcome'), 'waiting…');
await screenshot('browser-open.png');
console.log(`settings: still open, /api/state says "${open[0].reason}"`);

// 7. Camera refused, the user cancels the alert.
await request([50, 1, 1]);
await visible('alert');
await evaluate(`document.querySelectorAll('.alert-button')[1].click(), true`);
await settled();
a = await answer();
assert.equal(a.outcome, 'rejected', a.answer);
assert.match(a.answer, /Not have permission to use the camera\./);
console.log(`camera refused: alert "${alert.message}" [${alert.buttons.join(' | ')}], rejected`);
await setDevice('dev-camera-access', 'authorized');

// 8. A NATIVE_URI answer: the page explains it and shows the library asset it names.
await request([50, 2, 1, 800, 800]);
await visible('picker');
await chooseFile(photo);
await resolvedWith(/assets-library:\/\/asset\/asset\.JPG/);
await until(`document.querySelector('#result .explain')?.textContent.includes('photo-library address')`, 'the explanation');
size = await loadedImage('the library asset');
assert.ok(Math.max(...size) <= 800, `asset ${size}`);
console.log(`native URI: explained, library asset ${size.join('x')} shown`);

// 9. A library pick cropped in the picker, with its metadata before.
await request([50, 1, 0, null, null, 0, 0, true]);
await visible('picker-library');
await until(`document.querySelector('#library-grid button')`, 'the library grid');
await evaluate(`${byId('picker-crop')}.value = '10,20,160,120', true`);
await evaluate(`document.querySelector('#library-grid button').click(), true`);
await resolvedWith(/velqor_photo_\d{14}(_\d+)?\.jpg/);
size = await loadedImage('the cropped pick');
assert.deepEqual(size, [160, 120]);
await until(`${byId('meta-before')}.textContent.includes('PixelWidth')`, 'the metadata before of the pick');
console.log('library pick: cropped to 160x120, metadata before shown');

// 10. Events read newest first with their names leading.
const firstEvent = await evaluate(`document.querySelector('#events li b').textContent`);
assert.match(firstEvent, /^(pickerDismissed|pickerFinished)$/);

// ---- the demo report -------------------------------------------------------
const here = dirname(fileURLToPath(import.meta.url));
const scenarios = join(work, 'scenarios');
mkdirSync(scenarios);
for (const name of ['camera-photo-file', 'camera-denied-settings', 'library-pick-edited'])
  copyFileSync(join(here, '../../scenarios', name + '.json'), join(scenarios, name + '.json'));
writeFileSync(join(scenarios, 'broken.json'), '{"name": "broken", "steps": [');
const demo = spawnSync(cameraBin, ['demo', '--scenarios', scenarios, '--out', join(work, 'report')], {encoding: 'utf8'});
assert.equal(demo.status, 1, demo.stdout + demo.stderr);
await tab.goto('file://' + join(work, 'report', 'index.html'));
await until(`document.readyState === 'complete' && document.querySelectorAll('section.scenario').length === 4`, 'the report');
const rows = await evaluate(`[...document.querySelectorAll('table.index tr')].slice(1).map((r) => r.textContent)`);
assert.ok(rows.some((r) => r.startsWith('brokennot run')), rows.join('\n'));
assert.ok(rows.some((r) => r.startsWith('camera-photo-filepass')), rows.join('\n'));
const wide = await evaluate(`document.documentElement.scrollWidth <= window.innerWidth`);
assert.ok(wide, 'the report runs sideways');
const reportShot = await screenshot('demo-report.png');
console.log(`demo report: ${rows.length} scenarios listed, the malformed one as not run; screenshot ${reportShot}`);

clearTimeout(deadline);
await browser.close();
const end = await host.stop();
assert.equal(end.code, 0, `the host ended with ${JSON.stringify(end)}`);
console.log('PASS');
process.exit(0);
