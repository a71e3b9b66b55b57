// The system's Chromium (the distribution's package), driven by
// playwright-core; never a browser Playwright downloads. A missing browser or
// a missing playwright-core is an error: a browser test must fail, not skip.
import {existsSync} from 'node:fs';

const kPlaces = ['/usr/bin/chromium', '/usr/bin/chromium-browser', '/usr/lib/chromium/chromium', '/usr/bin/google-chrome'];

// $VELQOR_CHROMIUM, then the distribution's usual places.
export function findChromium(env = process.env) {
  if (env.VELQOR_CHROMIUM) {
    if (!existsSync(env.VELQOR_CHROMIUM)) throw new Error(`VELQOR_CHROMIUM=${env.VELQOR_CHROMIUM}: no such file`);
    return env.VELQOR_CHROMIUM;
  }
  const found = kPlaces.find((p) => existsSync(p));
  if (!found)
    throw new Error('Chromium is not installed (looked for VELQOR_CHROMIUM and ' + kPlaces.join(', ') +
                    '); scripts/install-node-deps.sh installs it, or apt-get install chromium');
  return found;
}

// Chromium's command line for a test: quiet, no network of its own, the
// camera and microphone granted without asking. `fakeCamera`: false for no
// camera at all, true for Chromium's generated picture, or a .y4m/.mjpeg file
// the fake camera plays.
export function chromiumArguments({fakeCamera = true} = {}) {
  const args = ['--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
                '--disable-component-update', '--disable-sync', '--autoplay-policy=no-user-gesture-required'];
  if (fakeCamera) args.push('--use-fake-ui-for-media-stream', '--use-fake-device-for-media-stream');
  if (typeof fakeCamera === 'string') {
    if (!/\.(y4m|mjpeg)$/i.test(fakeCamera)) throw new Error(`the fake camera plays .y4m or .mjpeg files, not ${fakeCamera}`);
    if (!existsSync(fakeCamera)) throw new Error(`no such fake camera file: ${fakeCamera}`);
    args.push(`--use-file-for-fake-video-capture=${fakeCamera}`);
  }
  return args;
}

// Headed when VELQOR_HEADED=1 (or `headless: false`), to watch a test run.
export async function launchBrowser({fakeCamera = true, headless, args = [], slowMo} = {}) {
  let chromium;
  try {
    ({chromium} = await import('playwright-core'));
  } catch (e) {
    throw new Error(`playwright-core is needed to open a browser (npm install playwright-core): ${e.message}`);
  }
  const headed = headless === false || process.env.VELQOR_HEADED === '1';
  return chromium.launch({
    executablePath: findChromium(),
    headless: !headed,
    chromiumSandbox: false,
    slowMo: slowMo ?? (headed ? Number(process.env.VELQOR_SLOWMO ?? 250) : 0),
    args: [...chromiumArguments({fakeCamera}), ...args],
  });
}
