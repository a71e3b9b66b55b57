'use strict';
// The control panel of the web host: calls the plug-in with positional
// arguments (`velqor.call(operation, args)` returns a promise that the
// command's answer settles), sets up the device, and draws the simulated
// device's screens (picker, alert) for the user to act on: with the browser's
// camera, a file, a library pick, an alert button or a location fix.

const $ = (id) => document.getElementById(id);
const ACCESS = ['notDetermined', 'restricted', 'denied', 'authorized', 'limited'];

// Requests and calls go through the bridge (bridge.js, loaded before this script).
const api = (path, body) => window.velqor.api(path, body);
const velqor = {call: (operation, args) => window.velqor.call(operation, args)};

// Notices: what just happened, coloured by kind ('ok', 'info' or 'error').
function notice(text, kind = 'error') {
  $('notice').textContent = text || '';
  $('notice').className = text ? kind : '';
}

const json = (value) => JSON.stringify(value, null, 2);

// ---- request ---------------------------------------------------------------

function optionalNumber(id) {
  const v = $(id).value.trim();
  return v === '' ? null : Number(v);
}

function argsFromForm() {
  return [
    Number($('opt-quality').value), Number($('opt-destination').value), Number($('opt-source').value),
    optionalNumber('opt-width'), optionalNumber('opt-height'), Number($('opt-encoding').value),
    Number($('opt-media').value), $('opt-edit').checked, $('opt-orientation').checked, $('opt-save').checked,
    null, Number($('opt-direction').value) === 1, $('opt-geo').checked,
  ];
}

function showArgs() { $('args').value = JSON.stringify(argsFromForm()); }

let beforeMetadata = null;

function showBefore(metadata, what) {
  beforeMetadata = metadata;
  $('meta-before').textContent = metadata && Object.keys(metadata).length ? json(metadata) : what;
}

async function takePicture() {
  let args;
  try { args = JSON.parse($('args').value); } catch (e) { return notice('arguments: ' + e.message); }
  notice('');
  beforeMetadata = null;
  $('meta-before').textContent = '–';
  $('meta-after').textContent = '–';
  $('result').replaceChildren();
  $('outcome').textContent = 'waiting…';
  $('outcome').className = 'waiting';
  $('answer').textContent = '(waiting for the answer)';
  try {
    const payload = await velqor.call('takePicture', args);
    showOutcome('resolved', payload);
    await showMedia(payload);
  } catch (failure) {
    if (failure instanceof Error) { notice(failure.message); $('outcome').textContent = ''; return; }
    showOutcome('rejected', failure);
  }
}

async function cleanup() {
  try { showOutcome('resolved', await velqor.call('cleanup', [])); notice('temporary files removed', 'ok'); }
  catch (failure) { failure instanceof Error ? notice(failure.message) : showOutcome('rejected', failure); }
}

function showOutcome(kind, value) {
  $('outcome').textContent = kind;
  $('outcome').className = kind;
  const text = json(value);
  $('answer').textContent = text.length > 4000 ? text.slice(0, 4000) + `… (${text.length} characters)` : text;
}

// The answer's media address: the payload itself, or the first address among its values.
function mediaUrlOf(payload) {
  if (typeof payload === 'string') return payload;
  if (payload && typeof payload === 'object') return Object.values(payload).find((v) => typeof v === 'string') || null;
  return null;
}

function mediaElement(url, isVideo) {
  const el = document.createElement(isVideo ? 'video' : 'img');
  el.id = 'result-media';
  if (isVideo) el.controls = true;
  el.src = url;
  return el;
}

async function showMetadataAfter(url) {
  const blob = await (await fetch(url)).blob();
  const res = await fetch('/api/metadata', {method: 'POST', body: blob});
  $('meta-after').textContent = json(await res.json());
}

async function showMedia(payload) {
  const url = mediaUrlOf(payload);
  if (!url) return;
  const library = url.indexOf('assets-library://');
  if (library >= 0) return showLibraryAnswer(url, decoded(url.slice(library)));
  const isVideo = /^data:video\//.test(url) || /\.(mp4|mov|m4v)$/i.test(url);
  if (!/^(data:|https?:)/.test(url)) {
    $('result').textContent = 'The answer is a reference the page cannot load: ' + url;
    return;
  }
  $('result').replaceChildren(mediaElement(url, isVideo));
  if (isVideo) $('meta-after').textContent = '(a movie: no image metadata)';
  else await showMetadataAfter(url);
}

// The library address inside a rewritten answer, its "?" and "&" escaped as a path's would be.
function decoded(text) {
  try { return decodeURIComponent(text); } catch { return text; }
}

