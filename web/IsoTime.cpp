#include "web/IsoTime.h"

#include <cctype>
#include <ctime>

namespace velqor {
namespace {

// Reads exactly `digits` decimal digits at `at`.
bool number(const std::string& s, size_t& at, size_t digits, int& out) {
  if (at + digits > s.size()) return false;
  out = 0;
  for (size_t i = 0; i < digits; ++i) {
    const unsigned char c = static_cast<unsigned char>(s[at + i]);
    if (!std::isdigit(c)) return false;
    out = out * 10 + (c - '0');
  }
  at += digits;
  return true;
}

bool literal(const std::string& s, size_t& at, char c) {
  if (at >= s.size() || s[at] != c) return false;
  ++at;
  return true;
}

}  // namespace

std::optional<std::chrono::system_clock::time_point> IsoTime::parse(const std::string& text) {
  size_t at = 0;
  int year, month, day, hour, minute, second;
  if (text.size() > 64 || !number(text, at, 4, year) || !literal(text, at, '-') || !number(text, at, 2, month) ||
      !literal(text, at, '-') || !number(text, at, 2, day) || !(literal(text, at, 'T') || literal(text, at, 't')) ||
      !number(text, at, 2, hour) || !literal(text, at, ':') || !number(text, at, 2, minute) ||
      !literal(text, at, ':') || !number(text, at, 2, second))
    return std::nullopt;
  if (month < 1 || month > 12 || hour > 23 || minute > 59 || second > 60) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok()) return std::nullopt;
  std::chrono::nanoseconds fraction{0};
  if (literal(text, at, '.')) {
    const size_t start = at;
    long long scale = 1000000000;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) {
      scale /= 10;
      fraction += std::chrono::nanoseconds((text[at] - '0') * scale);
      ++at;
    }
    if (at == start) return std::nullopt;
  }
  int offsetMinutes = 0;
  if (!(literal(text, at, 'Z') || literal(text, at, 'z'))) {
    if (at >= text.size() || (text[at] != '+' && text[at] != '-')) return std::nullopt;
    const int sign = text[at++] == '-' ? -1 : 1;
    int hh, mm;
    if (!number(text, at, 2, hh)) return std::nullopt;
    literal(text, at, ':');
    if (!number(text, at, 2, mm) || hh > 23 || mm > 59) return std::nullopt;
    offsetMinutes = sign * (hh * 60 + mm);
  }
  if (at != text.size()) return std::nullopt;
  const auto when = std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
                    std::chrono::seconds(second) - std::chrono::minutes(offsetMinutes);
  return std::chrono::time_point_cast<std::chrono::system_clock::duration>(when + fraction);
}

}  // namespace velqor
