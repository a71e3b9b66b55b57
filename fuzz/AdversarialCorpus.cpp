#include "fuzz/AdversarialCorpus.h"

#include <jpeglib.h>
#include <webp/encode.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <random>

#include "host/FileBytes.h"
#include "imaging/codecs/PngCodec.h"
#include "platform/linux/SampleImages.h"
#include "platform/linux/SampleMovies.h"

namespace velqor::fuzz {
namespace {

std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }

void put16be(std::string& s, unsigned v) {
  s += static_cast<char>(v >> 8);
  s += static_cast<char>(v);
}
void put32be(std::string& s, std::uint32_t v) {
  put16be(s, v >> 16);
  put16be(s, v & 0xFFFF);
}
void put16le(std::string& s, unsigned v) {
  s += static_cast<char>(v);
  s += static_cast<char>(v >> 8);
}
void put32le(std::string& s, std::uint32_t v) {
  put16le(s, v & 0xFFFF);
  put16le(s, v >> 16);
}

// ---- JPEG through libjpeg, for the variants TurboJPEG's API does not offer ----

struct JpegOptions {
  int width = 48, height = 32;
  bool cmyk = false, arithmetic = false, progressive = false, grey = false;
  int quality = 80;
};

// Owns one libjpeg compressor and its memory destination.
class JpegWriter {
 public:
  JpegWriter() {
    info_.err = jpeg_std_error(&error_);
    jpeg_create_compress(&info_);
  }
  ~JpegWriter() {
    jpeg_destroy_compress(&info_);
    std::free(buffer_);
  }
  JpegWriter(const JpegWriter&) = delete;
  JpegWriter& operator=(const JpegWriter&) = delete;

  std::string write(const JpegOptions& o) {
    jpeg_mem_dest(&info_, &buffer_, &size_);
    const int components = o.cmyk ? 4 : o.grey ? 1 : 3;
    info_.image_width = o.width;
    info_.image_height = o.height;
    info_.input_components = components;
    info_.in_color_space = o.cmyk ? JCS_CMYK : o.grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&info_);
    jpeg_set_quality(&info_, o.quality, TRUE);
    info_.arith_code = o.arithmetic ? TRUE : FALSE;
    if (o.progressive) jpeg_simple_progression(&info_);
    jpeg_start_compress(&info_, TRUE);
    std::vector<JSAMPLE> row(static_cast<size_t>(o.width) * components);
    while (info_.next_scanline < info_.image_height) {
      for (int x = 0; x < o.width * components; ++x) row[x] = static_cast<JSAMPLE>((x * 7 + info_.next_scanline * 3) & 0xFF);
      JSAMPROW rows[1] = {row.data()};
      jpeg_write_scanlines(&info_, rows, 1);
    }
    jpeg_finish_compress(&info_);
    return std::string(reinterpret_cast<char*>(buffer_), size_);
  }

 private:
  jpeg_compress_struct info_{};
  jpeg_error_mgr error_{};
  unsigned char* buffer_ = nullptr;
  unsigned long size_ = 0;
};

std::string jpeg(const JpegOptions& o) {
  JpegWriter w;
  return w.write(o);
}

// The offset of the first marker `code` (0xFFcode) after SOI; npos when none.
size_t findMarker(const std::string& j, unsigned char code) {
  size_t p = 2;
  while (p + 4 <= j.size() && static_cast<unsigned char>(j[p]) == 0xFF) {
    const auto m = static_cast<unsigned char>(j[p + 1]);
    if (m == code) return p;
    if (m == 0xDA) return std::string::npos;
    p += 2 + ((static_cast<unsigned char>(j[p + 2]) << 8) | static_cast<unsigned char>(j[p + 3]));
  }
  return std::string::npos;
}

std::string withSize(std::string j, unsigned width, unsigned height) {
  const size_t sof = findMarker(j, 0xC0) != std::string::npos ? findMarker(j, 0xC0) : findMarker(j, 0xC2);
  if (sof == std::string::npos) return j;
  j[sof + 5] = static_cast<char>(height >> 8);
  j[sof + 6] = static_cast<char>(height);
  j[sof + 7] = static_cast<char>(width >> 8);
  j[sof + 8] = static_cast<char>(width);
  return j;
}

