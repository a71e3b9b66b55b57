#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "web/RequestGuard.h"

namespace velqor {

// How a request says where its body ends, checked on the raw header fields
// before any byte of the body is read, so that this server and any proxy in
// front of it can never disagree about it: a request with both
// Content-Length and Transfer-Encoding, with Content-Lengths that differ or
// are not plain numbers, or with any transfer coding but a single "chunked"
// is refused with 400, and a chunked body with 411 (a body is read only with
// its length declared); the server closes the connection after either.
//
// Threads: any; pure.
class HttpFraming {
 public:
  using Fields = std::vector<std::pair<std::string, std::string>>;
  static std::optional<RequestGuard::Refusal> check(const Fields& fields);
};

}  // namespace velqor
