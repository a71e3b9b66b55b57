'use strict';
// The device's screen in the page: the picker (the browser's camera, a chosen
// or dropped file, the library grid, a crop) and the alerts, each acting as
// the user through the bridge. Shares the helpers of app.js ($, api, notice).

// ---- screen ----------------------------------------------------------------

let shownScreen = '';
let picker = null;  // the picker on the screen, as the device describes it

// The screen's top, as a presented-screen entry, whichever shape the host sends.
function topOf(screen) {
  if (Array.isArray(screen)) return screen[screen.length - 1];
  if (!screen) return null;
  if (screen.alert) return {event: 'alertShown', ...screen.alert,
                            buttons: screen.alert.buttons.map((b) => (typeof b === 'string' ? b : b.title))};
  if (screen.picker) return {event: 'pickerPresented', ...screen.picker, source: screen.picker.sourceType ?? screen.picker.source};
  return null;
}

function drawScreen(screen) {
  const top = topOf(screen);
  const key = JSON.stringify(top || null);
  if (key === shownScreen) return;
  shownScreen = key;
  picker = top && top.event === 'pickerPresented' ? top : null;
  $('screen-idle').hidden = !!top;
  $('picker').hidden = !picker;
  $('alert').hidden = !(top && top.event === 'alertShown');
  if (!picker) velqorCamera.close();
  if (!top) return;
  if (picker) drawPicker(picker);
  else drawAlert(top);
}

function drawPicker(p) {
  const camera = p.source === 1;
  const video = p.captureMode === 1;
  const front = p.cameraDevice === 1;
  $('picker-title').textContent = camera ? `Camera (${front ? 'front' : 'rear'}, ${video ? 'video' : 'photo'})` : 'Photo library';
  $('picker-config').textContent =
    `media ${p.mediaTypes.join(', ')}; ${p.allowsEditing ? 'editing allowed' : 'no editing'}`;
  $('picker-crop-row').hidden = !p.allowsEditing;
  $('picker-crop').value = '';
  $('picker-capture').hidden = !camera;
  $('picker-library').hidden = camera;
  $('picker-kind').value = video ? 'video' : 'photo';
  if (camera) openCamera(front, video);
  else drawLibrary();
}

function drawAlert(a) {
  $('alert-title').textContent = a.title;
  $('alert-message').textContent = a.message;
  $('alert-buttons').replaceChildren(...a.buttons.map((title) => {
    const b = actionButton(title, () => api('/api/alert', {button: title}).catch((e) => notice(e.message)));
    b.className = 'alert-button';
    return b;
  }));
}

async function openCamera(front, video) {
  for (const id of ['camera-shoot', 'camera-record', 'camera-stop']) $(id).hidden = true;
  $('camera-state').textContent = `Opening the ${front ? 'front' : 'rear'} camera…`;
  try {
    const stream = await velqorCamera.open({front, video});
    if (!stream) return;
    $('camera-view').srcObject = stream;
    $('camera-view').classList.toggle('mirror', front);  // a front camera previews as a mirror; photos stay unmirrored
    const label = stream.getVideoTracks()[0]?.label || 'camera';
    if (video && !velqorCamera.recordingType()) {
      $('camera-state').textContent = `${label}: this browser cannot record an MPEG-4 movie; choose a movie file below.`;
      return;
    }
    $('camera-state').textContent = `${label} is on.`;
    $(video ? 'camera-record' : 'camera-shoot').hidden = false;
  } catch (e) {
    $('camera-view').srcObject = null;
    $('camera-state').textContent = `No camera in this browser (${e.message || e.name}); choose or drop a file below.`;
  }
}

function crop() { return $('picker-crop-row').hidden ? '' : $('picker-crop').value.trim(); }

// Hands the picker the user's photo or movie, as the phone's camera would.
async function finishWith(blob, name, kind) {
  const form = new FormData();
  form.append('file', blob, name);
  form.append('kind', kind);
  if (crop()) form.append('edit', crop());
  try {
    const r = await api('/api/picker/file', form);
    showBefore(r.before, kind === 'video' ? '(a movie: no image metadata)' : '(no metadata)');
    notice(`the picker took the ${kind} (${blob.size.toLocaleString()} bytes)`, 'info');
  } catch (e) { notice(e.message); }
}

async function shoot() {
  try {
    const photo = await velqorCamera.takePhoto($('camera-view'));
    await finishWith(photo.blob, 'camera.jpg', 'photo');
  } catch (e) { notice(e.message); }
}

function record() {
  try {
    const type = velqorCamera.startRecording();
    $('camera-record').hidden = true;
    $('camera-stop').hidden = false;
    $('camera-state').textContent = `Recording (${type})…`;
  } catch (e) { notice(e.message); }
}

async function stopRecording() {
  $('camera-stop').hidden = true;
  try {
    const movie = await velqorCamera.stopRecording();
    await finishWith(movie, 'camera.mp4', 'video');
  } catch (e) { notice(e.message); }
}

async function drawLibrary() {
  try {
    const assets = await api('/api/library');
    $('library-grid').replaceChildren(...assets.map((a) => {
      const b = actionButton('', () => pickAsset(a));
      b.title = a.localIdentifier;
      b.dataset.asset = a.localIdentifier;
      if (a.video) b.textContent = 'movie';
      else { const img = document.createElement('img'); img.src = '/files' + a.file; img.alt = a.localIdentifier; b.append(img); }
      return b;
    }));
    if (!assets.length) $('library-grid').textContent = 'The library is empty: save a photo to the album first.';
  } catch (e) { notice(e.message); }
}

async function pickAsset(a) {
  try {
    const r = await api('/api/picker/pick', crop() ? {asset: a.localIdentifier, edit: crop()} : {asset: a.localIdentifier});
    showBefore(r.before, a.video ? '(a movie: no image metadata)' : '(no metadata)');
    notice(`picked ${a.localIdentifier}${crop() ? ', cropped to ' + crop() : ''}`, 'info');
  } catch (e) { notice(e.message); }
}

async function useChosenFile(file) {
  if (!file) return notice('choose a file first');
  const kind = file.type.startsWith('video/') ? 'video' : file.type.startsWith('image/') ? 'photo' : $('picker-kind').value;
  $('picker-kind').value = kind;
  await finishWith(file, file.name, kind);
}

async function cancelPicker() {
  try { await api('/api/picker/cancel', {}); notice('picker cancelled', 'info'); } catch (e) { notice(e.message); }
}

function acceptDrops(zone) {
  zone.addEventListener('dragover', (e) => { e.preventDefault(); zone.classList.add('over'); });
  zone.addEventListener('dragleave', () => zone.classList.remove('over'));
  zone.addEventListener('drop', (e) => {
    e.preventDefault();
    zone.classList.remove('over');
    useChosenFile(e.dataTransfer.files[0]);
  });
}
