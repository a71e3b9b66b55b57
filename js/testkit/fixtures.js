// Playwright fixtures for testing an app page on the web host:
//
//   import {test, expect} from 'velqor-camera-testkit/fixtures';
//   test.use({app: 'www', phone: {cameraAccess: 'denied'}});
//   test('...', async ({page, host}) => { ... });
//
// `host` is a fresh host for each test (startHost with the `app` and `phone`
// options), `page` a page of the system's Chromium already open on it, with
// the camera, microphone and location granted. `fakeCamera` (one browser per
// worker) is true for Chromium's generated picture, false for no camera, or a
// .y4m/.mjpeg file the fake camera plays. `velqorBinary` names the executable
// when it is not found the usual way.
import {test as base, expect} from '@playwright/test';
import {launchBrowser, startHost} from './index.js';

export const test = base.extend({
  app: [undefined, {option: true}],
  phone: [{}, {option: true}],
  velqorBinary: [undefined, {option: true}],
  fakeCamera: [true, {option: true, scope: 'worker'}],

  // The system's Chromium instead of a browser Playwright would download.
  browser: [async ({fakeCamera, headless}, use) => {
    const browser = await launchBrowser({fakeCamera, headless});
    await use(browser);
    await browser.close();
  }, {scope: 'worker'}],

  host: async ({app, phone, velqorBinary}, use, testInfo) => {
    const host = await startHost({app, device: phone, binary: velqorBinary});
    await use(host);
    const pending = host.device.pending();
    if (pending.length) testInfo.annotations.push({type: 'device actions never carried out', description: pending.join('; ')});
    if (testInfo.status !== testInfo.expectedStatus)
      await testInfo.attach('velqor-camera log', {body: host.log(), contentType: 'text/plain'});
    await host.stop();
  },

  page: async ({page, host}, use) => {
    await page.context().grantPermissions(['camera', 'microphone', 'geolocation'], {origin: host.origin});
    await page.goto(host.url);
    await use(page);
  },
});

export {expect};
