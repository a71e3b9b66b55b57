// A host's life: what a waiting test is told, two hosts side by side, and a
// host its test forgot to stop.
import {test} from 'node:test';
import assert from 'node:assert/strict';
import {execFile} from 'node:child_process';
import {existsSync} from 'node:fs';
import {fileURLToPath} from 'node:url';
import {startHost} from '../index.js';
import {sample, takePicture} from './helpers.js';

const portrait = sample('camera-jpeg', 'portrait.jpg');

test('a command left open after Settings says why, and waiting for it times out naming the reason', async (t) => {
  const host = await startHost({device: {cameraAccess: 'denied'}});
  t.after(() => host.stop());
  host.device.tapAlert('settings');
  await takePicture(host, [50, 1, 1]);
  await host.device.whenShown('settingsOpened');
  const open = await host.answers.open();
  assert.equal(open.length, 1, JSON.stringify(open));
  assert.match(open[0].reason, /settings page was opened/);
  await assert.rejects(host.answers.next({timeout: 300}), /timed out after 300 ms waiting for answer 1 \(open: .*settings page was opened/);
});

test('a choice the host refuses fails the wait at once with the host\'s reason', async (t) => {
  const host = await startHost();
  t.after(() => host.stop());
  const pick = host.device.pickFromLibrary('no-such-asset/L0/001');
  await takePicture(host, [50, 1, 0]);
  await assert.rejects(host.answers.next({timeout: 10_000}), /while waiting for a picker for the asset no-such-asset.*: POST \/api\/picker\/pick: 4\d\d/);
  await assert.rejects(pick);
  assert.equal((await host.answers.open())[0].action, 'finishPicker');
});

test('two hosts at once share no port, folder, library or answer', async (t) => {
  const [a, b] = await Promise.all([startHost(), startHost({device: {cameraAccess: 'denied'}})]);
  t.after(() => Promise.all([a.stop(), b.stop()]));
  assert.notEqual(a.origin, b.origin);
  assert.notEqual(a.temporaryDirectory, b.temporaryDirectory);
  assert.notEqual(a.library, b.library);
  a.device.nextPhoto(portrait);
  b.device.tapAlert('cancel');
  await Promise.all([takePicture(a, [50, 2, 1]), takePicture(b, [50, 1, 1])]);
  const [fromA, fromB] = await Promise.all([a.answers.next(), b.answers.next()]);
  assert.equal(fromA.status, 'OK');
  assert.equal(fromB.status, 'NO_PERMISSION');
  // A saved its photo to its own library; B's stays empty.
  assert.equal((await a.files.library()).length, 1);
  assert.deepEqual(await b.files.library(), []);
  assert.deepEqual((await b.answers.all()).map((x) => x.status), ['NO_PERMISSION']);
  await assert.rejects(b.files.read(`${b.origin}/files${(await a.files.library())[0].file}`), /40[34]/);
});

test('a host its test forgot to stop ends with the test process, folders removed', async () => {
  const script = fileURLToPath(new URL('./forgotten-host.js', import.meta.url));
  const {stdout} = await new Promise((resolve, reject) =>
    execFile(process.execPath, [script], {timeout: 30_000}, (e, stdout, stderr) => (e ? reject(new Error(stderr || e.message)) : resolve({stdout}))));
  const {pid, temporaryDirectory, origin} = JSON.parse(stdout);
  // The child process exited by itself (execFile returned): the host did not hold it.
  // Its server got SIGTERM on the way out; wait for it to be gone by asking the OS.
  const gone = () => { try { process.kill(pid, 0); return false; } catch (e) { return e.code === 'ESRCH'; } };
  const deadline = Date.now() + 10_000;
  while (!gone() && Date.now() < deadline) await new Promise((r) => setImmediate(r));
  assert.ok(gone(), `the server ${pid} still runs`);
  assert.equal(existsSync(temporaryDirectory), false);
  await assert.rejects(fetch(origin + '/api/state'));
});
