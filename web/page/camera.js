'use strict';
// The browser's own camera standing in for the phone's: a live view while the
// camera picker is on the screen, a still frame encoded as JPEG (with its
// capture time in EXIF) for a photo, and a MediaRecorder movie for a video.
// Only one stream is open at a time; closing the picker closes it.

const velqorCamera = (() => {
  // The plug-in hands the picker's movie to an MPEG-4 export, so the recording
  // must be MPEG-4 too; the first kind this browser can record wins.
  const RECORDING_TYPES = ['video/mp4;codecs=avc1,mp4a', 'video/mp4;codecs=vp9,opus', 'video/mp4;codecs=avc1',
                           'video/mp4'];
  let stream = null;
  let recorder = null;
  let chunks = [];
  let opening = 0;  // the latest open() call; an older one that resolves late closes its stream

  function recordingType() {
    if (typeof MediaRecorder === 'undefined') return null;
    return RECORDING_TYPES.find((t) => MediaRecorder.isTypeSupported(t)) || null;
  }

  function close() {
    ++opening;
    if (recorder && recorder.state !== 'inactive') recorder.stop();
    recorder = null;
    chunks = [];
    if (stream) for (const track of stream.getTracks()) track.stop();
    stream = null;
  }

  // Opens the front or rear camera (and the microphone for a video, when the
  // user allows it); resolves with the stream, or null when a later call or a
  // close() took over meanwhile.
  async function open({front, video}) {
    close();
    const mine = opening;
    if (!navigator.mediaDevices || !navigator.mediaDevices.getUserMedia)
      throw new Error('this browser offers no camera to the page (it needs http://localhost or https)');
    const constraints = {video: {facingMode: {ideal: front ? 'user' : 'environment'}}, audio: !!video};
    let opened;
    try {
      opened = await navigator.mediaDevices.getUserMedia(constraints);
    } catch (e) {
      if (!video) throw e;
      opened = await navigator.mediaDevices.getUserMedia({...constraints, audio: false});  // a silent movie then
    }
    if (mine !== opening) {
      for (const track of opened.getTracks()) track.stop();
      return null;
    }
    stream = opened;
    return stream;
  }

  // The frame the view shows now, as a JPEG with the moment it was taken.
  async function takePhoto(view) {
    if (!stream || !view.videoWidth) throw new Error('the camera is not showing a picture yet');
    const takenAt = new Date();
    const canvas = document.createElement('canvas');
    canvas.width = view.videoWidth;
    canvas.height = view.videoHeight;
    canvas.getContext('2d').drawImage(view, 0, 0);
    const jpeg = await new Promise((resolve, reject) =>
      canvas.toBlob((b) => (b ? resolve(b) : reject(new Error('the browser could not encode the frame'))), 'image/jpeg', 0.92));
    return {blob: await window.velqorExif.withCaptureTime(jpeg, takenAt), takenAt, width: canvas.width, height: canvas.height};
  }

  function startRecording() {
    const type = recordingType();
    if (!stream) throw new Error('the camera is not open');
    if (!type) throw new Error('this browser cannot record an MPEG-4 movie; choose a movie file instead');
    chunks = [];
    recorder = new MediaRecorder(stream, {mimeType: type});
    recorder.ondataavailable = (e) => { if (e.data.size) chunks.push(e.data); };
    recorder.start(250);
    return type;
  }

  // Ends the recording; resolves with the movie.
  function stopRecording() {
    const active = recorder;
    if (!active || active.state === 'inactive') return Promise.reject(new Error('nothing is being recorded'));
    return new Promise((resolve, reject) => {
      active.onstop = () => {
        const movie = new Blob(chunks, {type: active.mimeType.split(';')[0]});
        chunks = [];
        recorder = null;
        movie.size ? resolve(movie) : reject(new Error('the recording is empty'));
      };
      active.stop();
    });
  }

  return {open, close, takePhoto, startRecording, stopRecording, recordingType,
          get recording() { return !!recorder && recorder.state === 'recording'; }};
})();
window.velqorCamera = velqorCamera;
