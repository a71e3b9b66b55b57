// The phone scripted through the kit against a real host: each case queues
// the user's choices first, then sends the command, and checks the answer
// the plug-in gave and what it left on disk.
import {test, after} from 'node:test';
import assert from 'node:assert/strict';
import {startHost} from '../index.js';
import {jpegSize, sample, takePicture} from './helpers.js';

const portrait = sample('camera-jpeg', 'portrait.jpg');
const movie = sample('movie', 'movie.mp4');
const FILE_URI = 1, DATA_URL = 0, CAMERA = 1, LIBRARY = 0, VIDEO = 1;

const flows = [
  {name: 'a photo fitted to 600x600 comes back upright', args: [50, FILE_URI, CAMERA, 600, 600, 0, 0, false, true],
   script: (d) => d.nextPhoto(portrait),
   check: async (host, a) => {
     assert.equal(a.status, 'OK');
     assert.deepEqual(jpegSize(await host.files.read(a.payload.callbackURI ?? a.payload)), {width: 450, height: 600});
   }},
  {name: 'a crop chosen in the picker sizes the photo', args: [50, FILE_URI, CAMERA, null, null, 0, 0, true, true],
   script: (d) => { d.crop({x: 100, y: 200, width: 320, height: 240}); return d.nextPhoto(portrait); },
   check: async (host, a) => {
     assert.equal(a.status, 'OK');
     assert.deepEqual(jpegSize(await host.files.read(a.payload.callbackURI ?? a.payload)), {width: 320, height: 240});
   }},
  {name: 'a library file picked and cropped', args: [50, FILE_URI, LIBRARY, null, null, 0, 0, true],
   script: (d) => { d.pickFromLibrary(portrait); return d.crop({x: 0, y: 0, width: 400, height: 300}); },
   check: async (host, a) => {
     assert.equal(a.status, 'OK');
     assert.deepEqual(jpegSize(await host.files.read(a.payload.callbackURI)), {width: 400, height: 300});
     assert.equal((await host.files.library()).length, 1);
   }},
  {name: 'a data URL photo', args: [30, DATA_URL, CAMERA, 200, 200],
   script: (d) => d.nextPhoto(portrait),
   check: async (host, a) => {
     const meta = await host.files.metadata(a.payload.callbackURI ?? a.payload);
     assert.deepEqual([meta.PixelWidth, meta.PixelHeight], [150, 200]);
   }},
  {name: 'a cancelled picker rejects', args: [50, FILE_URI, LIBRARY],
   script: (d) => d.cancelPicker(),
   check: (host, a) => { assert.notEqual(a.status, 'OK'); assert.match(JSON.stringify(a.payload), /no image selected/); }},
  {name: 'a refused camera cancelled at the alert', args: [50, FILE_URI, CAMERA], device: {cameraAccess: 'denied'},
   script: (d) => d.tapAlert('cancel'),
   check: (host, a) => { assert.equal(a.status, 'NO_PERMISSION'); assert.match(JSON.stringify(a.payload), /permission to use the camera/); }},
  {name: 'the refusal asked in French', args: [50, FILE_URI, CAMERA], device: {cameraAccess: 'denied', languages: ['fr']},
   script: async (d) => {
     const {alert} = await d.whenShown('alert');
     assert.match(alert.message, /appareil photo est désactivé/);
     assert.deepEqual(alert.buttons.map((b) => b.title), ['Réglages', 'Annuler']);
     return d.tapAlert('Annuler');
   },
   check: (host, a) => assert.equal(a.status, 'NO_PERMISSION')},
  {name: 'a video from the picker', args: [50, FILE_URI, LIBRARY, null, null, 0, VIDEO],
   script: (d) => d.nextVideo(movie),
   check: async (host, a) => {
     assert.equal(a.status, 'OK');
     const bytes = await host.files.read(a.payload.callbackURI ?? a.payload);
     assert.equal(bytes.subarray(4, 8).toString(), 'ftyp');
   }},
  {name: 'a photo with location waits for the fix and carries it', args: [50, FILE_URI, CAMERA, null, null, 0, 0, false, false, false, null, false, true],
   script: (d) => { d.nextPhoto(portrait); return d.deliverFix({latitude: 48.85837, longitude: 2.294481, altitude: 35}); },
   check: async (host, a) => {
     assert.equal(a.status, 'OK');
     const gps = (await host.files.metadata(a.payload.callbackURI ?? a.payload))['{GPS}'];
     assert.equal(gps.LatitudeRef, 'N');
     assert.ok(Math.abs(gps.Latitude - 48.85837) < 1e-5 && Math.abs(gps.Longitude - 2.294481) < 1e-5, JSON.stringify(gps));
     assert.ok(Math.abs(gps.Altitude - 35) < 0.01, JSON.stringify(gps));
   }},
];

for (const f of flows) {
  test(f.name, async () => {
    const host = await startHost({device: f.device});
    after(() => host.stop());
    const acted = f.script(host.device);
    const id = await takePicture(host, f.args);
    const answer = await host.answers.next();
    assert.equal(answer.callbackId, id);
    await acted;
    await f.check(host, answer);
    assert.deepEqual(await host.answers.open(), []);
    assert.deepEqual(host.device.pending(), []);
  });
}
