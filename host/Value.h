#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include "host/Url.h"

namespace velqor {

class Value;
using Dictionary = std::map<std::string, Value>;
using Array = std::vector<Value>;
using Bytes = std::vector<std::uint8_t>;

// A platform object carried in a dictionary (an image, a library asset). The
// dictionary only moves it around; readers downcast to the kind they expect and
// treat anything else as missing.
class PlatformObject {
 public:
  virtual ~PlatformObject() = default;
  virtual std::string kindName() const = 0;
};

// "A value of any type", as the host passes arguments and the plug-in fills
// answers and picker info. Integers and floats are kept apart because the
// argument model distinguishes them; everything else is what its name says.
//
// Value model of command arguments: a JSON number without a fractional part
// (one that is integral and fits 64 bits) is an integer and is also readable as
// a float; any other number is a float only; true/false are Booleans only;
// strings, null, arrays and objects are none of the three.
class Value {
 public:
  struct Integer { std::int64_t value; };
  struct Float { double value; };
  // Strings and byte buffers are shared, not copied, when a value is copied:
  // a data URL of a large movie travels from the builder to the page once.
  using Storage = std::variant<std::monostate, bool, Integer, Float, std::shared_ptr<const std::string>,
                               std::shared_ptr<const Bytes>, Url,
                               std::shared_ptr<const Dictionary>,
                               std::shared_ptr<const Array>,
                               std::shared_ptr<PlatformObject>>;

  Value() = default;
  Value(std::nullptr_t) {}
  Value(bool b) : storage_(b) {}
  Value(int i) : storage_(Integer{i}) {}
  Value(std::int64_t i) : storage_(Integer{i}) {}
  Value(double d) : storage_(Float{d}) {}
  Value(const char* s) : storage_(std::make_shared<const std::string>(s)) {}
  Value(std::string s) : storage_(std::make_shared<const std::string>(std::move(s))) {}
  Value(Bytes b) : storage_(std::make_shared<const Bytes>(std::move(b))) {}
  Value(std::shared_ptr<const Bytes> b) : storage_(std::move(b)) {}
  Value(Url u) : storage_(std::move(u)) {}
  Value(Dictionary d) : storage_(std::make_shared<const Dictionary>(std::move(d))) {}
  Value(Array a) : storage_(std::make_shared<const Array>(std::move(a))) {}
  Value(std::shared_ptr<PlatformObject> o) : storage_(std::move(o)) {}

  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }

  // Each accessor returns none when the value is not of that kind.
  std::optional<bool> asBool() const;
  std::optional<std::int64_t> asInteger() const;
  // Integers are floats too (see the value model above).
  std::optional<double> asFloat() const;
  const std::string* asString() const;
  const Bytes* asBytes() const;
  const Url* asUrl() const;
  const Dictionary* asDictionary() const;
  const Array* asArray() const;
  template <typename T>
  std::shared_ptr<T> asObject() const {
    if (auto* o = std::get_if<std::shared_ptr<PlatformObject>>(&storage_))
      return std::dynamic_pointer_cast<T>(*o);
    return nullptr;
  }

  const Storage& storage() const { return storage_; }

  friend bool operator==(const Value& a, const Value& b);

 private:
  Storage storage_;
};

// Prints a value as its JSON form (tests and diagnostics).
void PrintTo(const Value& value, std::ostream* os);

// Looks up a key; none when missing.
const Value* find(const Dictionary& d, const std::string& key);

}  // namespace velqor
