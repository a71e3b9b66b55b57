// The browser the kit opens: the system's Chromium, its fake camera playing
// the file a test chooses, and a clear failure when there is no browser.
import {test} from 'node:test';
import assert from 'node:assert/strict';
import {mkdtempSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {chromiumArguments, findChromium, launchBrowser, startHost} from '../index.js';

const folder = mkdtempSync(join(tmpdir(), 'velqor-kit-camera-'));
test.after(() => rmSync(folder, {recursive: true, force: true}));

// One 64x48 frame of a single colour, 4:2:0, as the fake camera reads it.
function solidY4m(name, [y, u, v]) {
  const file = join(folder, name);
  const w = 64, h = 48;
  writeFileSync(file, Buffer.concat([Buffer.from(`YUV4MPEG2 W${w} H${h} F30:1 Ip A1:1 C420jpeg\nFRAME\n`),
    Buffer.alloc(w * h, y), Buffer.alloc(w * h / 4, u), Buffer.alloc(w * h / 4, v)]));
  return file;
}

// The middle pixel of what the page's camera shows.
async function cameraPixel(page) {
  return page.evaluate(async () => {
    const stream = await navigator.mediaDevices.getUserMedia({video: true});
    const video = Object.assign(document.createElement('video'), {srcObject: stream, muted: true});
    await video.play();
    const canvas = Object.assign(document.createElement('canvas'), {width: video.videoWidth, height: video.videoHeight});
    const g = canvas.getContext('2d');
    g.drawImage(video, 0, 0);
    const [r, gr, b] = g.getImageData(canvas.width >> 1, canvas.height >> 1, 1, 1).data;
    stream.getTracks().forEach((track) => track.stop());
    return {size: [canvas.width, canvas.height], rgb: [r, gr, b]};
  });
}

const colours = [
  {name: 'red', yuv: [81, 90, 240], check: ([r, g, b]) => r > 200 && g < 60 && b < 60},
  {name: 'blue', yuv: [41, 240, 110], check: ([r, g, b]) => b > 200 && r < 60 && g < 60},
];

for (const c of colours) {
  test(`the fake camera plays a chosen ${c.name} file`, async (t) => {
    const host = await startHost();
    const browser = await launchBrowser({fakeCamera: solidY4m(`${c.name}.y4m`, c.yuv)});
    t.after(() => Promise.all([browser.close(), host.stop()]));
    const context = await browser.newContext();
    await context.grantPermissions(['camera'], {origin: host.origin});
    const page = await context.newPage();
    await page.goto(host.url);  // a secure (loopback) origin may open the camera
    const seen = await cameraPixel(page);
    assert.deepEqual(seen.size, [64, 48]);
    assert.ok(c.check(seen.rgb), `the camera shows ${seen.rgb}`);
  });
}

test('a fake camera file must be a .y4m or .mjpeg that exists', () => {
  assert.throws(() => chromiumArguments({fakeCamera: join(folder, 'photo.jpg')}), /\.y4m or \.mjpeg/);
  assert.throws(() => chromiumArguments({fakeCamera: join(folder, 'missing.y4m')}), /no such fake camera file/);
  assert.ok(!chromiumArguments({fakeCamera: false}).some((a) => a.includes('fake-device')));
});

test('no browser is an error naming how to install one', () => {
  assert.throws(() => findChromium({VELQOR_CHROMIUM: join(folder, 'no-chromium')}), /no such file/);
});
