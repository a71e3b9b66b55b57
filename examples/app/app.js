// Field Notes: a small app page using VelqorCamera's page API.
import {takePicture, cleanup, DestinationType, SourceType, EncodingType, MediaType} from '/velqor/velqor-camera.js';

const $ = (id) => document.getElementById(id);

function showStatus(state, title, code = '', message = '') {
  $('status').dataset.state = state;
  $('status-title').textContent = title;
  $('status-code').textContent = code;
  $('status-message').textContent = message;
}

function hideResults() {
  $('photo-card').hidden = true;
  $('movie-card').hidden = true;
  $('location').hidden = true;
}

// Runs one camera request: while its promise is unsettled the status says the
// command is still open; a refusal shows its status and message.
async function run(label, request, show) {
  hideResults();
  showStatus('open', 'Still open', '', `${label}: waiting for the camera…`);
  try {
    const result = await request();
    await show(result);
    showStatus('ok', 'Done', '', label);
  } catch (e) {
    showStatus('refused', 'Refused', e.status || e.name, e.message);
  }
}

function showPhoto(src, caption) {
  const img = $('photo');
  return new Promise((resolve, reject) => {
    img.onload = () => {
      $('photo-caption').textContent = `${img.naturalWidth} × ${img.naturalHeight}${caption ? ' · ' + caption : ''}`;
      $('photo-card').hidden = false;
      resolve();
    };
    img.onerror = () => reject(new Error('the photo could not be shown'));
    img.src = src;
  });
}

function showMovie(src) {
  const video = $('movie');
  return new Promise((resolve, reject) => {
    video.onloadedmetadata = () => {
      $('movie-duration').textContent = `${video.duration.toFixed(1)} s`;
      $('movie-duration').dataset.seconds = String(video.duration);
      $('movie-card').hidden = false;
      resolve();
    };
    video.onerror = () => reject(new Error('the clip could not be played'));
    video.src = src;
  });
}

// Reads the location back out of the photo's EXIF block.
async function showLocation(src) {
  const bytes = await (await fetch(src)).arrayBuffer();
  const gps = window.velqorExif.readGps(bytes);
  if (!gps) throw new Error('the photo holds no location');
  $('gps-latitude').textContent = gps.latitude.toFixed(6);
  $('gps-longitude').textContent = gps.longitude.toFixed(6);
  $('gps-altitude').textContent = gps.altitude === null ? '–' : `${gps.altitude.toFixed(1)} m`;
  $('location').hidden = false;
}

const actions = {
  'photo-file': () => run('Photo', () => takePicture({
    destinationType: DestinationType.FILE_URI, encodingType: EncodingType.JPEG, correctOrientation: true,
    quality: 85, saveToPhotoAlbum: true}), ({callbackURI}) => showPhoto(callbackURI, 'file')),
  'photo-data': () => run('Photo as data URL', () => takePicture({
    destinationType: DestinationType.DATA_URL, targetWidth: 800, targetHeight: 800, correctOrientation: true}),
  ({callbackURI}) => showPhoto(callbackURI, `data URL, ${Math.round(callbackURI.length / 1024)} KiB`)),
  'pick-library': () => run('Library', () => takePicture({
    sourceType: SourceType.PHOTOLIBRARY, destinationType: DestinationType.FILE_URI, allowsEditing: true}),
  ({callbackURI}) => showPhoto(callbackURI, 'from the library')),
  'record-video': () => run('Clip', () => takePicture({
    mediaType: MediaType.VIDEO, destinationType: DestinationType.FILE_URI}), ({callbackURI}) => showMovie(callbackURI)),
  'photo-location': () => run('Photo with location', () => takePicture({
    destinationType: DestinationType.FILE_URI, usesGeolocation: true, correctOrientation: true}),
  async ({callbackURI}) => { await showPhoto(callbackURI, 'with location'); await showLocation(callbackURI); }),
  'cleanup': () => run('Temporary files cleared', () => cleanup(), () => {}),
};

for (const [id, action] of Object.entries(actions)) $(id).addEventListener('click', action);
