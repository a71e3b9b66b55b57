'use strict';
// EXIF in the page. A camera's JPEG carries the moment it was taken in its
// EXIF block; a frame that the browser encodes has none. `withCaptureTime`
// puts a minimal EXIF block (orientation up, DateTimeOriginal and its UTC
// offset) right after the JPEG's start-of-image marker, as a camera writes it.
// `readGps` reads the location a JPEG's EXIF block holds.

// "YYYY:MM:DD HH:MM:SS" and "+HH:MM" in local time.
function exifDateParts(date) {
  const two = (n) => String(n).padStart(2, '0');
  const stamp = `${date.getFullYear()}:${two(date.getMonth() + 1)}:${two(date.getDate())} ` +
                `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
  const minutes = -date.getTimezoneOffset();
  const offset = `${minutes < 0 ? '-' : '+'}${two(Math.floor(Math.abs(minutes) / 60))}:${two(Math.abs(minutes) % 60)}`;
  return {stamp, offset};
}

// The APP1 segment's bytes: "Exif\0\0" and a little-endian TIFF structure with
// IFD0 (Orientation, pointer to the Exif IFD) and the Exif IFD
// (DateTimeOriginal 0x9003, OffsetTimeOriginal 0x9011).
function exifSegment(date) {
  const {stamp, offset} = exifDateParts(date);
  const ifd0 = 8;
  const exifIfd = ifd0 + 2 + 2 * 12 + 4;
  const stampAt = exifIfd + 2 + 2 * 12 + 4;
  const offsetAt = stampAt + stamp.length + 1;
  const tiffLength = offsetAt + offset.length + 1;
  const tiff = new DataView(new ArrayBuffer(tiffLength));
  tiff.setUint16(0, 0x4949);  // "II": little endian
  tiff.setUint16(2, 42, true);
  tiff.setUint32(4, ifd0, true);
  const entry = (at, tag, type, count, value) => {
    tiff.setUint16(at, tag, true);
    tiff.setUint16(at + 2, type, true);
    tiff.setUint32(at + 4, count, true);
    if (type === 3) tiff.setUint16(at + 8, value, true); else tiff.setUint32(at + 8, value, true);
  };
  tiff.setUint16(ifd0, 2, true);
  entry(ifd0 + 2, 0x0112, 3, 1, 1);            // Orientation: up
  entry(ifd0 + 14, 0x8769, 4, 1, exifIfd);     // Exif IFD pointer
  tiff.setUint32(ifd0 + 26, 0, true);          // no next IFD
  tiff.setUint16(exifIfd, 2, true);
  entry(exifIfd + 2, 0x9003, 2, stamp.length + 1, stampAt);
  entry(exifIfd + 14, 0x9011, 2, offset.length + 1, offsetAt);
  tiff.setUint32(exifIfd + 26, 0, true);
  [...stamp].forEach((c, i) => tiff.setUint8(stampAt + i, c.charCodeAt(0)));
  [...offset].forEach((c, i) => tiff.setUint8(offsetAt + i, c.charCodeAt(0)));

  const header = [0x45, 0x78, 0x69, 0x66, 0, 0];  // "Exif\0\0"
  const length = 2 + header.length + tiffLength;
  const segment = new Uint8Array(2 + length);
  segment.set([0xff, 0xe1, length >> 8, length & 0xff], 0);
  segment.set(header, 4);
  segment.set(new Uint8Array(tiff.buffer), 4 + header.length);
  return segment;
}

// The JPEG blob with the EXIF block inserted; the blob unchanged when it is no JPEG.
async function withCaptureTime(jpeg, date) {
  const bytes = new Uint8Array(await jpeg.arrayBuffer());
  if (bytes.length < 4 || bytes[0] !== 0xff || bytes[1] !== 0xd8) return jpeg;
  return new Blob([bytes.subarray(0, 2), exifSegment(date), bytes.subarray(2)], {type: 'image/jpeg'});
}

// The GPS position of a JPEG's EXIF block: {latitude, longitude, altitude}
// in signed degrees and metres (altitude null when absent), or null when the
// file holds no EXIF GPS. Reads only inside the bytes given; a malformed
// block gives null.
function readGps(buffer) {
  const bytes = new Uint8Array(buffer);
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  if (bytes.length < 4 || view.getUint16(0) !== 0xffd8) return null;
  for (let at = 2; at + 4 <= bytes.length;) {
    if (bytes[at] !== 0xff) return null;
    const marker = bytes[at + 1];
    if (marker === 0xda || marker === 0xd9) return null;  // image data: no EXIF before it
    const length = view.getUint16(at + 2);
    if (marker === 0xe1 && length >= 8 && at + 2 + length <= bytes.length &&
        String.fromCharCode(...bytes.subarray(at + 4, at + 10)) === 'Exif\0\0')
      return gpsOfTiff(new DataView(bytes.buffer, bytes.byteOffset + at + 10, length - 8));
    at += 2 + length;
  }
  return null;
}

function gpsOfTiff(tiff) {
  try {
    const little = tiff.getUint16(0) === 0x4949;
    const u16 = (o) => tiff.getUint16(o, little);
    const u32 = (o) => tiff.getUint32(o, little);
    // The entries of the IFD at `offset`: tag -> {type, count, value offset}.
    const entries = (offset) => {
      const out = new Map();
      for (let i = 0, n = u16(offset); i < n; ++i) {
        const e = offset + 2 + 12 * i;
        out.set(u16(e), {type: u16(e + 2), count: u32(e + 4), at: u32(e + 4) * (u16(e + 2) === 5 ? 8 : 1) > 4 ? u32(e + 8) : e + 8});
      }
      return out;
    };
    const gpsPointer = entries(u32(4)).get(0x8825);
    if (!gpsPointer) return null;
    const gps = entries(u32(gpsPointer.at));
    const rationals = (e) => Array.from({length: e.count}, (_, i) => u32(e.at + 8 * i) / (u32(e.at + 8 * i + 4) || NaN));
    const ref = (tag) => (gps.has(tag) ? String.fromCharCode(tiff.getUint8(gps.get(tag).at)) : '');
    const degrees = (tag, negative) => {
      const e = gps.get(tag);
      if (!e || e.type !== 5 || e.count !== 3) return null;
      const [d, m, s] = rationals(e);
      const value = d + m / 60 + s / 3600;
      return Number.isFinite(value) ? (ref(tag - 1) === negative ? -value : value) : null;
    };
    const latitude = degrees(2, 'S');
    const longitude = degrees(4, 'W');
    if (latitude === null || longitude === null) return null;
    const alt = gps.get(6);
    let altitude = alt && alt.type === 5 ? rationals({...alt, count: 1})[0] : null;
    if (altitude !== null && gps.has(5) && tiff.getUint8(gps.get(5).at) === 1) altitude = -altitude;
    return {latitude, longitude, altitude: Number.isFinite(altitude) ? altitude : null};
  } catch (e) {
    if (e instanceof RangeError) return null;  // an offset past the block's end
    throw e;
  }
}

window.velqorExif = {withCaptureTime, exifDateParts, readGps};
