'use strict';
// The page side of the web host: `velqor.call(operation, args)` returns a
// promise that the command's answer settles, and the simulated device's
// screens (picker, alert) are drawn here for the user to act on.

const $ = (id) => document.getElementById(id);
const ACCESS = ['notDetermined', 'restricted', 'denied', 'authorized', 'limited'];

async function api(path, body) {
  const init = body === undefined ? {} : {
    method: 'POST',
    // The server refuses state-changing requests without this header, which
    // a page of another site cannot send.
    headers: body instanceof FormData ? {'X-Velqor-Request': '1'}
                                      : {'Content-Type': 'application/json', 'X-Velqor-Request': '1'},
    body: body instanceof FormData ? body : JSON.stringify(body),
  };
  const res = await fetch(path, init);
  const json = await res.json().catch(() => ({error: 'the server sent no JSON'}));
  if (!res.ok) throw new Error(json.error || `HTTP ${res.status}`);
  return json;
}

// The bridge: one pending promise per command, settled by its final answer.
const velqor = {
  pending: new Map(),
  call(operation, args) {
    return api('/api/call', {operation, args}).then(({callbackId}) =>
      new Promise((resolve, reject) => this.pending.set(callbackId, {resolve, reject})));
  },
  settle(answer) {
    const waiter = this.pending.get(answer.callbackId);
    if (!waiter || answer.keepCallback) return;
    this.pending.delete(answer.callbackId);
    if (answer.status === 'OK') waiter.resolve(answer.payload);
    else waiter.reject({status: answer.status, payload: answer.payload});
  },
};
window.velqor = velqor;

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

function notice(text) { $('notice').textContent = text || ''; }

let beforeMetadata = null;

async function takePicture() {
  let args;
  try { args = JSON.parse($('args').value); } catch (e) { return notice('arguments: ' + e.message); }
  notice('');
  beforeMetadata = null;
  $('meta-before').textContent = '–';
  $('meta-after').textContent = '–';
  $('result').replaceChildren();
  $('outcome').textContent = 'waiting…';
  $('outcome').className = '';
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
  try { showOutcome('resolved', await velqor.call('cleanup', [])); }
  catch (failure) { failure instanceof Error ? notice(failure.message) : showOutcome('rejected', failure); }
}

function showOutcome(kind, value) {
  $('outcome').textContent = kind;
  $('outcome').className = kind;
  $('answer').textContent = JSON.stringify(value, null, 2).slice(0, 4000);
}

// The answer's media address: the payload itself, or the first address among its values.
function mediaUrlOf(payload) {
  if (typeof payload === 'string') return payload;
  if (payload && typeof payload === 'object') return Object.values(payload).find((v) => typeof v === 'string') || null;
  return null;
}

async function showMedia(payload) {
  const url = mediaUrlOf(payload);
  if (!url) return;
  const isVideo = /^data:video\//.test(url) || /\.(mp4|mov|m4v)$/i.test(url);
  if (!/^(data:|https?:)/.test(url)) {
    $('result').textContent = 'The answer is a reference the page cannot load: ' + url;
    return;
  }
  const el = document.createElement(isVideo ? 'video' : 'img');
  el.id = 'result-media';
  if (isVideo) el.controls = true;
  el.src = url;
  $('result').replaceChildren(el);
  if (!isVideo) {
    const blob = await (await fetch(url)).blob();
    $('meta-after').textContent = JSON.stringify(await (await fetch('/api/metadata', {method: 'POST', body: blob})).json(), null, 2);
  }
  if (beforeMetadata) $('meta-before').textContent = JSON.stringify(beforeMetadata, null, 2);
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
  try { showDevice(await api('/api/device', body)); notice('device settings applied'); }
  catch (e) { notice(e.message); }
}

async function sendFix() {
  const body = {latitude: optionalNumber('loc-lat'), longitude: optionalNumber('loc-lon'), altitude: optionalNumber('loc-alt')};
  try { const r = await api('/api/location', body); notice(`fix delivered to ${r.waitingManagers} location manager(s)`); }
  catch (e) { notice(e.message); }
}

// ---- screen ----------------------------------------------------------------

let shownScreen = '';

