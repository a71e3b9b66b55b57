// The phone's system screens drawn over an app page, as the phone draws its
// system sheets over the app: a permission alert (its localized title,
// message and buttons in order), the picker (the browser's camera for a photo
// or a movie, a chosen file, or the photo library with a square crop when
// editing is allowed), the settings page the user was sent to, and a small
// note saying why a command is still open. Everything the user does here
// goes to the host as the user's action on the simulated phone.
//
// Draws from the bridge's pushed state only; its own DOM lives under
// #velqor-overlay and its CSS (all classes prefixed velqor-) is injected here.
import {api, subscribe} from './bridge.js';
import './exif.js';
import './camera.js';

const camera = window.velqorCamera;

const CSS = `
#velqor-overlay { position: fixed; inset: 0; pointer-events: none; z-index: 2147483000;
  font: 15px/1.35 -apple-system, system-ui, "Segoe UI", Roboto, sans-serif; color: #111; }
#velqor-overlay * { box-sizing: border-box; }
#velqor-overlay button { font: inherit; cursor: pointer; }
.velqor-backdrop { position: absolute; inset: 0; background: rgba(0,0,0,.42); pointer-events: auto;
  display: flex; align-items: center; justify-content: center; animation: velqor-fade .15s ease-out; }
.velqor-alert { width: 270px; border-radius: 14px; background: rgba(242,242,247,.97); text-align: center;
  overflow: hidden; box-shadow: 0 10px 40px rgba(0,0,0,.3); animation: velqor-pop .18s ease-out; }
.velqor-alert-text { padding: 19px 16px 17px; }
.velqor-alert-title { font-weight: 600; font-size: 17px; margin: 0 0 2px; }
.velqor-alert-title:empty { display: none; }
.velqor-alert-message { font-size: 13px; margin: 0; white-space: pre-wrap; }
.velqor-alert-buttons { display: flex; border-top: 1px solid rgba(60,60,67,.29); }
.velqor-alert-buttons.velqor-stacked { flex-direction: column; }
.velqor-alert-buttons button { flex: 1; min-height: 44px; border: 0; background: transparent; color: #007aff;
  font-size: 17px; padding: 10px 8px; }
.velqor-alert-buttons button + button { border-left: 1px solid rgba(60,60,67,.29); }
.velqor-stacked button + button { border-left: 0; border-top: 1px solid rgba(60,60,67,.29); }
.velqor-alert-buttons button.velqor-cancel { font-weight: 600; }
.velqor-alert-buttons button:active { background: rgba(0,0,0,.08); }
.velqor-sheet { position: absolute; inset: 0; pointer-events: auto; display: flex; flex-direction: column;
  background: #f2f2f7; animation: velqor-rise .25s ease-out; }
.velqor-sheet.velqor-dark { background: #000; color: #fff; }
.velqor-bar { display: flex; align-items: center; justify-content: space-between; padding: 12px 16px;
  font-weight: 600; }
.velqor-bar button { border: 0; background: none; color: #0a84ff; padding: 4px 0; font-size: 17px; }
.velqor-dark .velqor-bar button { color: #fff; }
.velqor-bar-end { width: 52px; }
.velqor-body { flex: 1; overflow: auto; padding: 0 12px 12px; display: flex; flex-direction: column; gap: 12px; }
.velqor-viewfinder { position: relative; flex: 1; min-height: 200px; background: #111; border-radius: 6px;
  overflow: hidden; display: flex; align-items: center; justify-content: center; }
.velqor-viewfinder video, .velqor-crop img { max-width: 100%; max-height: 100%; }
.velqor-mirror { transform: scaleX(-1); }
.velqor-hint { font-size: 13px; opacity: .75; margin: 0; text-align: center; }
.velqor-controls { display: flex; align-items: center; justify-content: center; gap: 24px; padding: 8px 0 4px; }
.velqor-shutter { width: 66px; height: 66px; border-radius: 50%; border: 4px solid #fff; background: #fff;
  box-shadow: inset 0 0 0 3px #000; }
.velqor-shutter.velqor-record { background: #ff3b30; }
.velqor-shutter.velqor-recording { background: #ff3b30; border-radius: 12px; transform: scale(.8); }
.velqor-shutter:disabled { opacity: .35; }
.velqor-file { font-size: 13px; text-align: center; }
.velqor-file input { color: inherit; max-width: 100%; }
.velqor-grid { display: grid; grid-template-columns: repeat(auto-fill, minmax(92px, 1fr)); gap: 2px; }
.velqor-grid button { aspect-ratio: 1; border: 0; padding: 0; background: #d1d1d6; overflow: hidden; color: #333; }
.velqor-grid img { width: 100%; height: 100%; object-fit: cover; display: block; }
.velqor-crop { position: relative; flex: 1; display: flex; align-items: center; justify-content: center;
  background: #000; min-height: 200px; }
.velqor-crop-frame { position: absolute; border: 2px solid #fff; box-shadow: 0 0 0 9999px rgba(0,0,0,.55); }
.velqor-settings { position: absolute; left: 0; right: 0; top: 0; pointer-events: auto; background: #f2f2f7;
  border-bottom: 1px solid #c6c6c8; box-shadow: 0 6px 24px rgba(0,0,0,.2); padding: 14px 16px;
  animation: velqor-drop .2s ease-out; }
.velqor-settings h3 { margin: 0 0 4px; font-size: 17px; }
.velqor-settings p { margin: 0 0 8px; font-size: 13px; }
.velqor-settings-buttons { display: flex; gap: 8px; flex-wrap: wrap; }
.velqor-settings button { border: 0; background: #007aff; color: #fff; border-radius: 8px; padding: 6px 12px; }
.velqor-open { position: absolute; left: 50%; bottom: 14px; transform: translateX(-50%); max-width: min(92vw, 520px);
  pointer-events: auto; background: rgba(28,28,30,.92); color: #fff; border-radius: 12px; padding: 9px 14px;
  font-size: 13px; box-shadow: 0 4px 18px rgba(0,0,0,.3); }
.velqor-open p { margin: 2px 0; }
.velqor-open .velqor-open-close { float: right; margin: -4px -6px 0 8px; padding: 0 6px; background: none;
  color: #aaa; font-size: 18px; line-height: 1; }
.velqor-open button { margin-top: 6px; border: 0; border-radius: 8px; padding: 5px 10px; background: #0a84ff; color: #fff; }
.velqor-error { color: #ff453a; font-size: 13px; text-align: center; margin: 0; }
@keyframes velqor-fade { from { opacity: 0; } }
@keyframes velqor-pop { from { transform: scale(1.15); opacity: 0; } }
@keyframes velqor-rise { from { transform: translateY(100%); } }
@keyframes velqor-drop { from { transform: translateY(-100%); } }
`;

