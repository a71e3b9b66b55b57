// What the phone shows, in one shape: {alert, picker, settingsOpened}.
// Servers that still list the view controllers on screen as an array are
// read into the same shape.
export function screenOf(summary) {
  const screen = summary.screen;
  if (screen && !Array.isArray(screen)) {
    return {alert: screen.alert ?? null, picker: screen.picker ?? null, settingsOpened: Boolean(screen.settingsOpened)};
  }
  const shown = Array.isArray(screen) ? screen : [];
  const alert = shown.find((v) => v.event === 'alertShown');
  const picker = shown.find((v) => v.event === 'pickerPresented');
  const settingsOpened = (summary.events ?? []).some((e) => e?.event === 'settingsOpened');
  return {
    alert: alert ? {title: alert.title ?? '', message: alert.message ?? '',
                    buttons: (alert.buttons ?? []).map((b) => (typeof b === 'string' ? {title: b} : b))} : null,
    picker: picker ? Object.fromEntries(Object.entries(picker).filter(([k]) => k !== 'event')) : null,
    settingsOpened,
  };
}
