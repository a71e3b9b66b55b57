#include "platform/StringsFile.h"

#include <cctype>
#include <fstream>
#include <iterator>

namespace velqor {
namespace {

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

StatusOr<std::string> utf16ToUtf8(std::string_view bytes, bool bigEndian) {
  if (bytes.size() % 2 != 0) return Status::dataLoss("UTF-16 strings file has an odd length");
  std::string out;
  out.reserve(bytes.size() / 2);
  auto unit = [&](size_t i) -> char16_t {
    auto a = static_cast<unsigned char>(bytes[i]), b = static_cast<unsigned char>(bytes[i + 1]);
    return static_cast<char16_t>(bigEndian ? (a << 8 | b) : (b << 8 | a));
  };
  for (size_t i = 0; i < bytes.size(); i += 2) {
    char32_t cp = unit(i);
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      if (i + 3 >= bytes.size()) return Status::dataLoss("truncated UTF-16 surrogate pair");
      char32_t lo = unit(i + 2);
      if (lo < 0xDC00 || lo > 0xDFFF) return Status::dataLoss("invalid UTF-16 surrogate pair");
      cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
      i += 2;
    } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
      return Status::dataLoss("invalid UTF-16 surrogate");
    }
    appendUtf8(out, cp);
  }
  return out;
}

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  StatusOr<std::map<std::string, std::string>> run() {
    std::map<std::string, std::string> table;
    for (;;) {
      RETURN_IF_ERROR(skipSpaceAndComments());
      if (pos_ >= text_.size()) return table;
      ASSIGN_OR_RETURN(std::string key, token());
      RETURN_IF_ERROR(skipSpaceAndComments());
      std::string value = key;
      if (peek() == '=') {
        ++pos_;
        RETURN_IF_ERROR(skipSpaceAndComments());
        ASSIGN_OR_RETURN(value, token());
        RETURN_IF_ERROR(skipSpaceAndComments());
      }
      if (peek() != ';') return error("expected ';'");
      ++pos_;
      table[key] = value;
    }
  }

 private:
  char peek() const { return pos_ < text_.size() ? text_[pos_] : '\0'; }

  Status error(const std::string& what) const {
    return Status::dataLoss("strings file: " + what + " at byte " + std::to_string(pos_));
  }

  Status skipSpaceAndComments() {
    for (;;) {
      while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
      if (text_.substr(pos_, 2) == "/*") {
        size_t end = text_.find("*/", pos_ + 2);
        if (end == std::string_view::npos) return error("unterminated comment");
        pos_ = end + 2;
      } else if (text_.substr(pos_, 2) == "//") {
        size_t end = text_.find('\n', pos_);
        pos_ = end == std::string_view::npos ? text_.size() : end + 1;
      } else {
        return Status::okStatus();
      }
    }
  }

  StatusOr<std::string> token() {
    if (peek() == '"') return quoted();
    size_t start = pos_;
    while (pos_ < text_.size()) {
      unsigned char c = static_cast<unsigned char>(text_[pos_]);
      if (std::isalnum(c) || c == '_' || c == '.' || c == '$' || c == ':' || c == '/' || c == '-') {
        ++pos_;
      } else {
        break;
      }
    }
    if (start == pos_) return error("expected a string");
    return std::string(text_.substr(start, pos_ - start));
  }

  StatusOr<std::string> quoted() {
    ++pos_;  // opening quote
    std::string out;
    while (pos_ < text_.size()) {
      char c = text_[pos_++];
      if (c == '"') return out;
      if (c != '\\') {
        out.push_back(c);
        continue;
      }
      if (pos_ >= text_.size()) break;
      char e = text_[pos_++];
      switch (e) {
        case 'n': out.push_back('\n'); break;
        case 't': out.push_back('\t'); break;
        case 'r': out.push_back('\r'); break;
        case 'a': out.push_back('\a'); break;
        case 'b': out.push_back('\b'); break;
        case 'f': out.push_back('\f'); break;
        case 'v': out.push_back('\v'); break;
        case 'U':
        case 'u': {
          char32_t cp = 0;
          int digits = 0;
          while (digits < 4 && pos_ < text_.size() && std::isxdigit(static_cast<unsigned char>(text_[pos_]))) {
            char h = text_[pos_++];
            cp = cp * 16 + static_cast<char32_t>(std::isdigit(static_cast<unsigned char>(h)) ? h - '0' : (std::tolower(h) - 'a' + 10));
            ++digits;
          }
          if (digits == 0) return error("\\U without hex digits");
          appendUtf8(out, cp);
          break;
        }
        default:
          if (e >= '0' && e <= '7') {
            int v = e - '0';
            for (int k = 0; k < 2 && pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '7'; ++k)
              v = v * 8 + (text_[pos_++] - '0');
            out.push_back(static_cast<char>(v));
          } else {
            out.push_back(e);  // \" \\ \' and unknown escapes stand for themselves
          }
      }
    }
    return error("unterminated string");
  }

  std::string_view text_;
  size_t pos_ = 0;
};

}  // namespace

StatusOr<std::map<std::string, std::string>> StringsFile::parse(std::string_view bytes) {
  std::string converted;
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    ASSIGN_OR_RETURN(converted, utf16ToUtf8(bytes.substr(2), false));
    bytes = converted;
  } else if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFE &&
             static_cast<unsigned char>(bytes[1]) == 0xFF) {
    ASSIGN_OR_RETURN(converted, utf16ToUtf8(bytes.substr(2), true));
    bytes = converted;
  } else if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") {
    bytes.remove_prefix(3);
  }
  return Parser(bytes).run();
}

StatusOr<std::map<std::string, std::string>> StringsFile::load(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return Status::notFound("cannot open " + path);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (bytes.size() > 16 * 1024 * 1024) return Status::resourceExhausted(path + " is too large for a strings table");
  return parse(bytes);
}

}  // namespace velqor