// ---- small DOM helpers -----------------------------------------------------

function el(tag, props = {}, ...children) {
  const node = document.createElement(tag);
  for (const [k, v] of Object.entries(props)) {
    if (k === 'class') node.className = v;
    else if (k === 'testid') node.dataset.testid = v;
    else if (k.startsWith('on')) node.addEventListener(k.slice(2), v);
    else node[k] = v;
  }
  node.append(...children.filter((c) => c !== null && c !== undefined));
  return node;
}

let root = null;
const layers = {};  // one element per kind of screen: alert, picker, settings, open

function ensureRoot() {
  if (root) return;
  // A constructed style sheet: the host's content policy refuses inline <style> elements.
  const sheet = new CSSStyleSheet();
  sheet.replaceSync(CSS);
  document.adoptedStyleSheets = [...document.adoptedStyleSheets, sheet];
  root = el('div', {id: 'velqor-overlay', testid: 'velqor-overlay'});
  for (const name of ['open', 'settings', 'picker', 'alert']) root.append(layers[name] = el('div'));
  document.body.append(root);
}

// ---- what the phone shows --------------------------------------------------

// The screen in one shape, whether the host sends the screen as an object
// ({alert, picker, settingsOpened}) or as the list of presented screens.
function screenOf(screen) {
  if (!screen) return {alert: null, picker: null, settingsOpened: false};
  if (!Array.isArray(screen)) return {alert: screen.alert || null, picker: screen.picker || null,
                                      settingsOpened: !!screen.settingsOpened};
  const top = screen[screen.length - 1];
  return {alert: top && top.event === 'alertShown' ? top : null,
          picker: screen.find((s) => s.event === 'pickerPresented') || null, settingsOpened: false};
}

const buttonsOf = (alert) => (alert.buttons || []).map((b) => (typeof b === 'string' ? {title: b, style: 'default'} : b));

// What to send for the button at `index`: its title when that names it alone,
// else its role (the first button leads to Settings, the second cancels).
function buttonChoice(buttons, index) {
  const title = buttons[index].title;
  if (title && buttons.filter((b) => b.title === title).length === 1) return title;
  return index === 0 ? 'settings' : 'cancel';
}

let shownAlert = '';

