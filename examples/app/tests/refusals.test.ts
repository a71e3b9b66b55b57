// What Field Notes shows when the phone says no, or says nothing: refused
// and limited access, no camera. Each group starts its hosts with the phone
// in that state.
import {test, expect} from 'velqor-camera-testkit/fixtures';

test.describe('camera access turned off', () => {
  test.use({phone: {cameraAccess: 'denied'}});

  test('Settings leaves the command open, and the app shows it open', async ({page, host}) => {
    host.device.tapAlert('settings');
    await page.getByTestId('photo-file').click();
    await host.device.whenShown('settingsOpened');
    // The user went to the settings page: the plug-in answers nothing until
    // the app is opened again, so the promise stays unsettled.
    await host.answers.untilOpen(/settings page was opened/);
    // While the alert is still leaving the screen it is a reason of its own;
    // once it has gone, the settings visit is the one reason left.
    await expect.poll(async () => (await host.answers.open()).map((o) => o.reason))
        .toEqual([expect.stringMatching(/settings page was opened/)]);
    const open = await host.answers.open();
    test.info().annotations.push({type: 'still open', description: open[0].reason});
    await expect(page.getByTestId('status')).toHaveAttribute('data-state', 'open');
    await expect(page.getByTestId('status-title')).toHaveText('Still open');
    expect(await host.answers.all()).toEqual([]);
  });
});

test.describe('camera access turned off, phone in French', () => {
  test.use({phone: {cameraAccess: 'denied', languages: ['fr']}});

  test('the alert asks in French; Cancel rejects with NO_PERMISSION', async ({page, host}) => {
    await page.getByTestId('photo-file').click();
    const {alert} = await host.device.whenShown('alert');
    expect(alert!.message).toMatch(/^L’accès à l’appareil photo est désactivé pour cette app/);
    expect(alert!.buttons.map((b) => b.title)).toEqual(['Réglages', 'Annuler']);
    // The phone's sheet over the app says the same.
    await expect(page.getByText(alert!.message, {exact: true})).toBeVisible();
    await host.device.tapAlert('cancel');
    await expect(page.getByTestId('status-code')).toHaveText('NO_PERMISSION');
    await expect(page.getByTestId('status-message')).toHaveText('Not have permission to use the camera.');
  });
});

test.describe('photo library access limited', () => {
  test.use({phone: {libraryAccess: 'limited'}});

  test('a library pick stays open and says why', async ({page, host}) => {
    await page.getByTestId('pick-library').click();
    const open = await host.answers.untilOpen(/limited/);
    test.info().annotations.push({type: 'still open', description: open[0].reason});
    await expect(page.getByTestId('status')).toHaveAttribute('data-state', 'open');
    expect((await host.device.screen()).picker).toBeNull();
  });
});

test.describe('a phone without a camera', () => {
  test.use({phone: {noCamera: true}});

  test('a photo is refused with OBJECT_REFERENCE_FAILED', async ({page, host}) => {
    await page.getByTestId('photo-file').click();
    await expect(page.getByTestId('status-code')).toHaveText('OBJECT_REFERENCE_FAILED');
    expect((await host.answers.next()).status).toBe('OBJECT_REFERENCE_FAILED');
  });
});
