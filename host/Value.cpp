#include "host/Value.h"

namespace velqor {

std::optional<bool> Value::asBool() const {
  if (auto* b = std::get_if<bool>(&storage_)) return *b;
  return std::nullopt;
}

std::optional<std::int64_t> Value::asInteger() const {
  if (auto* i = std::get_if<Integer>(&storage_)) return i->value;
  return std::nullopt;
}

std::optional<double> Value::asFloat() const {
  if (auto* f = std::get_if<Float>(&storage_)) return f->value;
  if (auto* i = std::get_if<Integer>(&storage_)) return static_cast<double>(i->value);
  return std::nullopt;
}

const std::string* Value::asString() const {
  auto* s = std::get_if<std::shared_ptr<const std::string>>(&storage_);
  return s ? s->get() : nullptr;
}

const Bytes* Value::asBytes() const {
  auto* b = std::get_if<std::shared_ptr<const Bytes>>(&storage_);
  return b ? b->get() : nullptr;
}

const Url* Value::asUrl() const { return std::get_if<Url>(&storage_); }

const Dictionary* Value::asDictionary() const {
  auto* d = std::get_if<std::shared_ptr<const Dictionary>>(&storage_);
  return d ? d->get() : nullptr;
}

const Array* Value::asArray() const {
  auto* a = std::get_if<std::shared_ptr<const Array>>(&storage_);
  return a ? a->get() : nullptr;
}

bool operator==(const Value& a, const Value& b) {
  if (a.storage_.index() != b.storage_.index()) return false;
  return std::visit(
      [&](const auto& x) -> bool {
        using T = std::decay_t<decltype(x)>;
        const auto& y = std::get<T>(b.storage_);
        if constexpr (std::is_same_v<T, std::monostate>) {
          return true;
        } else if constexpr (std::is_same_v<T, Value::Integer> || std::is_same_v<T, Value::Float>) {
          return x.value == y.value;
        } else if constexpr (std::is_same_v<T, std::shared_ptr<const std::string>> ||
                             std::is_same_v<T, std::shared_ptr<const Bytes>> ||
                             std::is_same_v<T, std::shared_ptr<const Dictionary>> ||
                             std::is_same_v<T, std::shared_ptr<const Array>>) {
          return *x == *y;
        } else {
          return x == y;
        }
      },
      a.storage_);
}

const Value* find(const Dictionary& d, const std::string& key) {
  auto it = d.find(key);
  return it == d.end() ? nullptr : &it->second;
}

}  // namespace velqor
