#pragma once

#include <nlohmann/json.hpp>

#include "host/StatusOr.h"
#include "host/Value.h"

namespace velqor {

// JSON to the host's argument value model (see Value): integral numbers that fit
// 64 bits become integers, other numbers floats, objects dictionaries.
Value valueFromJson(const nlohmann::json& json);

// Parses a command's argument list; the text must be a JSON array.
StatusOr<Array> argumentsFromJson(std::string_view text);

// How an answer carries a value to the page: a URL as its absolute string, a
// byte buffer as {"bytes": "<base64>"}, a platform object as {"object": kind}.
nlohmann::json valueToJson(const Value& value);
nlohmann::json dictionaryToJson(const Dictionary& dictionary);

}  // namespace velqor
