// Reads back what answers point at. The host serves its temporary directory
// and its library below /files/, refusing anything outside them, so the kit
// reads through the host rather than the disk.
import {execFile} from 'node:child_process';
import {request, getJson} from './http.js';

export class Files {
  constructor(origin, binary, library) {
    this.origin_ = origin;
    this.binary_ = binary;
    this.library_ = library;
  }

  // Imports a photo or movie into the host's library, as if it had been
  // there all along (`velqor-camera library add`); resolves with the new
  // asset ({localIdentifier, referenceUrl, ...}).
  addToLibrary(file) {
    return new Promise((resolve, reject) => {
      execFile(this.binary_, ['library', '--library', this.library_, 'add', file], {encoding: 'utf8'}, (e, stdout, stderr) => {
        if (e) { reject(new Error(`cannot add ${file} to the library: ${stderr.trim() || e.message}`)); return; }
        try {
          const added = JSON.parse(stdout.trim().split('\n').pop());
          resolve({...added, localIdentifier: added.localIdentifier ?? added.identifier,
                   referenceUrl: added.referenceUrl ?? added.referenceURL});
        } catch (parse) {
          reject(new Error(`library add printed no asset: ${stdout}`));
        }
      });
    });
  }

  // The bytes a file URI answer points at: the host's http://…/files/… URL,
  // a file:// URL or an absolute path inside the host's folders.
  async read(uri) {
    if (typeof uri !== 'string') throw new Error('files.read needs a URI');
    let path;
    if (uri.startsWith('file://')) path = '/files' + decodeURIComponent(new URL(uri).pathname);
    else if (uri.startsWith('/')) path = uri.startsWith('/files/') ? uri : '/files' + uri;
    else {
      const url = new URL(uri);
      if (url.origin !== this.origin_) throw new Error(`${uri} is not a file of this host (${this.origin_})`);
      path = url.pathname;
    }
    return (await request(this.origin_, 'GET', path, {raw: true})).bytes;
  }

  // An image's properties as the plug-in's metadata reader sees them
  // ({PixelWidth, PixelHeight, Orientation, '{Exif}', '{GPS}', ...}): of a
  // file URI answer, a data URL or the image's bytes.
  async metadata(image) {
    let bytes = image;
    if (typeof image === 'string') {
      const data = image.match(/^data:image\/[\w+.-]+;base64,(.*)$/s);
      bytes = data ? Buffer.from(data[1], 'base64') : await this.read(image);
    }
    if (!Buffer.isBuffer(bytes)) throw new Error('files.metadata needs a URI, a data URL or a Buffer');
    return request(this.origin_, 'POST', '/api/metadata', {body: bytes, headers: {'Content-Type': 'application/octet-stream'}});
  }

  // The library's assets: [{localIdentifier, extension, video, size, file, referenceUrl}].
  library() {
    return getJson(this.origin_, '/api/library');
  }
}
