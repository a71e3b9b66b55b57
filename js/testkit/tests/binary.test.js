// Where startHost finds the executable, in order, and what it says when it cannot.
import {test} from 'node:test';
import assert from 'node:assert/strict';
import {chmodSync, mkdirSync, mkdtempSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {findBinary} from '../index.js';

const root = mkdtempSync(join(tmpdir(), 'velqor-kit-bin-'));
test.after(() => rmSync(root, {recursive: true, force: true}));

function fakeBinary(folder) {
  mkdirSync(folder, {recursive: true});
  const path = join(folder, 'velqor-camera');
  writeFileSync(path, '#!/bin/sh\n');
  chmodSync(path, 0o755);
  return path;
}

const onPath = fakeBinary(join(root, 'path-bin'));
const inEnv = fakeBinary(join(root, 'env-bin'));
const given = fakeBinary(join(root, 'given'));
const inTree = fakeBinary(join(root, 'project', 'build'));
const deep = join(root, 'project', 'src', 'deep');
mkdirSync(deep, {recursive: true});
const notExecutable = join(root, 'plain', 'velqor-camera');
mkdirSync(join(root, 'plain'));
writeFileSync(notExecutable, '');

const cases = [
  {name: 'the option comes first', options: {binary: given}, env: {VELQOR_CAMERA_BIN: inEnv, PATH: join(root, 'path-bin')}, expect: given},
  {name: 'then the environment', options: {}, env: {VELQOR_CAMERA_BIN: inEnv, PATH: join(root, 'path-bin')}, expect: inEnv},
  {name: 'then PATH', options: {}, env: {PATH: `${join(root, 'nothing')}:${join(root, 'path-bin')}`}, expect: onPath},
  {name: 'then a build tree above the working folder', options: {}, env: {PATH: ''}, cwd: deep, expect: inTree},
  {name: 'a named file that is not executable is an error', options: {binary: notExecutable}, env: {PATH: join(root, 'path-bin')},
   error: /is not an executable file/},
  {name: 'a missing environment choice is an error, not a fallback', options: {}, env: {VELQOR_CAMERA_BIN: join(root, 'gone'), PATH: join(root, 'path-bin')},
   error: /VELQOR_CAMERA_BIN/},
];

for (const c of cases) {
  test(c.name, () => {
    const run = () => findBinary({...c.options, env: c.env, cwd: c.cwd ?? root});
    if (c.error) assert.throws(run, c.error);
    else assert.equal(run(), c.expect);
  });
}

test('nowhere to be found names every way to give it', (t) => {
  // Only valid where no installed copy exists on the prefixes.
  const run = () => findBinary({env: {PATH: ''}, cwd: root});
  let found;
  try { found = run(); } catch (e) {
    assert.match(e.message, /startHost\(\{binary\}\).*VELQOR_CAMERA_BIN.*PATH.*build\/velqor-camera/);
    return;
  }
  assert.match(found, /^\/usr\/(local\/)?bin\/velqor-camera$/);
  t.diagnostic(`an installed copy answered: ${found}`);
});
