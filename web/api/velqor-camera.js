// VelqorCamera's page API: what an app page imports to take a picture or a
// movie, or to pick one from the photo library.
//
//   import {takePicture, DestinationType} from '/velqor/velqor-camera.js';
//   const {callbackURI} = await takePicture({destinationType: DestinationType.FILE_URI});
//
// The module talks to its host through one function, exec(service, action, args),
// which resolves with the answer's payload or rejects with {status, payload}.
// The web host's bridge installs it as window.velqor.exec; any other host (or a
// test) hands its own to setExec().

export const DestinationType = Object.freeze({DATA_URL: 0, FILE_URI: 1, NATIVE_URI: 2});
export const SourceType = Object.freeze({PHOTOLIBRARY: 0, CAMERA: 1, SAVEDPHOTOALBUM: 2});
export const EncodingType = Object.freeze({JPEG: 0, PNG: 1});
export const MediaType = Object.freeze({PICTURE: 0, VIDEO: 1, ALLMEDIA: 2});
export const CameraDirection = Object.freeze({BACK: 0, FRONT: 1});

const SERVICE = 'Camera';

// The options in the order of the plug-in's argument list. Index 10 is not
// read by the plug-in and is sent as null. `kind` says what a value must be:
// 'integer', 'number' or 'boolean'; 'direction' takes a CameraDirection value
// or a Boolean (true: front) and is sent as the Boolean the plug-in reads.
const OPTIONS = [
  ['quality', 'integer'],
  ['destinationType', 'integer'],
  ['sourceType', 'integer'],
  ['targetWidth', 'number'],
  ['targetHeight', 'number'],
  ['encodingType', 'integer'],
  ['mediaType', 'integer'],
  ['allowsEditing', 'boolean'],
  ['correctOrientation', 'boolean'],
  ['saveToPhotoAlbum', 'boolean'],
  [null, 'unread'],
  ['cameraDirection', 'direction'],
  ['usesGeolocation', 'boolean'],
];
const KNOWN = new Set(OPTIONS.map(([name]) => name).filter(Boolean));

// A refusal or failure of the plug-in: `status` is the host's status name
// (NO_PERMISSION, INVALID_PARAM, ...), `payload` what the plug-in answered.
export class CameraError extends Error {
  constructor(status, payload) {
    super(messageOf(status, payload));
    this.name = 'CameraError';
    this.status = status;
    this.payload = payload;
  }
}

function messageOf(status, payload) {
  if (typeof payload === 'string') return payload;
  if (payload && typeof payload === 'object' && typeof payload.errorMsg === 'string') return payload.errorMsg;
  return String(status);
}

let exec = null;

// Sets the host's exec(service, action, args). Passing null goes back to
// window.velqor.exec.
export function setExec(fn) {
  if (fn !== null && typeof fn !== 'function') throw new TypeError('setExec needs a function or null');
  exec = fn;
}

function hostExec() {
  if (exec) return exec;
  const w = typeof window === 'undefined' ? globalThis : window;
  if (w.velqor && typeof w.velqor.exec === 'function') return w.velqor.exec;
  throw new Error('no VelqorCamera host on this page: load /velqor/host.js or call setExec()');
}

function describe(value) {
  if (value === null) return 'null';
  return typeof value === 'number' && !Number.isFinite(value) ? String(value) : `${typeof value} ${JSON.stringify(value)}`;
}

function checked(name, kind, value) {
  const ok = kind === 'integer' ? Number.isInteger(value)
           : kind === 'number' ? typeof value === 'number' && Number.isFinite(value)
           : kind === 'boolean' ? typeof value === 'boolean'
           : typeof value === 'boolean' || value === CameraDirection.BACK || value === CameraDirection.FRONT;
  if (!ok) {
    const wanted = kind === 'direction' ? 'CameraDirection.BACK or .FRONT' : kind === 'integer' ? 'an integer' : `a ${kind}`;
    throw new TypeError(`takePicture: ${name} must be ${wanted}, not ${describe(value)}`);
  }
  return kind === 'direction' ? value === true || value === CameraDirection.FRONT : value;
}

// The plug-in's positional argument list for `options`. An option left out (or
// set to null/undefined) is sent as null, so the plug-in takes its default.
// A misspelt option or a value of the wrong type throws a TypeError rather
// than being quietly replaced by the default, and so does a targetWidth
// without a targetHeight (or the reverse), which the plug-in would ignore.
export function takePictureArguments(options = {}) {
  if (options === null || typeof options !== 'object' || Array.isArray(options))
    throw new TypeError('takePicture: options must be an object');
  for (const name of Object.keys(options))
    if (!KNOWN.has(name)) throw new TypeError(`takePicture: unknown option "${name}"`);
  const given = (name) => options[name] !== undefined && options[name] !== null;
  if (given('targetWidth') !== given('targetHeight'))
    throw new TypeError('takePicture: targetWidth and targetHeight go together');
  return OPTIONS.map(([name, kind]) => (name && given(name) ? checked(name, kind, options[name]) : null));
}

function call(action, args) {
  let pending;
  try {
    pending = hostExec()(SERVICE, action, args);
  } catch (e) {
    return Promise.reject(e);
  }
  return Promise.resolve(pending).catch((failure) => {
    if (failure instanceof Error) throw failure;  // the host could not be reached
    throw new CameraError(failure && failure.status, failure && failure.payload);
  });
}

// Takes a picture or a movie, or picks one, as `options` ask. Resolves with
// the plug-in's payload ({callbackURI: ...}); rejects with a CameraError
// (status and message) when the plug-in refuses, or a TypeError for options
// it cannot send. A command the user leaves open (say, after going to the
// settings page) never settles.
export function takePicture(options = {}) {
  let args;
  try {
    args = takePictureArguments(options);
  } catch (e) {
    return Promise.reject(e);
  }
  return call('takePicture', args);
}

// Removes the temporary files of earlier captures.
export function cleanup() {
  return call('cleanup', []);
}
