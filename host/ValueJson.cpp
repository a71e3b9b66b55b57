#include "host/ValueJson.h"

#include <cmath>
#include <limits>

#include "host/Base64.h"
#include "host/JsonReader.h"

namespace velqor {

Value valueFromJson(const nlohmann::json& json) {
  using Kind = nlohmann::json::value_t;
  switch (json.type()) {
    case Kind::boolean:
      return Value(json.get<bool>());
    case Kind::number_integer:
      return Value(json.get<std::int64_t>());
    case Kind::number_unsigned: {
      auto u = json.get<std::uint64_t>();
      if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return Value(static_cast<std::int64_t>(u));
      return Value(static_cast<double>(u));
    }
    case Kind::number_float: {
      double d = json.get<double>();
      // 2^63 is exactly representable; anything at or beyond it does not fit.
      if (std::isfinite(d) && std::trunc(d) == d && d >= -9223372036854775808.0 &&
          d < 9223372036854775808.0)
        return Value(static_cast<std::int64_t>(d));
      return Value(d);
    }
    case Kind::string:
      return Value(json.get<std::string>());
    case Kind::array: {
      Array a;
      for (const auto& e : json) a.push_back(valueFromJson(e));
      return Value(std::move(a));
    }
    case Kind::object: {
      Dictionary d;
      for (const auto& [k, v] : json.items()) d.emplace(k, valueFromJson(v));
      return Value(std::move(d));
    }
    default:
      return Value();
  }
}

StatusOr<Array> argumentsFromJson(std::string_view text) {
  // Argument lists are small; a data URL of a large photo is the biggest thing one carries.
  ASSIGN_OR_RETURN(nlohmann::json json, JsonReader::parse(text, "arguments", {.maxBytes = size_t{64} << 20}));
  if (!json.is_array()) return Status::invalidArgument("arguments must be a JSON array");
  Array args;
  for (const auto& e : json) args.push_back(valueFromJson(e));
  return args;
}

nlohmann::json valueToJson(const Value& value) {
  using nlohmann::json;
  return std::visit(
      [](const auto& x) -> json {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          return nullptr;
        } else if constexpr (std::is_same_v<T, bool>) {
          return x;
        } else if constexpr (std::is_same_v<T, Value::Integer>) {
          return x.value;
        } else if constexpr (std::is_same_v<T, Value::Float>) {
          return std::isfinite(x.value) ? json(x.value) : json(nullptr);
        } else if constexpr (std::is_same_v<T, std::shared_ptr<const std::string>>) {
          return *x;
        } else if constexpr (std::is_same_v<T, std::shared_ptr<const Bytes>>) {
          return json{{"bytes", base64Encode(*x)}};
        } else if constexpr (std::is_same_v<T, Url>) {
          return x.absoluteString();
        } else if constexpr (std::is_same_v<T, std::shared_ptr<const Dictionary>>) {
          return dictionaryToJson(*x);
        } else if constexpr (std::is_same_v<T, std::shared_ptr<const Array>>) {
          json a = json::array();
          for (const auto& e : *x) a.push_back(valueToJson(e));
          return a;
        } else {
          return json{{"object", x ? x->kindName() : std::string("none")}};
        }
      },
      value.storage());
}

nlohmann::json dictionaryToJson(const Dictionary& dictionary) {
  nlohmann::json out = nlohmann::json::object();
  for (const auto& [k, v] : dictionary) out[k] = valueToJson(v);
  return out;
}

void PrintTo(const Value& value, std::ostream* os) {
  *os << valueToJson(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace velqor
