// Shared by the kit's own tests: sample inputs made by the binary under test,
// a command sent the way a page's bridge sends it, and a JPEG's pixel size.
import {execFileSync} from 'node:child_process';
import {mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {after} from 'node:test';
import {findBinary} from '../index.js';

export const binary = findBinary();

const samples = mkdtempSync(join(tmpdir(), 'velqor-kit-samples-'));
after(() => rmSync(samples, {recursive: true, force: true}));

// `velqor-camera sample KIND -o FILE`: camera-jpeg is a 4032x3024 portrait
// photo stored sideways (EXIF orientation 6); movie is a short MP4.
export function sample(kind, name = kind) {
  const file = join(samples, name);
  execFileSync(binary, ['sample', kind, '-o', file], {stdio: 'ignore'});
  return file;
}

export async function takePicture(host, args) {
  const res = await fetch(host.origin + '/api/call', {
    method: 'POST', headers: {'X-Velqor-Request': '1', 'Content-Type': 'application/json'},
    body: JSON.stringify({operation: 'takePicture', args}),
  });
  if (!res.ok) throw new Error(`takePicture: ${res.status} ${await res.text()}`);
  return (await res.json()).callbackId;
}

// Width and height from a JPEG's frame header, as stored (before any EXIF turn).
export function jpegSize(bytes) {
  for (let i = 2; i + 9 < bytes.length;) {
    if (bytes[i] !== 0xff) throw new Error('not a JPEG marker at ' + i);
    const marker = bytes[i + 1];
    const length = bytes.readUInt16BE(i + 2);
    if (marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker))
      return {width: bytes.readUInt16BE(i + 7), height: bytes.readUInt16BE(i + 5)};
    i += 2 + length;
  }
  throw new Error('no frame header');
}
