// Types of VelqorCamera's page API (velqor-camera.js).

export declare const DestinationType: Readonly<{DATA_URL: 0; FILE_URI: 1; NATIVE_URI: 2}>;
export declare const SourceType: Readonly<{PHOTOLIBRARY: 0; CAMERA: 1; SAVEDPHOTOALBUM: 2}>;
export declare const EncodingType: Readonly<{JPEG: 0; PNG: 1}>;
export declare const MediaType: Readonly<{PICTURE: 0; VIDEO: 1; ALLMEDIA: 2}>;
export declare const CameraDirection: Readonly<{BACK: 0; FRONT: 1}>;

export type DestinationType = (typeof DestinationType)[keyof typeof DestinationType];
export type SourceType = (typeof SourceType)[keyof typeof SourceType];
export type EncodingType = (typeof EncodingType)[keyof typeof EncodingType];
export type MediaType = (typeof MediaType)[keyof typeof MediaType];
export type CameraDirection = (typeof CameraDirection)[keyof typeof CameraDirection];

/** Target size, both or neither: the picture fits inside width x height. */
type TargetSize =
  | {targetWidth: number; targetHeight: number}
  | {targetWidth?: null; targetHeight?: null};

/** What takePicture takes. Every option may be left out: the plug-in's default then holds. */
export type CameraOptions = TargetSize & {
  /** JPEG quality, 0-100 (default 50). */
  quality?: number | null;
  /** Default NATIVE_URI. */
  destinationType?: DestinationType | null;
  /** Default CAMERA. */
  sourceType?: SourceType | null;
  /** Default JPEG. */
  encodingType?: EncodingType | null;
  /** Default PICTURE; ALLMEDIA is refused for the camera. */
  mediaType?: MediaType | null;
  /** The picker offers a crop. */
  allowsEditing?: boolean | null;
  /** Turn the pixels upright. */
  correctOrientation?: boolean | null;
  /** Also save the result to the photo library. */
  saveToPhotoAlbum?: boolean | null;
  /** BACK (default) or FRONT; true means FRONT. */
  cameraDirection?: CameraDirection | boolean | null;
  /** Write a location fix into a camera JPEG; the answer waits for the fix. */
  usesGeolocation?: boolean | null;
};

/** The plug-in's answer: the picture or movie as a data URL, file URI or library URI. */
export interface CameraResult {
  callbackURI: string;
}

/** Host status names a refusal carries. */
export type CameraStatus =
  | 'NO_PERMISSION'
  | 'INVALID_PARAM'
  | 'OBJECT_REFERENCE_FAILED'
  | 'FAIL_TAKE_PICTURE'
  | 'UNABLE_FILE_WRITE'
  | 'UNABLE_FILE_REMOVE'
  | (string & {});

/** A refusal or failure of the plug-in. */
export declare class CameraError extends Error {
  readonly name: 'CameraError';
  readonly status: CameraStatus;
  /** What the plug-in answered: {errorMsg} or a message string. */
  readonly payload: unknown;
  constructor(status: CameraStatus, payload: unknown);
}

/** The host's one entry point: resolves with the payload, rejects with {status, payload}. */
export type Exec = (service: string, action: string, args: unknown[]) => Promise<unknown>;

/** Uses `exec` instead of window.velqor.exec; null goes back to it. */
export declare function setExec(exec: Exec | null): void;

/** The plug-in's positional argument list for `options` (throws a TypeError for bad options). */
export declare function takePictureArguments(options?: CameraOptions): unknown[];

/** Rejects with a CameraError when the plug-in refuses, a TypeError for bad options. */
export declare function takePicture(options?: CameraOptions): Promise<CameraResult>;

/** Removes the temporary files of earlier captures. */
export declare function cleanup(): Promise<unknown>;
