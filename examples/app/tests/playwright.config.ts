import {fileURLToPath} from 'node:url';
import {defineConfig} from '@playwright/test';
import type {VelqorOptions, VelqorWorkerOptions} from 'velqor-camera-testkit/fixtures';

// The example app under test, each test on a host of its own, in the system's
// Chromium. VELQOR_HEADED=1 opens a window to watch.
export default defineConfig<VelqorOptions, VelqorWorkerOptions>({
  testDir: '.',
  timeout: 60_000,
  workers: 1,
  reporter: [['list']],
  outputDir: process.env.VELQOR_TEST_OUTPUT ?? '/tmp/velqor-example-app-results',
  use: {
    app: fileURLToPath(new URL('..', import.meta.url)),
  },
});
