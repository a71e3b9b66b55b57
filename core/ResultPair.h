#pragma once

#include <optional>

#include "host/CallBackManager.h"
#include "host/CommandStatus.h"
#include "host/Value.h"

namespace velqor {

// What a result builder returns: no status means success and the dictionary is
// the success payload; a status means failure and the dictionary is the error
// payload. An absent dictionary is answered as an empty one.
struct ResultPair {
  std::optional<CommandStatus> status;
  std::optional<Dictionary> dictionary;

  static ResultPair none() { return {}; }
  static ResultPair success(Dictionary d) { return {std::nullopt, std::move(d)}; }
  static ResultPair failure(CommandStatus s, const std::string& message) {
    return {s, Dictionary{{"errorMsg", Value(message)}}};
  }

  // The final answer for this pair: an error with the status, or a success;
  // an absent dictionary goes as an empty one.
  void sendTo(CallBackManager& cb) const {
    const Dictionary payload = dictionary.value_or(Dictionary{});
    if (status) {
      cb.error(*status, payload, false);
    } else {
      cb.success(payload, false);
    }
  }
};

}  // namespace velqor
