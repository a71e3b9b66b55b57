#include "host/Answer.h"

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

std::string Answer::messageText() const {
  if (auto* s = std::get_if<std::string>(&payload)) return *s;
  if (auto* d = std::get_if<Dictionary>(&payload)) {
    if (const Value* v = find(*d, "errorMsg"))
      if (auto* s = v->asString()) return *s;
  }
  return {};
}

}  // namespace velqor