// A NATIVE_URI answer names an asset of the photo library. The host's URL
// transformer rewrites every answer as if it were a file path, so the address
// the page receives cannot be loaded; the page says so and shows the asset
// the library address names.
async function showLibraryAnswer(answered, reference) {
  const text = document.createElement('p');
  text.className = 'explain';
  text.textContent = 'The answer is a photo-library address (NATIVE_URI): ' + reference + '. ' +
    (answered === reference ? '' : 'The host rewrote it like a file path, so it cannot be loaded as sent. ');
  $('result').replaceChildren(text);
  let assets = [];
  try { assets = await api('/api/library'); } catch (e) { notice(e.message); }
  // The answer carries the asset's local identifier as its id ("UUID/L0/001"),
  // the library's own reference URL only the UUID: the UUID names the asset.
  const id = (/[?&]id=([^&]*)/.exec(reference) || [])[1] || '';
  const uuid = id.split('/')[0];
  const asset = assets.find((a) => a.referenceUrl === reference || (uuid && a.localIdentifier.split('/')[0] === uuid));
  if (!asset) { text.textContent += 'The library has no asset with that address.'; return; }
  text.textContent += `It names the library's ${asset.video ? 'movie' : 'picture'} ${asset.localIdentifier} ` +
    `(${asset.extension}, ${asset.size.toLocaleString()} bytes), shown below.`;
  const url = '/files' + asset.file;
  $('result').append(mediaElement(url, asset.video));
  if (!asset.video) await showMetadataAfter(url);
}

// ---- why the command is still open -----------------------------------------

const ACTIONS = {
  tapAlert: 'Tap one of the alert\'s buttons on the screen.',
  finishPicker: 'Take a photo or record with the camera, choose or drop a file, or cancel.',
  finishLibraryPicker: 'Tap a picture of the library to pick it, or cancel.',
  deliverFix: 'Deliver a location fix.',
  none: 'Nothing on the device will answer it now.',
};
let shownOpen = '';

function actionButton(label, onClick) {
  const b = document.createElement('button');
  b.type = 'button';
  b.textContent = label;
  b.addEventListener('click', onClick);
  return b;
}

function drawOpen(open) {
  const key = JSON.stringify(open);
  if (key === shownOpen) return;
  shownOpen = key;
  $('open').hidden = !open.length;
  $('open').replaceChildren(...open.map((o) => {
    const item = document.createElement('div');
    item.className = 'open-item';
    item.dataset.action = o.action;
    const why = document.createElement('p');
    why.innerHTML = '<b></b> is open: <span class="reason"></span>';
    why.querySelector('b').textContent = `${o.operation} ${o.command}`;
    why.querySelector('.reason').textContent = o.reason + '.';
    const next = document.createElement('p');
    next.className = 'next';
    const library = o.action === 'finishPicker' && picker && picker.source !== 1;
    next.textContent = ACTIONS[library ? 'finishLibraryPicker' : o.action] || '';
    item.append(why, next);
    if (o.action === 'deliverFix') item.append(actionButton('Deliver the fix', sendFix));
    if (o.action === 'finishPicker') item.append(actionButton('Cancel the picker', cancelPicker));
    return item;
  }));
}

// ---- device ----------------------------------------------------------------

function fillSelect(id, values) {
  $(id).replaceChildren(...values.map((v) => new Option(v, v)));
}

function showDevice(d) {
  $('dev-camera-access').value = d.cameraAccess;
  $('dev-library-access').value = d.libraryAccess;
  $('dev-camera-answer').value = d.cameraAnswer;
  $('dev-library-answer').value = d.libraryAnswer;
  for (const box of document.querySelectorAll('input[name=source]')) box.checked = d.sources.includes(box.value);
}

async function applyDevice() {
  const body = {
    cameraAccess: $('dev-camera-access').value, libraryAccess: $('dev-library-access').value,
    cameraAnswer: $('dev-camera-answer').value, libraryAnswer: $('dev-library-answer').value,
    sources: [...document.querySelectorAll('input[name=source]:checked')].map((b) => b.value),
  };
  try {
    const d = await api('/api/device', body);
    showDevice(d);
    notice(`device: camera ${d.cameraAccess}, library ${d.libraryAccess}, sources ${d.sources.join(', ') || 'none'}`, 'ok');
  } catch (e) { notice(e.message); }
}

// ---- location --------------------------------------------------------------

let locationWaiting = 0;  // location managers that wait for a fix
let browserFix = null;    // the browser's latest position, when the switch is on
let browserWatch = null;
let delivering = false;

