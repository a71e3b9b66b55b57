#include "host/Base64.h"

namespace velqor {
namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int decodeChar(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}
}  // namespace

std::string base64Encode(std::span<const std::uint8_t> bytes, std::string_view prefix) {
  std::string out;
  out.resize(prefix.size() + (bytes.size() + 2) / 3 * 4);
  char* p = out.data();
  for (char c : prefix) *p++ = c;
  size_t i = 0;
  const size_t n = bytes.size();
  for (; i + 3 <= n; i += 3) {
    std::uint32_t v = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    *p++ = kAlphabet[(v >> 18) & 63];
    *p++ = kAlphabet[(v >> 12) & 63];
    *p++ = kAlphabet[(v >> 6) & 63];
    *p++ = kAlphabet[v & 63];
  }
  if (i < n) {
    std::uint32_t v = bytes[i] << 16;
    if (i + 1 < n) v |= bytes[i + 1] << 8;
    *p++ = kAlphabet[(v >> 18) & 63];
    *p++ = kAlphabet[(v >> 12) & 63];
    *p++ = (i + 1 < n) ? kAlphabet[(v >> 6) & 63] : '=';
    *p++ = '=';
  }
  return out;
}

std::optional<std::string> base64Decode(std::string_view text) {
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  if (text.size() % 4 == 1) return std::nullopt;
  std::string out;
  out.reserve(text.size() * 3 / 4);
  std::uint32_t acc = 0;
  int bits = 0;
  for (char c : text) {
    int v = decodeChar(c);
    if (v < 0) return std::nullopt;
    acc = (acc << 6) | static_cast<std::uint32_t>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((acc >> bits) & 0xFF));
    }
  }
  return out;
}

}  // namespace velqor
