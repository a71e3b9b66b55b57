// Starts `velqor-camera serve` for a test and scripts its simulated phone.
//
//   const host = await startHost({app: 'www'});
//   host.device.nextPhoto('portrait.jpg');
//   ...the app calls takePicture...
//   const answer = await host.answers.next();
//   await host.stop();
//
// Each host runs in its own process, on a port of its own, with a temporary
// directory and a library made for it alone; hosts still running when the
// test process exits are stopped then.
import {spawn} from 'node:child_process';
import {mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join, resolve} from 'node:path';
import {Answers} from './lib/Answers.js';
import {Device} from './lib/Device.js';
import {Files} from './lib/Files.js';
import {HostState} from './lib/HostState.js';
import {findBinary} from './lib/findBinary.js';

export {findBinary} from './lib/findBinary.js';

const kStartTimeoutMs = 20_000;
const kStopTimeoutMs = 10_000;
const kKeptOutput = 64 << 10;

const running = new Set();
process.on('exit', () => {
  for (const host of running) host.kill();
});

// The command line options of a device described as startHost's `device`.
export function deviceArguments(device = {}) {
  const args = [];
  const known = new Set(['cameraAccess', 'libraryAccess', 'cameraAnswer', 'libraryAnswer', 'noCamera',
                         'noViewController', 'languages', 'sources']);
  for (const key of Object.keys(device))
    if (!known.has(key)) throw new Error(`unknown device option "${key}" (${[...known].join(', ')})`);
  if (device.cameraAccess) args.push('--camera-access', device.cameraAccess);
  if (device.libraryAccess) args.push('--library-access', device.libraryAccess);
  if (device.cameraAnswer !== undefined)
    args.push('--camera-answer', device.cameraAnswer === true ? 'granted' : device.cameraAnswer === false ? 'denied' : device.cameraAnswer);
  if (device.libraryAnswer) args.push('--library-answer', device.libraryAnswer);
  if (device.noCamera) args.push('--no-camera');
  if (device.noViewController) args.push('--no-view-controller');
  if (device.languages) args.push('--lang', [].concat(device.languages).join(':'));
  if (device.sources) args.push('--sources', ...device.sources);
  return args;
}

export async function startHost({app, device, temporaryDirectory, library, binary, args = []} = {}) {
  const bin = findBinary({binary});
  // A fresh folder per host unless the test names its own.
  const made = temporaryDirectory && library ? null : mkdtempSync(join(tmpdir(), 'velqor-host-'));
  const tmp = temporaryDirectory ? resolve(temporaryDirectory) : join(made, 'tmp');
  const lib = library ? resolve(library) : join(made, 'library');
  const argv = ['serve', '--port', '0', '--temp-dir', tmp, '--library', lib, ...deviceArguments(device), ...args];
  if (app) argv.push('--app', resolve(app));

  const child = spawn(bin, argv, {stdio: ['ignore', 'pipe', 'pipe']});
  let output = '';
  const keep = (chunk) => { output = (output + chunk).slice(-kKeptOutput); };
  child.stderr.setEncoding('utf8');
  child.stderr.on('data', keep);
  const exited = new Promise((done) => child.on('exit', (code, signal) => done({code, signal})));
  const handle = {
    kill: () => {
      if (child.exitCode === null && child.signalCode === null) child.kill('SIGTERM');
      if (made) try { rmSync(made, {recursive: true, force: true, maxRetries: 5}); } catch { /* left in the temporary folder */ }
    },
  };
  running.add(handle);

  let origin;
  try {
    origin = await new Promise((ready, fail) => {
      let text = '';
      child.stdout.setEncoding('utf8');
      child.stdout.on('data', (chunk) => {
        text = (text + chunk).slice(-kKeptOutput);
        const m = text.match(/serving (http:\/\/[^\s/]+)\//);
        if (m) ready(m[1]);
      });
      child.on('error', fail);
      exited.then(({code, signal}) => fail(new Error(`${bin} ${argv.join(' ')} exited (${signal ?? code}) before serving:\n${output}`)));
      setTimeout(() => fail(new Error(`${bin} did not start serving within ${kStartTimeoutMs} ms:\n${output}`)), kStartTimeoutMs).unref();
    });
  } catch (e) {
    handle.kill();
    running.delete(handle);
    throw e;
  }
  // From here on the host must not keep the test process alive by itself.
  child.unref();
  child.stdout.unref?.();
  child.stderr.unref?.();

  const state = new HostState(origin);
  try {
    await state.connect();
  } catch (e) {
    handle.kill();
    running.delete(handle);
    throw e;
  }
  const failures = [];
  const files = new Files(origin, bin, lib);
  const host = {
    url: origin + '/',
    origin,
    binary: bin,
    pid: child.pid,
    temporaryDirectory: tmp,
    library: lib,
    device: new Device(origin, state, failures, files),
    answers: new Answers(origin, state, failures),
    files,
    // The host's log so far (its standard error), for a failure message.
    log: () => output,
    stop: async () => {
      if (!running.has(handle)) return exited;
      running.delete(handle);
      state.close();
      if (child.exitCode === null && child.signalCode === null) child.kill('SIGTERM');
      const timer = setTimeout(() => child.kill('SIGKILL'), kStopTimeoutMs);
      const end = await exited;
      clearTimeout(timer);
      if (made) rmSync(made, {recursive: true, force: true, maxRetries: 5});
      return end;
    },
  };
  return host;
}

export {findChromium, chromiumArguments, launchBrowser} from './lib/browser.js';
