// Where the `velqor-camera` executable is looked for, first match wins:
// the `binary` option, $VELQOR_CAMERA_BIN, every folder of $PATH, the
// installed prefixes, then a build tree (build/velqor-camera) in the current
// folder or any folder above it.
import {accessSync, constants, statSync} from 'node:fs';
import {delimiter, dirname, join, resolve} from 'node:path';

const kName = 'velqor-camera';
const kPrefixes = ['/usr/local/bin', '/usr/bin'];

function executable(path) {
  try {
    if (!statSync(path).isFile()) return false;
    accessSync(path, constants.X_OK);
    return true;
  } catch {
    return false;
  }
}

export function candidates({binary, env = process.env, cwd = process.cwd()} = {}) {
  const list = [];
  if (binary) list.push({path: resolve(cwd, binary), from: 'the binary option'});
  if (env.VELQOR_CAMERA_BIN) list.push({path: resolve(cwd, env.VELQOR_CAMERA_BIN), from: 'VELQOR_CAMERA_BIN'});
  for (const folder of (env.PATH ?? '').split(delimiter).filter(Boolean))
    list.push({path: join(folder, kName), from: 'PATH'});
  for (const prefix of kPrefixes) list.push({path: join(prefix, kName), from: 'an installed prefix'});
  for (let dir = resolve(cwd); ; dir = dirname(dir)) {
    list.push({path: join(dir, 'build', kName), from: 'a build tree'});
    if (dirname(dir) === dir) break;
  }
  return list;
}

// The path of the executable to run. An explicit choice (option or
// environment) that is not executable is an error rather than a fallback, so
// a test never silently runs a different build than the one it names.
export function findBinary(options = {}) {
  const list = candidates(options);
  const explicit = list.filter((c) => c.from === 'the binary option' || c.from === 'VELQOR_CAMERA_BIN');
  for (const c of explicit)
    if (!executable(c.path)) throw new Error(`velqor-camera not found: ${c.path} (from ${c.from}) is not an executable file`);
  const found = list.find((c) => executable(c.path));
  if (!found)
    throw new Error('velqor-camera not found: give startHost({binary}), set VELQOR_CAMERA_BIN, put it on PATH, ' +
                    'install it, or run from inside a tree that holds build/velqor-camera');
  return found.path;
}