function drawScreen(screen) {
  const top = screen[screen.length - 1];
  const key = JSON.stringify(top || null);
  if (key === shownScreen) return;
  shownScreen = key;
  $('screen-idle').hidden = !!top;
  $('picker').hidden = !(top && top.event === 'pickerPresented');
  $('alert').hidden = !(top && top.event === 'alertShown');
  if (!top) return;
  if (top.event === 'pickerPresented') {
    const camera = top.source === 1;
    $('picker-title').textContent = camera ? 'Camera' : 'Photo library';
    $('picker-config').textContent =
      `media ${top.mediaTypes.join(', ')}; ${top.allowsEditing ? 'editing allowed' : 'no editing'}; ` +
      `camera ${top.cameraDevice === 1 ? 'front' : 'rear'}`;
    $('picker-capture').hidden = !camera;
    $('picker-library').hidden = camera;
    $('picker-kind').value = top.captureMode === 1 ? 'video' : 'photo';
    if (!camera) drawLibrary();
  } else {
    $('alert-title').textContent = top.title;
    $('alert-message').textContent = top.message;
    $('alert-buttons').replaceChildren(...top.buttons.map((title) => {
      const b = document.createElement('button');
      b.type = 'button';
      b.className = 'alert-button';
      b.textContent = title;
      b.addEventListener('click', () => api('/api/alert', {button: title}).catch((e) => notice(e.message)));
      return b;
    }));
  }
}

async function drawLibrary() {
  try {
    const assets = await api('/api/library');
    $('library-grid').replaceChildren(...assets.map((a) => {
      const b = document.createElement('button');
      b.type = 'button';
      b.title = a.localIdentifier;
      if (a.video) b.textContent = 'movie';
      else { const img = document.createElement('img'); img.src = '/files' + a.file; img.alt = a.localIdentifier; b.append(img); }
      b.addEventListener('click', () => api('/api/picker/pick', {asset: a.localIdentifier}).catch((e) => notice(e.message)));
      return b;
    }));
    if (!assets.length) $('library-grid').textContent = 'The library is empty: save a photo to the album first.';
  } catch (e) { notice(e.message); }
}

async function usePickerFile() {
  const file = $('picker-file').files[0];
  if (!file) return notice('choose a file first');
  const form = new FormData();
  form.append('file', file, file.name);
  form.append('kind', $('picker-kind').value);
  if ($('picker-crop').value.trim()) form.append('edit', $('picker-crop').value.trim());
  try {
    const r = await api('/api/picker/file', form);
    beforeMetadata = r.before;
    $('meta-before').textContent = JSON.stringify(r.before, null, 2);
    notice('');
  } catch (e) { notice(e.message); }
}

// ---- polling ---------------------------------------------------------------

let answersSeen = 0;
let eventsSeen = 0;

async function poll() {
  try {
    const s = await api(`/api/state?answers=${answersSeen}&events=${eventsSeen}`);
    $('connection').textContent = 'connected';
    answersSeen = s.answerCount;
    eventsSeen = s.eventCount;
    for (const e of s.events) {
      const li = document.createElement('li');
      li.textContent = JSON.stringify(e);
      $('events').append(li);
    }
    for (const a of s.answers) velqor.settle(a);
    drawScreen(s.screen);
    $('loc-state').textContent = s.locationStarted ? 'location updates started' : '';
    if (!poll.deviceShown) { showDevice(s.device); poll.deviceShown = true; }
  } catch (e) {
    $('connection').textContent = 'disconnected: ' + e.message;
  }
  setTimeout(poll, 200);
}

document.addEventListener('DOMContentLoaded', () => {
  fillSelect('dev-camera-access', ACCESS.slice(0, 4));
  fillSelect('dev-library-access', ACCESS);
  fillSelect('dev-library-answer', ACCESS);
  showArgs();
  $('options').addEventListener('input', showArgs);
  $('options').addEventListener('change', showArgs);
  $('call-take').addEventListener('click', takePicture);
  $('call-cleanup').addEventListener('click', cleanup);
  $('apply-device').addEventListener('click', applyDevice);
  $('loc-send').addEventListener('click', sendFix);
  $('picker-use').addEventListener('click', usePickerFile);
  $('picker-cancel').addEventListener('click', () => api('/api/picker/cancel', {}).catch((e) => notice(e.message)));
  poll();
});
