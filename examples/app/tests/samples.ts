// Inputs made by the velqor-camera under test: a portrait photo stored
// sideways (4032x3024, EXIF orientation 6) and a short movie.
import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {findBinary} from 'velqor-camera-testkit';

const folder = mkdtempSync(join(tmpdir(), 'velqor-example-samples-'));
process.on('exit', () => rmSync(folder, {recursive: true, force: true}));

function sample(kind: string, name: string): string {
  const file = join(folder, name);
  execFileSync(findBinary(), ['sample', kind, '-o', file], {stdio: 'ignore'});
  return file;
}

export const portrait = sample('camera-jpeg', 'portrait.jpg');
export const movie = sample('movie', 'clip.mp4');

// A movie's duration in seconds from its movie header box.
export function movieSeconds(file: string): number {
  const bytes = readFileSync(file);
  const at = bytes.indexOf('mvhd');
  if (at < 0) throw new Error(`${file} has no movie header`);
  const version = bytes[at + 4];
  const timescale = version === 1 ? bytes.readUInt32BE(at + 24) : bytes.readUInt32BE(at + 16);
  const duration = version === 1 ? Number(bytes.readBigUInt64BE(at + 28)) : bytes.readUInt32BE(at + 20);
  return duration / timescale;
}