// An APP1 segment holding `tiff` as EXIF, inserted right after SOI.
std::string withExif(const std::string& j, const std::string& tiff) {
  std::string body = std::string("Exif\0\0", 6) + tiff;
  if (body.size() > 65533) body.resize(65533);
  std::string seg = "\xFF\xE1";
  put16be(seg, static_cast<unsigned>(body.size() + 2));
  return j.substr(0, 2) + seg + body + j.substr(2);
}

struct IfdEntry {
  unsigned tag, type;
  std::uint32_t count, value;
};

// A little-endian TIFF block: IFD0 at 8 with `entries`, then `nextIfd`, then `tail`.
std::string tiff(const std::vector<IfdEntry>& entries, std::uint32_t nextIfd, const std::string& tail = "",
                 unsigned declaredCount = 0xFFFFFFFF) {
  std::string t = "II*";
  t += '\0';
  put32le(t, 8);
  put16le(t, declaredCount == 0xFFFFFFFF ? static_cast<unsigned>(entries.size()) : declaredCount);
  for (const auto& e : entries) {
    put16le(t, e.tag);
    put16le(t, e.type);
    put32le(t, e.count);
    put32le(t, e.value);
  }
  put32le(t, nextIfd);
  return t + tail;
}

// ---- PNG by hand, for the layouts our encoder never writes ----

std::string chunk(const char* type, const std::string& data) {
  std::string c;
  put32be(c, static_cast<std::uint32_t>(data.size()));
  std::string body = std::string(type, 4) + data;
  c += body;
  put32be(c, static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(body.data()), body.size())));
  return c;
}

std::string deflate(const std::string& raw) {
  uLongf size = compressBound(raw.size());
  std::string out(size, '\0');
  compress2(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(raw.data()), raw.size(), 9);
  out.resize(size);
  return out;
}

struct PngLayout {
  unsigned width = 24, height = 16;
  int depth = 8, colorType = 2;  // 0 grey, 2 RGB, 3 palette, 4 grey+alpha, 6 RGBA
  bool interlaced = false;
  std::string extraChunks;  // placed before IDAT
};

std::string png(const PngLayout& l) {
  static const int kChannels[7] = {1, 0, 3, 1, 2, 0, 4};
  const int bitsPerPixel = kChannels[l.colorType] * l.depth;
  std::string ihdr;
  put32be(ihdr, l.width);
  put32be(ihdr, l.height);
  ihdr += static_cast<char>(l.depth);
  ihdr += static_cast<char>(l.colorType);
  ihdr += '\0';
  ihdr += '\0';
  ihdr += static_cast<char>(l.interlaced ? 1 : 0);
  // Rows of a (sub)image with filter byte 0 and a gradient of bytes.
  auto rows = [&](unsigned w, unsigned h) {
    std::string r;
    const size_t bytes = (static_cast<size_t>(w) * bitsPerPixel + 7) / 8;
    for (unsigned y = 0; y < h; ++y) {
      r += '\0';
      for (size_t x = 0; x < bytes; ++x) r += static_cast<char>((x * 13 + y * 5) & (l.colorType == 3 ? 0x03 : 0xFF));
    }
    return r;
  };
  std::string raw;
  if (l.interlaced) {
    static const int kPass[7][4] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                                    {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};
    for (const auto& p : kPass) {
      const unsigned w = l.width > static_cast<unsigned>(p[0]) ? (l.width - p[0] + p[2] - 1) / p[2] : 0;
      const unsigned h = l.height > static_cast<unsigned>(p[1]) ? (l.height - p[1] + p[3] - 1) / p[3] : 0;
      if (w && h) raw += rows(w, h);
    }
  } else {
    raw = rows(l.width, l.height);
  }
  std::string out = "\x89PNG\r\n\x1A\n";
  out += chunk("IHDR", ihdr);
  if (l.colorType == 3) out += chunk("PLTE", std::string("\xFF\x00\x00\x00\xFF\x00\x00\x00\xFF\x80\x80\x80", 12));
  out += l.extraChunks;
  out += chunk("IDAT", deflate(raw));
  out += chunk("IEND", "");
  return out;
}

