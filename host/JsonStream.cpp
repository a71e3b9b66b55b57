#include "host/JsonStream.h"

#include <nlohmann/json.hpp>

#include "host/Base64.h"
#include "host/ValueJson.h"

namespace velqor {
namespace {

// Length of the valid UTF-8 sequence at `p`, or 0 when it is not one.
size_t utf8Length(const unsigned char* p, size_t left) {
  if (p[0] < 0x80) return 1;
  size_t n = (p[0] & 0xE0) == 0xC0 ? 2 : (p[0] & 0xF0) == 0xE0 ? 3 : (p[0] & 0xF8) == 0xF0 ? 4 : 0;
  if (n == 0 || n > left) return 0;
  for (size_t i = 1; i < n; ++i)
    if ((p[i] & 0xC0) != 0x80) return 0;
  char32_t cp = p[0] & (0x7F >> n);
  for (size_t i = 1; i < n; ++i) cp = (cp << 6) | (p[i] & 0x3F);
  if ((n == 2 && cp < 0x80) || (n == 3 && cp < 0x800) || (n == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
      (cp >= 0xD800 && cp <= 0xDFFF))
    return 0;
  return n;
}

}  // namespace

void JsonStream::writeString(std::FILE* out, std::string_view text) {
  std::fputc('"', out);
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  size_t i = 0, runStart = 0;
  auto flush = [&] { std::fwrite(p + runStart, 1, i - runStart, out); };
  while (i < text.size()) {
    const unsigned char c = p[i];
    const char* escape = nullptr;
    char buf[8];
    if (c == '"') escape = "\\\"";
    else if (c == '\\') escape = "\\\\";
    else if (c == '\n') escape = "\\n";
    else if (c == '\r') escape = "\\r";
    else if (c == '\t') escape = "\\t";
    else if (c == '\b') escape = "\\b";
    else if (c == '\f') escape = "\\f";
    else if (c < 0x20) {
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      escape = buf;
    }
    if (escape) {
      flush();
      std::fputs(escape, out);
      runStart = ++i;
      continue;
    }
    const size_t n = utf8Length(p + i, text.size() - i);
    if (n == 0) {
      flush();
      std::fputs("\xEF\xBF\xBD", out);  // U+FFFD for a byte that is no UTF-8
      runStart = ++i;
      continue;
    }
    i += n;
  }
  flush();
  std::fputc('"', out);
}

void JsonStream::write(std::FILE* out, const Value& value) {
  if (const std::string* s = value.asString()) return writeString(out, *s);
  if (const Url* u = value.asUrl()) return writeString(out, u->absoluteString());
  if (const Dictionary* d = value.asDictionary()) {
    std::fputc('{', out);
    bool first = true;
    for (const auto& [k, v] : *d) {
      if (!first) std::fputc(',', out);
      first = false;
      writeString(out, k);
      std::fputc(':', out);
      write(out, v);
    }
    std::fputc('}', out);
    return;
  }
  if (const Array* a = value.asArray()) {
    std::fputc('[', out);
    for (size_t i = 0; i < a->size(); ++i) {
      if (i) std::fputc(',', out);
      write(out, (*a)[i]);
    }
    std::fputc(']', out);
    return;
  }
  if (const Bytes* b = value.asBytes()) {
    std::fputs("{\"bytes\":\"", out);
    // Whole groups of three bytes encode independently: stream in chunks.
    constexpr size_t kChunk = 3 * 65536;
    for (size_t off = 0; off < b->size(); off += kChunk) {
      const size_t n = std::min(kChunk, b->size() - off);
      std::string part = base64Encode(std::span(b->data() + off, n));
      std::fwrite(part.data(), 1, part.size(), out);
    }
    std::fputs("\"}", out);
    return;
  }
  // Scalars and platform objects: small, so the JSON library formats them.
  std::string text = nlohmann::json(valueToJson(value)).dump();
  std::fwrite(text.data(), 1, text.size(), out);
}

}  // namespace velqor