async function deliver(body, from) {
  try {
    const r = await api('/api/location', body);
    notice(`fix ${body.latitude.toFixed(5)}, ${body.longitude.toFixed(5)} from ${from} delivered to ` +
           `${r.waitingManagers} location manager(s)`, 'ok');
  } catch (e) { notice(e.message); }
}

function sendFix() {
  if (browserFix) return deliver(browserFix, 'this browser');
  return deliver({latitude: optionalNumber('loc-lat'), longitude: optionalNumber('loc-lon'),
                  altitude: optionalNumber('loc-alt')}, 'the typed fields');
}

// With the switch on, every position the browser reports becomes the fix, and
// goes to the location service at once when a photo waits for one.
async function deliverBrowserFixIfWaited() {
  if (!browserFix || !locationWaiting || delivering) return;
  delivering = true;
  try { await deliver(browserFix, 'this browser'); } finally { delivering = false; }
}

function useBrowserLocation(on) {
  if (browserWatch !== null) navigator.geolocation.clearWatch(browserWatch);
  browserWatch = null;
  browserFix = null;
  $('loc-browser-state').textContent = '';
  if (!on) return;
  if (!navigator.geolocation) {
    $('loc-browser-state').textContent = 'This browser has no location service.';
    $('loc-browser').checked = false;
    return;
  }
  $('loc-browser-state').textContent = 'Asking the browser for its location…';
  browserWatch = navigator.geolocation.watchPosition((p) => {
    const c = p.coords;
    browserFix = {latitude: c.latitude, longitude: c.longitude, altitude: c.altitude};
    $('loc-lat').value = c.latitude;
    $('loc-lon').value = c.longitude;
    if (c.altitude !== null) $('loc-alt').value = c.altitude;
    $('loc-browser-state').textContent =
      `Browser location ${c.latitude.toFixed(5)}, ${c.longitude.toFixed(5)} (±${Math.round(c.accuracy)} m)`;
    deliverBrowserFixIfWaited();
  }, (e) => {
    browserFix = null;
    $('loc-browser-state').textContent = 'The browser gives no location: ' + e.message;
  }, {enableHighAccuracy: true});
}

// ---- events ----------------------------------------------------------------

// One event as a line: its name first, then its other fields.
function eventItem(e) {
  const li = document.createElement('li');
  const name = document.createElement('b');
  name.textContent = e.event || 'event';
  const rest = Object.entries(e).filter(([k]) => k !== 'event')
    .map(([k, v]) => `${k}=${typeof v === 'string' ? v : JSON.stringify(v)}`).join('  ');
  li.append(name, ' ' + rest);
  return li;
}

// ---- the pushed state -----------------------------------------------------

let deviceShown = false;

function showState(message, s) {
  if (message.events && message.events.length) {
    $('events').prepend(...[...message.events].reverse().map(eventItem));
    // A page left open for days keeps the recent events only, as the server does.
    while ($('events').children.length > 500) $('events').lastElementChild.remove();
    $('events').scrollTop = 0;
  }
  drawScreen(s.screen);
  drawOpen(s.open || []);
  locationWaiting = s.locationStarted;
  $('loc-state').textContent = s.locationStarted ? 'a photo waits for a fix' : '';
  deliverBrowserFixIfWaited();
  if (!deviceShown && s.device) { showDevice(s.device); deviceShown = true; }
}

window.addEventListener('velqorconnection', (e) => {
  $('connection').textContent = e.detail.connected ? 'connected' : 'disconnected: ' + e.detail.why;
});

document.addEventListener('DOMContentLoaded', () => {
  fillSelect('dev-camera-access', ACCESS.slice(0, 4));
  fillSelect('dev-library-access', ACCESS);
  fillSelect('dev-library-answer', ACCESS);
  showArgs();
  $('options').addEventListener('input', showArgs);
  $('options').addEventListener('change', showArgs);
  $('call-take').addEventListener('click', takePicture);
  $('call-cleanup').addEventListener('click', cleanup);
  $('device').addEventListener('change', applyDevice);
  $('loc-send').addEventListener('click', sendFix);
  $('loc-browser').addEventListener('change', (e) => useBrowserLocation(e.target.checked));
  $('camera-shoot').addEventListener('click', shoot);
  $('camera-record').addEventListener('click', record);
  $('camera-stop').addEventListener('click', stopRecording);
  $('picker-use').addEventListener('click', () => useChosenFile($('picker-file').files[0]));
  $('picker-cancel').addEventListener('click', cancelPicker);
  acceptDrops($('drop-zone'));
  $('connection').textContent = window.velqor.currentState().connected ? 'connected' : 'connecting…';
  window.velqor.subscribe(showState);
});