function drawAlert(alert) {
  const key = JSON.stringify(alert);
  if (key === shownAlert) return;
  shownAlert = key;
  layers.alert.replaceChildren();
  if (!alert) return;
  const buttons = buttonsOf(alert);
  const row = el('div', {class: 'velqor-alert-buttons' + (buttons.length > 2 ? ' velqor-stacked' : '')});
  buttons.forEach((b, i) => row.append(el('button', {
    type: 'button', textContent: b.title, class: b.style === 'cancel' ? 'velqor-cancel' : '',
    testid: 'velqor-alert-button',
    onclick: (e) => {
      for (const other of row.children) other.disabled = true;
      api('/api/alert', {button: buttonChoice(buttons, i)}).catch((err) => showAlertError(err, row));
      e.stopPropagation();
    },
  })));
  layers.alert.append(el('div', {class: 'velqor-backdrop'},
    el('div', {class: 'velqor-alert', role: 'alertdialog', testid: 'velqor-alert'},
      el('div', {class: 'velqor-alert-text'},
        el('p', {class: 'velqor-alert-title', textContent: alert.title || '', testid: 'velqor-alert-title'}),
        el('p', {class: 'velqor-alert-message', textContent: alert.message || '', testid: 'velqor-alert-message'})),
      row)));
}

function showAlertError(err, row) {
  for (const b of row.children) b.disabled = false;
  row.before(el('p', {class: 'velqor-error', textContent: err.message}));
}

// ---- the picker ------------------------------------------------------------

let shownPicker = '';
let pickerBusy = false;

function describePicker(p) {
  const source = p.sourceType ?? p.source;
  const media = (p.mediaTypes || []).join(' ');
  return {camera: source === 1, video: p.captureMode === 1 || (source === 1 && /movie|video/.test(media)),
          front: p.cameraDevice === 1, edit: !!p.allowsEditing, movies: /movie|video/.test(media)};
}

function drawPicker(p) {
  const key = JSON.stringify(p);
  if (key === shownPicker) return;
  shownPicker = key;
  pickerBusy = false;
  camera.close();
  layers.picker.replaceChildren();
  if (!p) return;
  const d = describePicker(p);
  const status = el('p', {class: 'velqor-hint', testid: 'velqor-picker-status'});
  const body = el('div', {class: 'velqor-body'});
  const sheet = el('div', {class: 'velqor-sheet' + (d.camera ? ' velqor-dark' : ''), testid: 'velqor-picker',
                           role: 'dialog'},
    el('div', {class: 'velqor-bar'},
      el('button', {type: 'button', textContent: 'Cancel', testid: 'velqor-picker-cancel', onclick: cancelPicker}),
      el('span', {textContent: d.camera ? (d.video ? 'Video' : 'Photo') : 'Photos'}),
      el('span', {class: 'velqor-bar-end'})),
    body);
  layers.picker.append(sheet);
  if (d.camera) drawCamera(body, status, d);
  else drawLibrary(body, status, d);
  body.append(status, fileChooser(d, status));
}

function fileChooser(d, status) {
  const input = el('input', {type: 'file', accept: d.video ? 'video/*' : d.camera ? 'image/*' : 'image/*,video/*',
                             testid: 'velqor-picker-file'});
  input.addEventListener('change', () => {
    const file = input.files[0];
    if (!file) return;
    const kind = file.type.startsWith('video/') ? 'video' : file.type.startsWith('image/') ? 'photo'
               : d.video ? 'video' : 'photo';
    finishWith(file, file.name, kind, status);
  });
  return el('label', {class: 'velqor-file'}, d.camera ? 'No camera? Use a file: ' : 'Or a file: ', input);
}

async function drawCamera(body, status, d) {
  const view = el('video', {autoplay: true, muted: true, playsInline: true, testid: 'velqor-camera-view'});
  const shutter = el('button', {type: 'button', class: 'velqor-shutter' + (d.video ? ' velqor-record' : ''),
                                disabled: true, testid: d.video ? 'velqor-record' : 'velqor-shutter',
                                title: d.video ? 'Record' : 'Take photo', ariaLabel: d.video ? 'Record' : 'Take photo'});
  body.append(el('div', {class: 'velqor-viewfinder'}, view), el('div', {class: 'velqor-controls'}, shutter));
  status.textContent = `Opening the ${d.front ? 'front' : 'rear'} camera…`;
  try {
    const stream = await camera.open({front: d.front, video: d.video});
    if (!stream) return;
    view.srcObject = stream;
    view.classList.toggle('velqor-mirror', d.front);  // a front camera previews as a mirror
    if (d.video && !camera.recordingType()) {
      status.textContent = 'This browser cannot record an MPEG-4 movie: use a file.';
      return;
    }
    await new Promise((resolve) => (view.videoWidth ? resolve() : view.addEventListener('loadeddata', resolve, {once: true})));
    status.textContent = stream.getVideoTracks()[0]?.label || 'Camera on';
    shutter.disabled = false;
    shutter.addEventListener('click', d.video ? () => toggleRecording(shutter, status) : () => shoot(view, status));
  } catch (e) {
    status.textContent = `No camera in this browser (${e.message || e.name}).`;
  }
}

