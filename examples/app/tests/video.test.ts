// A clip recorded in Field Notes plays with the duration of the movie the
// user recorded.
import {test, expect} from 'velqor-camera-testkit/fixtures';
import {movie, movieSeconds} from './samples.js';

test('a recorded clip shows its duration', async ({page, host}) => {
  host.device.nextVideo(movie);
  await page.getByTestId('record-video').click();
  await expect(page.getByTestId('movie')).toBeVisible();
  const seconds = Number(await page.getByTestId('movie-duration').getAttribute('data-seconds'));
  expect(seconds).toBeCloseTo(movieSeconds(movie), 1);
  await expect(page.getByTestId('movie-duration')).toHaveText(`${movieSeconds(movie).toFixed(1)} s`);
});