// A PNG whose IHDR claims another size (the CRC fixed, so only the size lies).
std::string pngClaiming(unsigned width, unsigned height) {
  std::string p = png({});
  std::string ihdr = p.substr(16, 13);
  ihdr.replace(0, 8, [&] {
    std::string s;
    put32be(s, width);
    put32be(s, height);
    return s;
  }());
  return p.substr(0, 8) + chunk("IHDR", ihdr) + p.substr(33);
}

std::string bomb(size_t expandedBytes) { return deflate(std::string(expandedBytes, '\0')); }

// ---- BMP, GIF and TIFF by hand, for the decoders' hostile cases ----

// A BMP with an info header: `palette` as RGB triples, then `data` at the offset.
std::string bmp(int width, int height, int bits, std::uint32_t compression, const std::string& palette,
                const std::string& data, std::uint32_t coloursUsed = 0) {
  std::string info;
  for (std::uint32_t v : {40u, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}) put32le(info, v);
  put16le(info, 1);
  put16le(info, static_cast<unsigned>(bits));
  for (std::uint32_t v : {compression, static_cast<std::uint32_t>(data.size()), 2835u, 2835u, coloursUsed, 0u})
    put32le(info, v);
  std::string table;
  for (size_t i = 0; i + 2 < palette.size(); i += 3) table += std::string{palette[i + 2], palette[i + 1], palette[i], '\0'};
  std::string out = "BM";
  const auto offset = static_cast<std::uint32_t>(14 + info.size() + table.size());
  put32le(out, offset + static_cast<std::uint32_t>(data.size()));
  put32le(out, 0);
  put32le(out, offset);
  return out + info + table + data;
}

// Rows of `bits`-deep pixels from a pattern, each padded to four bytes.
std::string bmpRows(int width, int height, int bits) {
  std::string out;
  const size_t stride = (static_cast<size_t>(width) * bits + 31) / 32 * 4;
  for (int y = 0; y < height; ++y)
    for (size_t x = 0; x < stride; ++x) out += static_cast<char>((x * 29 + static_cast<size_t>(y) * 7) & 0xFF);
  return out;
}

// A GIF of one frame with a 256-colour table, its LZW data as 9-bit literal
// codes with a clear code before the table could grow past them.
std::string gif(int screenWidth, int screenHeight, int width, int height) {
  std::string g = "GIF89a";
  put16le(g, static_cast<unsigned>(screenWidth));
  put16le(g, static_cast<unsigned>(screenHeight));
  g += std::string{'\xF7', '\0', '\0'};
  for (int i = 0; i < 256; ++i) g += std::string{static_cast<char>(i), static_cast<char>(255 - i), static_cast<char>(i * 3)};
  g += '\x2C';
  put16le(g, 0);
  put16le(g, 0);
  put16le(g, static_cast<unsigned>(width));
  put16le(g, static_cast<unsigned>(height));
  g += '\0';
  g += '\x08';
  std::string lzw;
  std::uint32_t acc = 0;
  int have = 0, sinceClear = 0;
  auto code = [&](unsigned c) {
    acc |= c << have;
    for (have += 9; have >= 8; have -= 8, acc >>= 8) lzw += static_cast<char>(acc & 0xFF);
  };
  code(256);
  for (int i = 0; i < width * height; ++i) {
    if (++sinceClear == 250) code(256), sinceClear = 1;
    code(static_cast<unsigned>((i * 7) & 0xFF));
  }
  code(257);
  if (have > 0) lzw += static_cast<char>(acc & 0xFF);
  for (size_t at = 0; at < lzw.size(); at += 255) {
    const std::string block = lzw.substr(at, 255);
    g += static_cast<char>(block.size());
    g += block;
  }
  return g + std::string{'\0', '\x3B'};
}

