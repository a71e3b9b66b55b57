// Scripts the simulated phone of one host. Settings (access states, answers
// to permission questions, sources, languages) change at once. Choices a user
// makes on a screen (the picker, an alert, the location fix) are queued and
// carried out when the phone shows that screen: each kind keeps its own
// first-in first-out queue, and one action runs at a time.
//
// Every method returns a promise that settles when the action was carried
// out (or refused by the host). A test need not await queued actions: a
// refusal is also reported by the next `answers.next()`.
import {existsSync, readFileSync} from 'node:fs';
import {basename} from 'node:path';
import {postForm, postJson} from './http.js';
import {screenOf} from './screen.js';

const kTriggers = {
  picker: (s) => Boolean(screenOf(s).picker),
  alert: (s) => Boolean(screenOf(s).alert),
  location: (s) => (s.open ?? []).some((o) => o.action === 'deliverFix') || s.locationStarted > 0 ||
                   s.device?.locationStarted > 0,
};

function fileChoice(file) {
  if (typeof file !== 'string' || !existsSync(file)) throw new Error(`no such file: ${file}`);
  return file;
}

export class Device {
  constructor(origin, state, failures, files) {
    this.origin_ = origin;
    this.files_ = files;
    this.state_ = state;
    this.failures_ = failures;
    this.queues_ = {picker: [], alert: [], location: []};
    this.busy_ = false;
    this.crop_ = null;
  }

  // ---- choices, carried out when their screen shows ----------------------
  nextPhoto(file) {
    const path = fileChoice(file);
    return this.enqueue_('picker', `a picker for the photo ${path}`, () => this.upload_('photo', path));
  }

  nextVideo(file) {
    const path = fileChoice(file);
    return this.enqueue_('picker', `a picker for the video ${path}`, () => this.upload_('video', path));
  }

  // An asset of the library (its localIdentifier, or an asset from
  // `files.library()`), or a file: imported into the library when the picker
  // shows, then picked.
  pickFromLibrary(assetOrFile) {
    const id = typeof assetOrFile === 'object' && assetOrFile ? assetOrFile.localIdentifier : assetOrFile;
    if (typeof id !== 'string' || !id) throw new Error('pickFromLibrary needs an asset, its localIdentifier or a file');
    if (existsSync(id)) {
      return this.enqueue_('picker', `a picker for the library file ${id}`, async () => {
        const asset = await this.files_.addToLibrary(id);
        return postJson(this.origin_, '/api/picker/pick', {asset: asset.localIdentifier, ...this.takeEdit_()});
      });
    }
    return this.enqueue_('picker', `a picker for the asset ${id}`, () =>
      postJson(this.origin_, '/api/picker/pick', {asset: id, ...this.takeEdit_()}));
  }

  cancelPicker() {
    return this.enqueue_('picker', 'a picker to cancel', () => postJson(this.origin_, '/api/picker/cancel', {}));
  }

  // The rectangle the user crops to, in upright pixels, for the next choice.
  crop({x, y, width, height}) {
    if (![x, y, width, height].every(Number.isFinite) || width <= 0 || height <= 0 || x < 0 || y < 0)
      throw new Error('crop needs numbers x, y >= 0 and width, height > 0');
    this.crop_ = [x, y, width, height].join(',');
    return Promise.resolve();
  }

  // 'settings', 'cancel' or a button's title.
  tapAlert(button) {
    if (typeof button !== 'string' || !button) throw new Error('tapAlert needs a button');
    return this.enqueue_('alert', `an alert to tap "${button}"`, () => postJson(this.origin_, '/api/alert', {button}));
  }

  // A location fix, delivered once the plug-in asks for the location.
  deliverFix({latitude, longitude, altitude, timestamp}) {
    const fix = {latitude, longitude};
    if (altitude !== undefined) fix.altitude = altitude;
    if (timestamp !== undefined) fix.timestamp = timestamp instanceof Date ? timestamp.toISOString() : timestamp;
    return this.enqueue_('location', 'the plug-in to ask for the location', () => postJson(this.origin_, '/api/location', fix));
  }

  // ---- settings, changed at once ------------------------------------------
  cameraAccess(state) { return this.set_({cameraAccess: state}); }
  libraryAccess(state) { return this.set_({libraryAccess: state}); }

  // What the user answers when asked: {camera: 'granted'|'denied'|true|false, library: access state}.
  answerWhenAsked({camera, library} = {}) {
    const change = {};
    if (camera !== undefined) change.cameraAnswer = camera === true ? 'granted' : camera === false ? 'denied' : camera;
    if (library !== undefined) change.libraryAnswer = library;
    return this.set_(change);
  }

  noCamera() {
    const sources = (this.state_.summary.device?.sources ?? []).filter((s) => s !== 'camera');
    return this.set_({sources});
  }

  noViewController() { return this.set_({hasViewController: false}, 'noViewController: true'); }
  languages(list) { return this.set_({languages: list}, `languages: ${JSON.stringify(list)}`); }

  // What the phone shows now: {alert: {title, message, buttons}, picker: {...set-up}, settingsOpened}.
  async screen() {
    await this.state_.refresh();
    return screenOf(this.state_.summary);
  }

  // Resolves with the screen once it shows `what` ('alert', 'picker' or
  // 'settingsOpened'); rejects after `timeout` ms.
  async whenShown(what, {timeout = 10_000} = {}) {
    if (!['alert', 'picker', 'settingsOpened'].includes(what)) throw new Error(`whenShown: alert, picker or settingsOpened, not ${what}`);
    return this.state_.until((s) => { const screen = screenOf(s); return screen[what] ? screen : null; },
                             {timeout, what: `the phone to show ${what === 'settingsOpened' ? 'the settings page' : `a ${what}`}`});
  }

  // The device settings as the host reports them.
  async settings() {
    await this.state_.refresh();
    return this.state_.summary.device;
  }

  // ---- internals -----------------------------------------------------------
  async set_(change, startOption) {
    try {
      const settings = await postJson(this.origin_, '/api/device', change);
      await this.state_.refresh();
      return settings;
    } catch (e) {
      if (startOption && e.status === 400 && /unknown device setting/.test(e.message))
        throw new Error(`this host cannot change that while running (${e.serverMessage}); ` +
                        `start it with startHost({device: {${startOption}}})`);
      throw e;
    }
  }

  takeEdit_() {
    const edit = this.crop_;
    this.crop_ = null;
    return edit ? {edit} : {};
  }

  upload_(kind, path) {
    return postForm(this.origin_, '/api/picker/file', {kind, ...this.takeEdit_()},
                    {name: basename(path), bytes: readFileSync(path)});
  }

  enqueue_(kind, what, perform) {
    const queue = this.queues_[kind];
    const entry = {what};
    queue.push(entry);
    const done = (async () => {
      try {
        await this.state_.until((s) => {
          if (queue[0] !== entry || this.busy_ || !kTriggers[kind](s)) return false;
          this.busy_ = true;
          return true;
        }, {timeout: null, what, hold: false});
      } catch (e) {
        queue.splice(queue.indexOf(entry), 1);
        throw e;
      }
      try {
        return await perform();
      } catch (e) {
        this.failures_.push(new Error(`while waiting for ${what}: ${e.message}`));
        throw e;
      } finally {
        queue.shift();
        await this.state_.refresh().catch(() => {});
        this.busy_ = false;
        this.state_.nudge();
      }
    })();
    done.catch(() => {});  // reported through answers.next(); awaiting it is optional
    return done;
  }

  // What is still queued, for a test's failure message.
  pending() {
    return Object.values(this.queues_).flat().map((e) => e.what);
  }
}
