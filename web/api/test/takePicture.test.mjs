// The page API as an app sees it: the argument list the host receives for
// each option, and what the promise gives for each kind of answer.
import {test, describe, beforeEach} from 'node:test';
import assert from 'node:assert/strict';
import {takePicture, takePictureArguments, cleanup, setExec, CameraError, DestinationType, SourceType,
        EncodingType, MediaType, CameraDirection} from '../velqor-camera.js';

const DEFAULTS = [null, null, null, null, null, null, null, null, null, null, null, null, null];
const withAt = (pairs) => { const a = [...DEFAULTS]; for (const [i, v] of pairs) a[i] = v; return a; };

// A host that records every call and answers as told.
function fakeHost(answer) {
  const calls = [];
  setExec((service, action, args) => { calls.push({service, action, args}); return answer(); });
  return calls;
}

describe('each option lands at its index', () => {
  const cases = [
    [{quality: 80}, [[0, 80]]],
    [{destinationType: DestinationType.DATA_URL}, [[1, 0]]],
    [{destinationType: DestinationType.NATIVE_URI}, [[1, 2]]],
    [{sourceType: SourceType.SAVEDPHOTOALBUM}, [[2, 2]]],
    [{targetWidth: 640.5, targetHeight: 480}, [[3, 640.5], [4, 480]]],
    [{encodingType: EncodingType.PNG}, [[5, 1]]],
    [{mediaType: MediaType.ALLMEDIA}, [[6, 2]]],
    [{allowsEditing: true}, [[7, true]]],
    [{correctOrientation: true}, [[8, true]]],
    [{saveToPhotoAlbum: false}, [[9, false]]],
    [{cameraDirection: CameraDirection.FRONT}, [[11, true]]],
    [{cameraDirection: CameraDirection.BACK}, [[11, false]]],
    [{cameraDirection: true}, [[11, true]]],
    [{usesGeolocation: true}, [[12, true]]],
    [{quality: 150, destinationType: 5}, [[0, 150], [1, 5]]],  // out of range: the plug-in decides
  ];
  for (const [options, expected] of cases)
    test(JSON.stringify(options), () => assert.deepEqual(takePictureArguments(options), withAt(expected)));

  test('every option at once, index 10 left null', () => {
    assert.deepEqual(takePictureArguments({
      quality: 10, destinationType: 1, sourceType: 0, targetWidth: 3, targetHeight: 4, encodingType: 1,
      mediaType: 1, allowsEditing: true, correctOrientation: true, saveToPhotoAlbum: true,
      cameraDirection: 1, usesGeolocation: true}),
    [10, 1, 0, 3, 4, 1, 1, true, true, true, null, true, true]);
  });
});

describe('unset options are sent as null so the plug-in takes its defaults', () => {
  for (const options of [undefined, {}, {quality: null, targetWidth: undefined, targetHeight: null}])
    test(String(JSON.stringify(options)), () => assert.deepEqual(takePictureArguments(options), DEFAULTS));
});

describe('mistakes throw a TypeError naming the option', () => {
  const cases = [
    [{qualty: 50}, /unknown option "qualty"/],
    [{quality: '80'}, /quality must be an integer, not string "80"/],
    [{quality: 7.5}, /quality must be an integer/],
    [{destinationType: NaN}, /destinationType must be an integer, not NaN/],
    [{sourceType: true}, /sourceType must be an integer/],
    [{targetWidth: '640', targetHeight: 480}, /targetWidth must be a number/],
    [{targetWidth: 640, targetHeight: Infinity}, /targetHeight must be a number, not Infinity/],
    [{targetWidth: 640}, /targetWidth and targetHeight go together/],
    [{targetHeight: 480}, /targetWidth and targetHeight go together/],
    [{allowsEditing: 1}, /allowsEditing must be a boolean, not number 1/],
    [{usesGeolocation: 'yes'}, /usesGeolocation must be a boolean/],
    [{cameraDirection: 2}, /cameraDirection must be CameraDirection/],
    [[50, 1], /options must be an object/],
    [null, /options must be an object/],
  ];
  for (const [options, message] of cases)
    test(JSON.stringify(options), async () => {
      const calls = fakeHost(() => Promise.resolve({}));
      await assert.rejects(takePicture(options), (e) => e instanceof TypeError && message.test(e.message));
      assert.equal(calls.length, 0, 'nothing reaches the host');
    });
});

describe('answers', () => {
  beforeEach(() => setExec(null));

  test('a success resolves with the payload, sent as Camera.takePicture', async () => {
    const calls = fakeHost(() => Promise.resolve({callbackURI: 'http://h/files/velqor_photo_1.jpg'}));
    assert.deepEqual(await takePicture({quality: 90}), {callbackURI: 'http://h/files/velqor_photo_1.jpg'});
    assert.deepEqual(calls, [{service: 'Camera', action: 'takePicture', args: withAt([[0, 90]])}]);
  });

  const refusals = [
    ['NO_PERMISSION', {errorMsg: 'no image selected'}, 'no image selected'],
    ['NO_PERMISSION', 'Not have permission to use the camera.', 'Not have permission to use the camera.'],
    ['UNABLE_FILE_WRITE', {}, 'UNABLE_FILE_WRITE'],
  ];
  for (const [status, payload, message] of refusals)
    test(`a refusal ${status} ${JSON.stringify(payload)} rejects with status and message`, async () => {
      fakeHost(() => Promise.reject({status, payload}));
      await assert.rejects(takePicture(), (e) =>
        e instanceof CameraError && e instanceof Error && e.status === status && e.message === message &&
        e.payload === payload);
    });

  test('a host that cannot be reached rejects with its own error', async () => {
    const broken = new Error('HTTP 503');
    fakeHost(() => Promise.reject(broken));
    await assert.rejects(takePicture(), (e) => e === broken);
  });

  test('an exec that throws rejects instead of throwing', async () => {
    setExec(() => { throw new Error('gone'); });
    await assert.rejects(takePicture(), /gone/);
  });

  test('without a host, the promise says how to load one', async () => {
    await assert.rejects(takePicture(), /load \/velqor\/host\.js/);
  });

  test('cleanup sends Camera.cleanup with no arguments', async () => {
    const calls = fakeHost(() => Promise.resolve(undefined));
    await cleanup();
    assert.deepEqual(calls, [{service: 'Camera', action: 'cleanup', args: []}]);
  });

  test("the page's window.velqor.exec is used when none was set", async () => {
    globalThis.velqor = {exec: (s, a) => Promise.resolve({callbackURI: `${s}.${a}`})};
    try {
      assert.deepEqual(await takePicture(), {callbackURI: 'Camera.takePicture'});
    } finally { delete globalThis.velqor; }
  });
});

test('the enumerations are frozen and hold the plug-in values', () => {
  for (const e of [DestinationType, SourceType, EncodingType, MediaType, CameraDirection]) assert.ok(Object.isFrozen(e));
  assert.deepEqual([DestinationType, SourceType, EncodingType, MediaType, CameraDirection].map((e) => Object.values(e)),
                   [[0, 1, 2], [0, 1, 2], [0, 1], [0, 1, 2], [0, 1]]);
  assert.throws(() => { 'use strict'; DestinationType.FILE_URI = 5; }, TypeError);
});
