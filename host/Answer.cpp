#include "host/Answer.h"

#include "host/JsonStream.h"
#include "host/ValueJson.h"

namespace velqor {

nlohmann::json Answer::toJson() const {
  nlohmann::json j;
  j["status"] = std::string(commandStatusName(status));
  if (auto* s = std::get_if<std::string>(&payload)) {
    j["payload"] = *s;
  } else if (auto* d = std::get_if<Dictionary>(&payload)) {
    j["payload"] = dictionaryToJson(*d);
  } else {
    j["payload"] = nullptr;
  }
  j["keepCallback"] = keepCallback;
  return j;
}

std::string Answer::toJsonLine() const {
  return toJson().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void Answer::writeJsonLine(std::FILE* out) const {
  std::fputs(keepCallback ? "{\"keepCallback\":true,\"payload\":" : "{\"keepCallback\":false,\"payload\":", out);
  if (auto* s = std::get_if<std::string>(&payload)) {
    JsonStream::writeString(out, *s);
  } else if (auto* d = std::get_if<Dictionary>(&payload)) {
    JsonStream::write(out, Value(*d));
  } else {
    std::fputs("null", out);
  }
  std::fputs(",\"status\":", out);
  JsonStream::writeString(out, commandStatusName(status));
  std::fputs("}\n", out);
  std::fflush(out);
}

std::string Answer::messageText() const {
  if (auto* s = std::get_if<std::string>(&payload)) return *s;
  if (auto* d = std::get_if<Dictionary>(&payload)) {
    if (const Value* v = find(*d, "errorMsg"))
      if (auto* s = v->asString()) return *s;
  }
  return {};
}

}  // namespace velqor
