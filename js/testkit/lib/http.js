// Small HTTP helpers for one host's origin. Every request closes its socket
// (no agent), so nothing the kit leaves behind keeps a test process alive.
import http from 'node:http';

const kLimit = 512 << 20;  // the largest body the kit reads back (a movie of the library)

export class HttpError extends Error {
  constructor(method, path, status, body) {
    let message = body;
    try { message = JSON.parse(body).error ?? body; } catch { /* plain text */ }
    super(`${method} ${path}: ${status} ${message}`);
    this.status = status;
    this.serverMessage = message;
  }
}

export function request(origin, method, path, {body, headers = {}, raw = false} = {}) {
  return new Promise((resolve, reject) => {
    const req = http.request(new URL(path, origin), {method, agent: false, headers: {
      ...(method === 'POST' ? {'X-Velqor-Request': '1'} : {}), ...headers,
      ...(body ? {'Content-Length': body.length} : {}),
    }}, (res) => {
      const chunks = [];
      let size = 0;
      res.on('data', (c) => {
        size += c.length;
        if (size > kLimit) { req.destroy(new Error(`${method} ${path}: the answer passes ${kLimit} bytes`)); return; }
        chunks.push(c);
      });
      res.on('end', () => {
        const bytes = Buffer.concat(chunks);
        if (res.statusCode >= 300) { reject(new HttpError(method, path, res.statusCode, bytes.toString())); return; }
        if (raw) { resolve({bytes, type: res.headers['content-type'] ?? ''}); return; }
        try { resolve(JSON.parse(bytes.toString())); } catch (e) { reject(new Error(`${method} ${path}: not JSON (${e.message})`)); }
      });
      res.on('error', reject);
    });
    req.on('error', reject);
    req.end(body);
  });
}

export const getJson = (origin, path) => request(origin, 'GET', path);

export function postJson(origin, path, value) {
  return request(origin, 'POST', path, {body: Buffer.from(JSON.stringify(value)), headers: {'Content-Type': 'application/json'}});
}

// multipart/form-data with plain fields and one file.
export function postForm(origin, path, fields, file) {
  const boundary = `----velqor${process.hrtime.bigint()}`;
  const parts = [];
  for (const [name, value] of Object.entries(fields))
    parts.push(Buffer.from(`--${boundary}\r\nContent-Disposition: form-data; name="${name}"\r\n\r\n${value}\r\n`));
  parts.push(Buffer.from(`--${boundary}\r\nContent-Disposition: form-data; name="file"; filename="${file.name.replace(/["\r\n]/g, '_')}"\r\n` +
                         'Content-Type: application/octet-stream\r\n\r\n'), file.bytes, Buffer.from(`\r\n--${boundary}--\r\n`));
  return request(origin, 'POST', path, {body: Buffer.concat(parts), headers: {'Content-Type': `multipart/form-data; boundary=${boundary}`}});
}

// A Server-Sent Events stream: `onMessage({event, data, id})` per message.
// Resolves with a handle once the stream is open; rejects when the route is
// missing or is not an event stream. The socket starts unreferenced: an open
// stream alone never keeps the process alive (the caller refs it while it
// waits for something).
export function openEventStream(origin, path, {lastEventId, onMessage, onEnd}) {
  return new Promise((resolve, reject) => {
    const req = http.get(new URL(path, origin), {agent: false, headers: {
      Accept: 'text/event-stream', ...(lastEventId ? {'Last-Event-ID': lastEventId} : {}),
    }}, (res) => {
      if (res.statusCode !== 200 || !String(res.headers['content-type']).startsWith('text/event-stream')) {
        res.resume();
        reject(new HttpError('GET', path, res.statusCode, 'not an event stream'));
        return;
      }
      res.socket.unref();
      res.setEncoding('utf8');
      let text = '';
      let message = {event: 'message', data: [], id: undefined};
      res.on('data', (chunk) => {
        text += chunk;
        let end;
        while ((end = text.indexOf('\n')) >= 0) {
          const line = text.slice(0, end).replace(/\r$/, '');
          text = text.slice(end + 1);
          if (line === '') {
            if (message.data.length) onMessage({event: message.event, data: message.data.join('\n'), id: message.id});
            message = {event: 'message', data: [], id: undefined};
          } else if (!line.startsWith(':')) {
            const colon = line.indexOf(':');
            const field = colon < 0 ? line : line.slice(0, colon);
            const value = colon < 0 ? '' : line.slice(colon + 1).replace(/^ /, '');
            if (field === 'data') message.data.push(value);
            else if (field === 'event') message.event = value;
            else if (field === 'id') message.id = value;
          }
        }
      });
      res.on('end', () => onEnd?.());
      res.on('error', () => onEnd?.());
      resolve({close: () => req.destroy(), socket: res.socket});
    });
    req.on('socket', (s) => s.unref());
    req.on('error', reject);
  });
}