// A lossless (with alpha) or lossy WebP of a pattern, from libwebp's encoder.
std::string webp(int width, int height, bool lossless) {
  std::vector<std::uint8_t> pixels(static_cast<size_t>(width) * height * 4);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<std::uint8_t>((i * 11) ^ (i >> 5));
  std::uint8_t* out = nullptr;
  const size_t size = lossless ? WebPEncodeLosslessRGBA(pixels.data(), width, height, width * 4, &out)
                               : WebPEncodeRGBA(pixels.data(), width, height, width * 4, 80, &out);
  std::string bytes(reinterpret_cast<const char*>(out), size);
  WebPFree(out);
  return bytes;
}

// What a capture of a file of a few hundred bytes may take at most; an
// ordinary capture's process peaks near 50 MiB (near 160 MiB under
// AddressSanitizer, whose shadow memory comes first; the picture that the
// bound is for takes several hundred MiB more in either build).
#if defined(__SANITIZE_ADDRESS__)
constexpr long kSmallFilePeakMiB = 256;
#else
constexpr long kSmallFilePeakMiB = 128;
#endif

// ---- the corpus ----

class Builder {
 public:
  void add(std::string family, std::string name, std::string bytes, bool movie = false, long peakMiB = 0) {
    entries.push_back(
        {std::move(family), std::to_string(entries.size()) + "-" + std::move(name), std::move(bytes), movie, peakMiB});
  }
  // Copies cut at `count` points spread over the file.
  void truncations(const std::string& family, const std::string& ext, const std::string& whole, int count,
                   bool movie = false) {
    for (int i = 0; i < count; ++i) {
      const size_t cut = whole.size() * static_cast<size_t>(i) / static_cast<size_t>(count);
      add(family, "cut" + std::to_string(cut) + ext, whole.substr(0, cut), movie);
    }
  }
  // Copies with a few bytes overwritten at random, from a fixed seed.
  void flips(const std::string& family, const std::string& ext, const std::string& whole, int count, bool movie = false) {
    std::mt19937 random(static_cast<unsigned>(whole.size()));
    for (int i = 0; i < count && !whole.empty(); ++i) {
      std::string copy = whole;
      const int changes = 1 + static_cast<int>(random() % 8);
      for (int c = 0; c < changes; ++c) copy[random() % copy.size()] = static_cast<char>(random());
      add(family, "flip" + std::to_string(i) + ext, copy, movie);
    }
  }
  std::vector<CorpusEntry> entries;
};

}  // namespace

