// Phone settings changed while the host runs, each seen in what the next
// command gets: an answer, or the reason it stays open.
import {test} from 'node:test';
import assert from 'node:assert/strict';
import {startHost} from '../index.js';
import {takePicture} from './helpers.js';

const cases = [
  {name: 'no camera any more', change: (d) => d.noCamera(), args: [50, 1, 1], status: 'OBJECT_REFERENCE_FAILED'},
  // A refusal brings the alert pointing to Settings; the user cancels it.
  {name: 'the user refuses the camera when asked', args: [50, 1, 1], status: 'NO_PERMISSION',
   change: async (d) => { await d.cameraAccess('notDetermined'); await d.answerWhenAsked({camera: false}); d.tapAlert('cancel'); }},
  {name: 'library access restricted', args: [50, 1, 0], status: 'NO_PERMISSION',
   change: async (d) => { await d.libraryAccess('restricted'); d.tapAlert('cancel'); }},
  {name: 'no view controller to present on', change: (d) => d.noViewController(), args: [50, 1, 1], open: /no view controller/},
];

for (const c of cases) {
  test(c.name, async (t) => {
    const host = await startHost();
    t.after(() => host.stop());
    await c.change(host.device);
    await takePicture(host, c.args);
    if (c.status) {
      assert.equal((await host.answers.next()).status, c.status);
    } else {
      const open = await host.answers.untilOpen(c.open);
      assert.equal(open.length, 1, JSON.stringify(open));
      assert.deepEqual(await host.answers.all(), []);
    }
  });
}

test('a setting this host cannot change while running names the start option', async (t) => {
  const host = await startHost();
  t.after(() => host.stop());
  await host.device.languages(['fr']).then(
    (settings) => assert.ok(settings, 'the host took the languages'),
    (e) => assert.match(e.message, /startHost\(\{device: \{languages: \["fr"\]\}\}\)/));
});
