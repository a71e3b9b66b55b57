// Field Notes' photo buttons, with the phone scripted by the test kit: what
// the user picks is queued first, then the test clicks as the user would and
// checks what the app shows.
import {test, expect} from 'velqor-camera-testkit/fixtures';
import {portrait} from './samples.js';

test('a portrait photo stored sideways is shown upright at its full size', async ({page, host}) => {
  host.device.nextPhoto(portrait);
  await page.getByTestId('photo-file').click();
  await expect(page.getByTestId('status')).toHaveAttribute('data-state', 'ok');
  await expect(page.getByTestId('photo-caption')).toHaveText(/^3024 × 4032 · file/);
  const shown = await page.getByTestId('photo').boundingBox();
  expect(shown!.height).toBeGreaterThan(shown!.width);
  // Upright in its pixels, not only by a tag the browser honours.
  const answer = await host.answers.next();
  const stored = await host.files.metadata(answer.payload.callbackURI);
  expect([stored.PixelWidth, stored.PixelHeight]).toEqual([3024, 4032]);
  expect(stored.Orientation ?? 1).toBe(1);
});

test('a photo as a data URL fits 800x800', async ({page, host}) => {
  host.device.nextPhoto(portrait);
  await page.getByTestId('photo-data').click();
  await expect(page.getByTestId('photo-caption')).toHaveText(/^600 × 800 · data URL, \d+ KiB$/);
  expect((await host.answers.next()).payload.callbackURI).toMatch(/^data:image\/jpeg;base64,/);
});

test('a library photo cropped in the picker comes back at the crop', async ({page, host}) => {
  host.device.crop({x: 200, y: 400, width: 400, height: 300});
  host.device.pickFromLibrary(portrait);
  await page.getByTestId('pick-library').click();
  await expect(page.getByTestId('photo-caption')).toHaveText(/^400 × 300 · from the library/);
  expect(await host.files.library()).toHaveLength(1);
});

test('a cancelled picker is a refusal the app shows', async ({page, host}) => {
  host.device.cancelPicker();
  await page.getByTestId('pick-library').click();
  await expect(page.getByTestId('status')).toHaveAttribute('data-state', 'refused');
  await expect(page.getByTestId('status-message')).toHaveText('no image selected');
  expect(await host.answers.open()).toEqual([]);
});

test('a photo with location: the app reads the GPS back from the file', async ({page, host}) => {
  host.device.nextPhoto(portrait);
  // Delivered once the plug-in asks for the location, whenever that is.
  host.device.deliverFix({latitude: 48.85837, longitude: 2.294481, altitude: 35});
  await page.getByTestId('photo-location').click();
  await expect(page.getByTestId('gps-latitude')).toHaveText('48.858370');
  await expect(page.getByTestId('gps-longitude')).toHaveText('2.294481');
  await expect(page.getByTestId('gps-altitude')).toHaveText('35.0 m');
});

test('cleanup removes the photos of the temporary folder', async ({page, host}) => {
  host.device.nextPhoto(portrait);
  await page.getByTestId('photo-file').click();
  await expect(page.getByTestId('status')).toHaveAttribute('data-state', 'ok');
  const {payload} = await host.answers.next();
  expect((await host.files.read(payload.callbackURI)).length).toBeGreaterThan(0);
  await page.getByTestId('cleanup').click();
  await expect(page.getByTestId('status-message')).toHaveText('Temporary files cleared');
  expect((await host.answers.next()).status).toBe('OK');
  await expect(host.files.read(payload.callbackURI)).rejects.toThrow(/404/);
});