async function shoot(view, status) {
  if (pickerBusy) return;
  try {
    const photo = await camera.takePhoto(view);
    await finishWith(photo.blob, 'camera.jpg', 'photo', status);
  } catch (e) { status.textContent = e.message; }
}

async function toggleRecording(shutter, status) {
  if (!camera.recording) {
    try {
      camera.startRecording();
      shutter.classList.add('velqor-recording');
      shutter.dataset.testid = 'velqor-stop';
      shutter.title = 'Stop';
      status.textContent = 'Recording…';
    } catch (e) { status.textContent = e.message; }
    return;
  }
  shutter.disabled = true;
  try {
    await finishWith(await camera.stopRecording(), 'camera.mp4', 'video', status);
  } catch (e) { status.textContent = e.message; shutter.disabled = false; }
}

async function drawLibrary(body, status, d) {
  const grid = el('div', {class: 'velqor-grid', testid: 'velqor-library'});
  body.append(grid);
  try {
    const assets = (await api('/api/library')).filter((a) => d.movies || !a.video);
    grid.replaceChildren(...assets.map((a) => el('button', {
      type: 'button', title: a.localIdentifier, testid: 'velqor-asset',
      onclick: () => (d.edit && !a.video ? showCrop(body, a, status) : pick(a, '', status)),
    }, a.video ? 'Movie' : el('img', {src: '/files' + a.file, alt: a.localIdentifier}))));
    if (!assets.length) status.textContent = 'No photos yet.';
  } catch (e) { status.textContent = e.message; }
}

// "Move and Scale": the library picture with the square the picker keeps,
// the largest one centred in it.
function showCrop(body, asset, status) {
  const img = el('img', {src: '/files' + asset.file, alt: asset.localIdentifier});
  const frame = el('div', {class: 'velqor-crop-frame'});
  const area = el('div', {class: 'velqor-crop', testid: 'velqor-crop'}, img, frame);
  const choose = el('button', {type: 'button', textContent: 'Choose', testid: 'velqor-crop-choose', disabled: true});
  body.replaceChildren(area, el('div', {class: 'velqor-controls'},
    el('button', {type: 'button', textContent: 'Back', onclick: () => { shownPicker = ''; drawPicker(lastPicker); }}),
    choose), status);
  img.addEventListener('load', () => {
    const side = Math.min(img.naturalWidth, img.naturalHeight);
    const x = Math.floor((img.naturalWidth - side) / 2);
    const y = Math.floor((img.naturalHeight - side) / 2);
    const scale = img.clientWidth / img.naturalWidth;
    Object.assign(frame.style, {width: `${side * scale}px`, height: `${side * scale}px`});
    choose.disabled = false;
    choose.addEventListener('click', () => pick(asset, `${x},${y},${side},${side}`, status));
  }, {once: true});
}

async function pick(asset, edit, status) {
  if (pickerBusy) return;
  pickerBusy = true;
  status.textContent = 'Picking…';
  try {
    await api('/api/picker/pick', edit ? {asset: asset.localIdentifier, edit} : {asset: asset.localIdentifier});
  } catch (e) { status.textContent = e.message; pickerBusy = false; }
}

// Hands the picker the user's photo or movie, as the phone's camera would.
async function finishWith(blob, name, kind, status) {
  if (pickerBusy) return;
  pickerBusy = true;
  const form = new FormData();
  form.append('kind', kind);
  form.append('file', blob, name);
  status.textContent = `Using the ${kind}…`;
  try {
    await api('/api/picker/file', form);
  } catch (e) { status.textContent = e.message; pickerBusy = false; }
}

async function cancelPicker() {
  try { await api('/api/picker/cancel', {}); } catch (e) { /* the picker left the screen meanwhile */ }
}

// ---- the settings page and open commands -----------------------------------

let settingsShown = false;

