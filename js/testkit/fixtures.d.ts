import type {PlaywrightTestArgs, PlaywrightTestOptions, PlaywrightWorkerArgs, PlaywrightWorkerOptions, TestType} from '@playwright/test';
import type {DeviceOptions, Host} from './index.js';

export interface VelqorOptions {
  /** The app's folder served at `/`. */
  app: string | undefined;
  /** The phone when the host starts. */
  phone: DeviceOptions;
  /** The velqor-camera executable, when not found the usual way. */
  velqorBinary: string | undefined;
}

export interface VelqorWorkerOptions {
  /** true: Chromium's generated picture; false: no camera; a .y4m/.mjpeg file the fake camera plays. */
  fakeCamera: boolean | string;
}

export interface VelqorFixtures {
  /** A host of its own for this test. */
  host: Host;
}

export const test: TestType<PlaywrightTestArgs & PlaywrightTestOptions & VelqorOptions & VelqorFixtures,
                             PlaywrightWorkerArgs & PlaywrightWorkerOptions & VelqorWorkerOptions>;
export {expect} from '@playwright/test';
