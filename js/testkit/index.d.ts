// Types of velqor-camera-testkit: start `velqor-camera serve` for a test and
// script its simulated phone.

/** A photo-library or camera access state of the phone. */
export type AccessState = 'notDetermined' | 'restricted' | 'denied' | 'authorized' | 'limited';

/** The phone as it is when the host starts. */
export interface DeviceOptions {
  cameraAccess?: AccessState;
  libraryAccess?: AccessState;
  /** What the user answers when asked for the camera (only asked when cameraAccess is notDetermined). */
  cameraAnswer?: 'granted' | 'denied' | boolean;
  /** What the user answers when asked for the library (only asked when libraryAccess is notDetermined). */
  libraryAnswer?: AccessState;
  noCamera?: boolean;
  noViewController?: boolean;
  /** Preferred languages, most preferred first: ['fr-CA', 'en']. */
  languages?: string[];
  sources?: string[];
}

export interface StartHostOptions {
  /** The app's folder, served at `/`. */
  app?: string;
  device?: DeviceOptions;
  /** The app's temporary directory; a fresh one when omitted. */
  temporaryDirectory?: string;
  /** The photo library's directory; a fresh one when omitted. */
  library?: string;
  /** The velqor-camera executable; else VELQOR_CAMERA_BIN, PATH, /usr/local/bin, /usr/bin, build/ above the working folder. */
  binary?: string;
  /** More options for `velqor-camera serve`. */
  args?: string[];
}

export interface AlertButton {
  title: string;
  style?: 'default' | 'cancel' | string;
}

export interface Screen {
  alert: {title: string; message: string; buttons: AlertButton[]} | null;
  /** The picker's set-up: sourceType, mediaTypes, allowsEditing, cameraDevice, ... */
  picker: Record<string, unknown> | null;
  settingsOpened: boolean;
}

export interface Answer {
  callbackId: string;
  /** 'OK', 'NO_PERMISSION', 'OBJECT_REFERENCE_FAILED', ... */
  status: string;
  keepCallback: boolean;
  /** What the plug-in answered: for a photo {callbackURI}, for a refusal its message. */
  payload: any;
  /** Why an image could not be made, when the host says. */
  note?: string;
  /** When the plug-in answered, in milliseconds since the epoch (this machine's clock). */
  answeredAt?: number;
}

export interface OpenCommand {
  command: string;
  operation: string;
  /** Why it is still open, as the command line prints it. */
  reason: string;
  /** What would move it on: 'tapAlert', 'finishPicker', 'deliverFix' or 'none'. */
  action: string;
}

export interface Asset {
  localIdentifier: string;
  referenceUrl: string;
  extension: string;
  video?: boolean;
  size: number;
  file?: string;
  [key: string]: unknown;
}

export interface Fix {
  latitude: number;
  longitude: number;
  altitude?: number;
  timestamp?: Date | string;
}

/**
 * The phone. Choices on a screen (picker, alert, location) are queued and carried
 * out when the phone shows that screen; each returns a promise settled then.
 * Settings change at once.
 */
export interface Device {
  nextPhoto(file: string): Promise<unknown>;
  nextVideo(file: string): Promise<unknown>;
  /** An asset, its localIdentifier, or a file imported into the library first. */
  pickFromLibrary(assetOrFile: string | Asset): Promise<unknown>;
  cancelPicker(): Promise<unknown>;
  /** The crop of the next picker choice, in upright pixels. */
  crop(rect: {x: number; y: number; width: number; height: number}): Promise<void>;
  /** 'settings', 'cancel' or a button's title. */
  tapAlert(button: 'settings' | 'cancel' | (string & {})): Promise<unknown>;
  deliverFix(fix: Fix): Promise<unknown>;
  cameraAccess(state: AccessState): Promise<Record<string, unknown>>;
  libraryAccess(state: AccessState): Promise<Record<string, unknown>>;
  answerWhenAsked(answers: {camera?: 'granted' | 'denied' | boolean; library?: AccessState}): Promise<Record<string, unknown>>;
  noCamera(): Promise<Record<string, unknown>>;
  noViewController(): Promise<Record<string, unknown>>;
  languages(list: string[]): Promise<Record<string, unknown>>;
  screen(): Promise<Screen>;
  whenShown(what: 'alert' | 'picker' | 'settingsOpened', options?: {timeout?: number}): Promise<Screen>;
  settings(): Promise<Record<string, unknown>>;
  /** What is queued and not yet carried out. */
  pending(): string[];
}

export interface Answers {
  all(): Promise<Answer[]>;
  /** The next answer not yet handed out; rejects after `timeout` ms (15000) saying why commands are open. */
  next(options?: {timeout?: number}): Promise<Answer>;
  open(): Promise<OpenCommand[]>;
  untilOpen(pattern?: RegExp | string, options?: {timeout?: number}): Promise<OpenCommand[]>;
}

/** Image properties as the plug-in reads them: PixelWidth, PixelHeight, Orientation, '{Exif}', '{GPS}', ... */
export interface ImageProperties {
  PixelWidth?: number;
  PixelHeight?: number;
  Orientation?: number;
  '{GPS}'?: {Latitude?: number; LatitudeRef?: string; Longitude?: number; LongitudeRef?: string; Altitude?: number; [key: string]: unknown};
  [key: string]: any;
}

export interface Files {
  /** The bytes a file URI answer points at. */
  read(uri: string): Promise<Buffer>;
  metadata(image: string | Buffer): Promise<ImageProperties>;
  library(): Promise<Asset[]>;
  addToLibrary(file: string): Promise<Asset>;
}

export interface Host {
  /** The app's address: `http://127.0.0.1:PORT/`. */
  url: string;
  origin: string;
  binary: string;
  pid: number;
  temporaryDirectory: string;
  library: string;
  device: Device;
  answers: Answers;
  files: Files;
  /** The host's own log (standard error) so far. */
  log(): string;
  stop(): Promise<{code: number | null; signal: string | null}>;
}

export function startHost(options?: StartHostOptions): Promise<Host>;
export function findBinary(options?: {binary?: string; env?: Record<string, string | undefined>; cwd?: string}): string;
export function deviceArguments(device?: DeviceOptions): string[];
export function findChromium(env?: Record<string, string | undefined>): string;
export function chromiumArguments(options?: {fakeCamera?: boolean | string}): string[];
/** The system's Chromium through playwright-core (a peer dependency). */
export function launchBrowser(options?: {fakeCamera?: boolean | string; headless?: boolean; args?: string[]; slowMo?: number}):
  Promise<import('playwright-core').Browser>;