function drawSettings(show) {
  if (show === settingsShown) return;
  settingsShown = show;
  layers.settings.replaceChildren();
  if (!show) return;
  const state = el('p', {testid: 'velqor-settings-state'});
  const allow = (what, change) => el('button', {type: 'button', textContent: `Allow ${what}`,
    testid: `velqor-allow-${what}`, onclick: async (e) => {
      try {
        await api('/api/device', change);
        e.target.disabled = true;
        state.textContent = `${what[0].toUpperCase() + what.slice(1)} allowed for this app.`;
      } catch (err) { state.textContent = err.message; }
    }});
  layers.settings.append(el('div', {class: 'velqor-settings', role: 'status', testid: 'velqor-settings'},
    el('h3', {textContent: 'Settings'}),
    el('p', {textContent: "The phone opened this app's page in Settings, where the user can allow the camera " +
                          'or the photos. The app is still waiting for its answer.'}),
    el('div', {class: 'velqor-settings-buttons'},
      allow('camera', {cameraAccess: 'authorized'}), allow('photos', {libraryAccess: 'authorized'}),
      el('button', {type: 'button', textContent: 'Back to the app', testid: 'velqor-settings-back',
                    onclick: () => { settingsPending = false; drawSettings(false); }})),
    state));
}

const NEXT = {
  tapAlert: 'Tap a button of the alert.',
  finishPicker: 'Take the picture, choose one, or cancel.',
  deliverFix: 'The photo waits for a location fix.',
  none: 'Nothing on the phone will answer it now.',
};
let shownOpen = '';

function drawOpen(open) {
  const key = JSON.stringify(open);
  if (key === shownOpen) return;
  shownOpen = key;
  layers.open.replaceChildren();
  if (!open.length) return;
  // The note stays until the user closes it or the open commands change.
  const close = el('button', {type: 'button', class: 'velqor-open-close', textContent: '×', title: 'Hide',
                              ariaLabel: 'Hide', onclick: () => layers.open.replaceChildren()});
  // Only the newest takePicture can still be answered; older ones were
  // replaced by it and are only counted.
  const takes = open.filter((o) => o.operation === 'takePicture');
  const newest = takes.length ? takes[takes.length - 1].command : null;
  const shown = open.filter((o) => o.operation !== 'takePicture' || o.command === newest);
  const replaced = new Set(takes.filter((o) => o.command !== newest).map((o) => o.command)).size;
  const note = el('div', {class: 'velqor-open', role: 'status', testid: 'velqor-open'}, close);
  if (replaced) note.append(el('p', {class: 'velqor-hint', testid: 'velqor-open-replaced',
    textContent: `${replaced} earlier takePicture ${replaced === 1 ? 'call was' : 'calls were'} replaced and will never be answered.`}));
  for (const o of shown) {
    note.append(el('p', {testid: 'velqor-open-item', textContent: `${o.operation} is still open: ${o.reason}.`}),
                el('p', {class: 'velqor-hint', textContent: NEXT[o.action] || ''}));
    if (o.action === 'deliverFix') note.append(el('button', {type: 'button', testid: 'velqor-deliver-fix',
      textContent: "Use this browser's location", onclick: (e) => deliverBrowserFix(e.target)}));
  }
  layers.open.append(note);
}

function deliverBrowserFix(button) {
  if (!navigator.geolocation) { button.textContent = 'This browser has no location'; return; }
  button.disabled = true;
  navigator.geolocation.getCurrentPosition(async ({coords}) => {
    try {
      await api('/api/location', {latitude: coords.latitude, longitude: coords.longitude, altitude: coords.altitude});
    } catch (e) { button.textContent = e.message; button.disabled = false; }
  }, (e) => { button.textContent = `No location: ${e.message}`; button.disabled = false; });
}

// ---- wiring ----------------------------------------------------------------

let lastPicker = null;
let drawn = false;
let settingsPending = false;  // the phone went to Settings; shown once the alert has left

function draw(message, state) {
  ensureRoot();
  const s = screenOf(state.screen);
  const open = state.open || [];
  // The visit to Settings can arrive while its alert is still leaving the
  // screen, so it waits for a clear screen. A page that loads late hears of
  // old visits too: the notice then only shows while a command is still open.
  const opened = (message.events || []).some((e) => e.event === 'settingsOpened');
  if (opened && (drawn || open.length)) settingsPending = true;
  if (!drawn && s.settingsOpened && open.length) settingsPending = true;
  const covered = !!(s.alert || s.picker);
  if (covered && settingsShown) settingsPending = false;  // the app moved on: a new alert or picker
  drawn = true;
  drawSettings(settingsPending && !covered);
  lastPicker = s.picker;
  drawPicker(s.picker);
  drawAlert(s.alert);
  drawOpen(open);
}

function start() { subscribe(draw); }
if (document.body) start(); else document.addEventListener('DOMContentLoaded', start, {once: true});