StatusOr<std::vector<CorpusEntry>> AdversarialCorpus::make(const std::string& scratch) {
  Builder b;
  ASSIGN_OR_RETURN(Bytes cameraBytes, SampleImages::cameraJpeg(64, 48, 6, 85));
  const std::string camera = text(cameraBytes);
  ASSIGN_OR_RETURN(Bytes sceneBytes, PngCodec::encode(SampleImages::scene(40, 30)));
  const std::string scene = text(sceneBytes);
  const std::string plain = jpeg({});

  // Sound inputs, so the corpus also shows the ordinary answers.
  b.add("valid", "camera.jpg", camera);
  b.add("valid", "scene.png", scene);
  for (int o = 1; o <= 8; ++o) {
    ASSIGN_OR_RETURN(Bytes oriented, SampleImages::cameraJpeg(40, 24, o, 70));
    b.add("valid-orientation", "o" + std::to_string(o) + ".jpg", text(oriented));
  }

  // Dimension bombs: headers claiming sizes far beyond the pixels.
  for (auto [w, h] : std::vector<std::pair<unsigned, unsigned>>{
           {65535, 65535}, {65500, 1}, {1, 65500}, {0, 0}, {0, 48}, {30000, 30000}, {65535, 2}, {12000, 9000}}) {
    b.add("jpeg-dimension-bomb", std::to_string(w) + "x" + std::to_string(h) + ".jpg", withSize(plain, w, h));
    b.add("jpeg-dimension-bomb-camera", std::to_string(w) + "x" + std::to_string(h) + ".jpg", withSize(camera, w, h));
  }
  for (auto [w, h] : std::vector<std::pair<unsigned, unsigned>>{{0x7FFFFFFF, 0x7FFFFFFF}, {1000000, 1000000},
                                                                {100000, 1}, {1, 100000}, {0, 10}, {0xFFFFFFFF, 1},
                                                                {20000, 20000}, {16384, 16384}})
    b.add("png-dimension-bomb", std::to_string(w) + "x" + std::to_string(h) + ".png", pngClaiming(w, h));

  // Empty, tiny and magic-only files.
  for (const auto& [name, bytes] : std::vector<std::pair<std::string, std::string>>{
           {"empty.jpg", ""}, {"empty.png", ""}, {"one.jpg", "\xFF"}, {"soi.jpg", "\xFF\xD8"}, {"soi-eoi.jpg", "\xFF\xD8\xFF\xD9"},
           {"magic.png", "\x89PNG\r\n\x1A\n"}, {"nul.jpg", std::string(4096, '\0')}, {"ff.jpg", std::string(4096, '\xFF')},
           {"text.jpg", "hello, I am not a picture\n"}, {"html.png", "<html><script>alert(1)</script></html>"}})
    b.add("tiny", name, bytes);

  // Truncations of every base.
  b.truncations("truncated-camera-jpeg", ".jpg", camera, 60);
  b.truncations("truncated-png", ".png", scene, 40);
  const std::string progressive = jpeg({.width = 64, .height = 48, .progressive = true});
  b.truncations("truncated-progressive-jpeg", ".jpg", progressive, 30);

  // EXIF: loops, huge counts, floods, odd orientations.
  const std::vector<std::pair<std::string, std::string>> exifs{
      {"ifd-loop", tiff({{0x0112, 3, 1, 6}}, 8)},
      {"exif-ifd-self", tiff({{0x8769, 4, 1, 8}}, 0)},
      {"gps-ifd-self", tiff({{0x8825, 4, 1, 8}}, 0)},
      {"gps-out-of-range", tiff({{0x8825, 4, 1, 0x7FFFFFF0}}, 0)},
      {"count-ffff", tiff({{0x0112, 3, 1, 6}}, 0, "", 0xFFFF)},
      {"ascii-huge-count", tiff({{0x010F, 2, 0xFFFFFFF0, 26}}, 0, "Maker")},
      {"rational-huge-count", tiff({{0x829A, 5, 0x10000000, 26}}, 0)},
      {"orientation-0", tiff({{0x0112, 3, 1, 0}}, 0)},
      {"orientation-9", tiff({{0x0112, 3, 1, 9}}, 0)},
      {"orientation-ffff", tiff({{0x0112, 3, 1, 0xFFFF}}, 0)},
      {"orientation-as-ascii", tiff({{0x0112, 2, 4, 0x00363636}}, 0)},
      {"next-ifd-beyond", tiff({{0x0112, 3, 1, 3}}, 0xFFFFFFF0)},
      {"bad-byte-order", "XX*\0\x08\0\0\0"},
      {"empty", ""}};
  for (const auto& [name, t] : exifs) {
    b.add("exif-" + name, name + ".jpg", withExif(plain, t));
    b.add("exif-camera-" + name, name + ".jpg", withExif(camera, t));
  }
  {
    std::vector<IfdEntry> flood;
    for (unsigned i = 0; i < 5400; ++i) flood.push_back({0x9000 + (i % 500), 3, 1, i});
    b.add("exif-flood", "flood.jpg", withExif(plain, tiff(flood, 0)));
    std::string many = plain;
    for (int i = 0; i < 200; ++i) many = withExif(many, tiff({{0x0112, 3, 1, static_cast<std::uint32_t>(1 + i % 8)}}, 0));
    b.add("exif-repeated", "200-app1.jpg", many);
  }

  // PNG ancillary bombs: small chunks that inflate to hundreds of megabytes.
  for (size_t mb : {16, 128, 256}) {
    const std::string z = bomb(mb << 20);
    b.add("png-ztxt-bomb", std::to_string(mb) + "mb-ztxt.png", png({.extraChunks = chunk("zTXt", std::string("Comment\0\0", 9) + z)}));
    b.add("png-iccp-bomb", std::to_string(mb) + "mb-iccp.png", png({.extraChunks = chunk("iCCP", std::string("icc\0\0", 5) + z)}));
    b.add("png-itxt-bomb", std::to_string(mb) + "mb-itxt.png",
          png({.extraChunks = chunk("iTXt", std::string("XML:com.adobe.xmp\0\1\0\0\0", 22) + z)}));
  }
  {
    std::string manyText;
    for (int i = 0; i < 2000; ++i) manyText += chunk("tEXt", "Comment" + std::string(1, '\0') + std::string(200, 'x'));
    b.add("png-text-flood", "2000-text.png", png({.extraChunks = manyText}));
    b.add("png-exif-loop", "exif-loop.png", png({.extraChunks = chunk("eXIf", tiff({{0x0112, 3, 1, 6}}, 8))}));
    b.add("png-bad-crc", "bad-crc.png", [&] {
      std::string p = png({});
      p[30] ^= 0x55;
      return p;
    }());
  }

  // JPEG flavours: CMYK, arithmetic coding, progressive, grey, scan floods.
  for (int size : {8, 33, 64}) {
    const std::string s = std::to_string(size);
    b.add("jpeg-cmyk", "cmyk" + s + ".jpg", jpeg({.width = size, .height = size, .cmyk = true}));
    b.add("jpeg-arithmetic", "arith" + s + ".jpg", jpeg({.width = size, .height = size, .arithmetic = true}));
    b.add("jpeg-arithmetic-progressive", "arithprog" + s + ".jpg",
          jpeg({.width = size, .height = size, .arithmetic = true, .progressive = true}));
    b.add("jpeg-progressive", "prog" + s + ".jpg", jpeg({.width = size, .height = size, .progressive = true}));
    b.add("jpeg-grey", "grey" + s + ".jpg", jpeg({.width = size, .height = size, .grey = true}));
    b.add("jpeg-cmyk-progressive", "cmykprog" + s + ".jpg", jpeg({.width = size, .height = size, .cmyk = true, .progressive = true}));
  }
  {
    // The last scan of a progressive file repeated thousands of times.
    const size_t lastScan = progressive.rfind("\xFF\xDA");
    const size_t eoi = progressive.rfind("\xFF\xD9");
    if (lastScan != std::string::npos && eoi != std::string::npos && eoi > lastScan) {
      const std::string scan = progressive.substr(lastScan, eoi - lastScan);
      for (int repeats : {100, 5000, 20000}) {
        std::string flood = progressive.substr(0, eoi);
        for (int i = 0; i < repeats; ++i) flood += scan;
        b.add("jpeg-scan-flood", std::to_string(repeats) + "-scans.jpg", flood + "\xFF\xD9");
      }
    }
  }

  // PNG layouts.
  for (int colorType : {0, 2, 3, 4, 6})
    for (int depth : {1, 2, 4, 8, 16}) {
      const bool allowed = (colorType == 0) || (colorType == 3 && depth <= 8) || depth >= 8;
      if (!allowed) continue;
      for (bool interlaced : {false, true}) {
        const std::string name = "ct" + std::to_string(colorType) + "-d" + std::to_string(depth) + (interlaced ? "-i" : "");
        b.add(interlaced ? "png-interlaced" : depth == 16 ? "png-16bit" : colorType == 3 ? "png-palette" : "png-layout",
              name + ".png", png({.width = 37, .height = 23, .depth = depth, .colorType = colorType, .interlaced = interlaced}));
      }
    }
  b.add("png-palette-trns", "palette-trns.png", png({.colorType = 3, .extraChunks = chunk("tRNS", "\x00\x80")}));
  b.add("png-bad-color-type", "ct5.png", png({.colorType = 5}));
  b.add("png-bad-depth", "d3.png", png({.depth = 3, .colorType = 0}));

  // Extensions that lie.
  b.add("lying-extension", "jpeg-named.png", camera);
  b.add("lying-extension", "png-named.jpg", scene);
  b.add("lying-extension", "png-named.heic", scene);
  b.add("lying-extension", "jpeg-named.gif", camera);
  b.add("lying-extension", "jpeg-no-extension", camera);

  // Byte flips.
  b.flips("flipped-camera-jpeg", ".jpg", camera, 80);
  b.flips("flipped-png", ".png", scene, 50);
  b.flips("flipped-progressive-jpeg", ".jpg", progressive, 30);
  b.flips("flipped-arithmetic-jpeg", ".jpg", jpeg({.width = 40, .height = 40, .arithmetic = true}), 20);

  // BMP: indices past a short palette, headers far larger than their data,
  // every depth and both run-length codings, cut and damaged.
  {
    std::string repro = bmp(4, 4, 8, 0, std::string("\x0A\x14\x1E\x28\x32\x3C", 6), std::string(16, '\xFF'), 2);
    b.add("bmp-palette-overrun", "indices-past-palette.bmp", repro);
    std::string huge = bmp(10000, 10000, 24, 0, "", std::string(64, '\x40'));
    b.add("bmp-truncated-huge", "truncated-10000x10000.bmp", huge, false, kSmallFilePeakMiB);
    b.add("bmp-rle-bomb", "rle8-ends-at-once.bmp", bmp(10000, 10000, 8, 1, std::string(6, '\x7F'), std::string("\0\1", 2), 2),
          false, kSmallFilePeakMiB);
    std::string palette;
    for (int i = 0; i < 256 * 3; ++i) palette += static_cast<char>(i * 13);
    for (int bits : {1, 4, 8, 16, 24, 32})
      b.add("bmp-layout", std::to_string(bits) + "bit.bmp",
            bmp(23, 11, bits, 0, bits <= 8 ? palette.substr(0, (size_t{3} << bits)) : "", bmpRows(23, 11, bits)));
    // Runs, a literal run, a jump, row ends and the end.
    const std::string runs("\x05\x07\x00\x03\x01\x02\x03\x00\x00\x02\x02\x01\x04\x09\x00\x00\x06\x0B\x00\x01", 20);
    const std::string rle8 = bmp(12, 4, 8, 1, palette, runs);
    const std::string rle4 = bmp(12, 4, 4, 2, palette.substr(0, 48), runs);
    b.add("bmp-rle", "rle8.bmp", rle8);
    b.add("bmp-rle", "rle4.bmp", rle4);
    const std::string eight = bmp(23, 11, 8, 0, palette.substr(0, 30), bmpRows(23, 11, 8), 10);
    b.truncations("bmp-truncated", ".bmp", eight, 10);
    b.truncations("bmp-truncated-rle", ".bmp", rle8, 8);
    b.flips("bmp-flipped", ".bmp", eight, 15);
    b.flips("bmp-flipped-rle", ".bmp", rle4, 15);
  }

  // GIF: a huge screen around a one-pixel frame, an index past a two-colour
  // table, cut and damaged frames.
  {
    const std::string tinyFrame{'G', 'I', 'F', '8', '9', 'a', 0x10, 0x27, 0x10, 0x27, '\x80', 0, 0, '\xFF', 0, 0, 0, 0,
                                '\xFF', 0x2C, 0, 0, 0, 0, 1, 0, 1, 0, 0, 2, 2, 0x4C, 0x01, 0, 0x3B};
    b.add("gif-huge-screen", "tiny-frame-10000x10000-screen.gif", tinyFrame, false, kSmallFilePeakMiB);
    b.add("gif-index-past-table", "index-past-table.gif",
          std::string{'G', 'I', 'F', '8', '9', 'a', 1, 0, 2, 0, '\x80', 0, 0, '\xFF', 0, 0, 0, 0, '\xFF', 0x2C, 0, 0, 0, 0,
                      1, 0, 2, 0, 0, 2, 2, '\xC4', 0x0A, 0, 0x3B});
    const std::string whole = gif(20, 12, 20, 12);
    b.add("gif-valid", "literal.gif", whole);
    b.add("gif-frame-off-screen", "frame-larger-than-screen.gif", gif(4, 4, 20, 12));
    b.truncations("gif-truncated", ".gif", whole, 10);
    b.flips("gif-flipped", ".gif", whole, 20);
  }

  // TIFF: a JPEG strip declaring 10000 x 10000, a colour map cut short, cut
  // and damaged strips.
  {
    const std::string strip = jpeg({.width = 48, .height = 32, .grey = true});
    const std::uint32_t dataAt = 8 + 2 + 12 * 9 + 4;
    b.add("tiff-jpeg-huge", "jpeg-10000x10000.tif",
          tiff({{256, 4, 1, 10000}, {257, 4, 1, 10000}, {258, 3, 1, 8}, {259, 3, 1, 7}, {262, 3, 1, 1},
                {273, 4, 1, dataAt}, {277, 3, 1, 1}, {278, 4, 1, 10000}, {279, 4, 1, static_cast<std::uint32_t>(strip.size())}},
               0, strip),
          false, kSmallFilePeakMiB);
    const std::string pixels(16, '\x05');
    b.add("tiff-short-colour-map", "colour-map-of-two.tif",
          tiff({{256, 3, 1, 4}, {257, 3, 1, 4}, {258, 3, 1, 8}, {259, 3, 1, 1}, {262, 3, 1, 3}, {273, 4, 1, dataAt + 12},
                {277, 3, 1, 1}, {279, 4, 1, 16}, {320, 3, 6, dataAt}},
               0, std::string(12, '\x40') + pixels));
    std::string rgb;
    for (int i = 0; i < 24 * 16 * 3; ++i) rgb += static_cast<char>(i * 5);
    const std::string plainTiff =
        tiff({{256, 3, 1, 24}, {257, 3, 1, 16}, {258, 3, 1, 8}, {259, 3, 1, 1}, {262, 3, 1, 1}, {273, 4, 1, dataAt},
              {277, 3, 1, 1}, {278, 3, 1, 16}, {279, 4, 1, 24 * 16}},
             0, rgb.substr(0, 24 * 16));
    b.add("tiff-valid", "grey.tif", plainTiff);
    b.truncations("tiff-truncated", ".tif", plainTiff, 10);
    b.flips("tiff-flipped", ".tif", plainTiff, 20);
  }

  // WebP: lossless and lossy, cut and damaged.
  for (bool lossless : {true, false}) {
    const std::string whole = webp(24, 16, lossless);
    const std::string kind = lossless ? "lossless" : "lossy";
    b.add("webp-valid", kind + ".webp", whole);
    b.truncations("webp-truncated-" + kind, ".webp", whole, 8);
    b.flips("webp-flipped-" + kind, ".webp", whole, 15);
  }

  // Movies.
  auto movie = [&](const MovieSpec& recipe, const std::string& name) -> StatusOr<std::string> {
    const std::string path = scratch + "/" + name;
    RETURN_IF_ERROR(SampleMovies::make(path, recipe));
    ASSIGN_OR_RETURN(Bytes bytes, FileBytes::read(path));
    return text(bytes);
  };
  ASSIGN_OR_RETURN(std::string mov, movie({.seconds = 0.5}, "base.mov"));
  ASSIGN_OR_RETURN(std::string audioOnly, movie({.seconds = 0.5, .video = false}, "audio.mov"));
  ASSIGN_OR_RETURN(std::string videoOnly, movie({.seconds = 0.5, .audio = false}, "video.mov"));
  ASSIGN_OR_RETURN(std::string mp4, movie({.seconds = 0.5, .container = "mp4"}, "base.mp4"));
  ASSIGN_OR_RETURN(std::string pcm, movie({.seconds = 0.5, .pcmAudio = true}, "pcm.mov"));
  b.add("movie-valid", "movie.mov", mov, true);
  b.add("movie-valid", "movie.mp4", mp4, true);
  b.add("movie-audio-only", "audio-only.mov", audioOnly, true);
  b.add("movie-video-only", "video-only.mov", videoOnly, true);
  b.add("movie-pcm-audio", "pcm.mov", pcm, true);
  b.add("movie-playlist", "playlist.mov", "#EXTM3U\n#EXTINF:1,\nfile:///etc/passwd\n", true);
  b.add("movie-concat", "concat.mov", "ffconcat version 1.0\nfile /etc/passwd\n", true);
  b.add("movie-image", "image.mov", camera, true);
  b.add("movie-empty", "empty.mov", "", true);
  b.add("movie-as-photo", "movie.jpg", mov);
  b.truncations("movie-truncated", ".mov", mov, 40, true);
  b.flips("movie-flipped", ".mov", mov, 40, true);
  return std::move(b.entries);
}

}  // namespace velqor::fuzz
