// A typed page using the API: `tsc --noEmit -p web/api` checks the declarations against it.
import {CameraDirection, CameraError, DestinationType, MediaType, SourceType, cleanup, setExec,
        takePicture} from './velqor-camera.js';

export async function selfie(img: HTMLImageElement): Promise<void> {
  const {callbackURI} = await takePicture({
    quality: 80,
    destinationType: DestinationType.FILE_URI,
    sourceType: SourceType.CAMERA,
    cameraDirection: CameraDirection.FRONT,
    targetWidth: 640,
    targetHeight: 480,
    correctOrientation: true,
  });
  img.src = callbackURI;
}

export async function movieOrRefusal(): Promise<string> {
  try {
    return (await takePicture({mediaType: MediaType.VIDEO, destinationType: DestinationType.FILE_URI})).callbackURI;
  } catch (e) {
    if (e instanceof CameraError) return `${e.status}: ${e.message}`;
    throw e;
  }
}

export function tidy(): Promise<unknown> {
  setExec(null);
  return cleanup();
}

// @ts-expect-error a width needs its height
takePicture({targetWidth: 100});
// @ts-expect-error no such option
takePicture({qualty: 10});
// @ts-expect-error destinations are 0, 1 or 2
takePicture({destinationType: 7});
