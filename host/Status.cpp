#include "host/Status.h"

namespace velqor {

const char* codeName(Status::Code code) {
  switch (code) {
    case Status::Code::ok: return "ok";
    case Status::Code::invalidArgument: return "invalid argument";
    case Status::Code::notFound: return "not found";
    case Status::Code::alreadyExists: return "already exists";
    case Status::Code::failedPrecondition: return "failed precondition";
    case Status::Code::resourceExhausted: return "resource exhausted";
    case Status::Code::unavailable: return "unavailable";
    case Status::Code::dataLoss: return "data loss";
    case Status::Code::cancelled: return "cancelled";
    case Status::Code::internal: return "internal";
  }
  return "unknown";
}

std::string Status::toString() const {
  if (ok()) return "ok";
  return std::string(codeName(code_)) + ": " + message_;
}

std::ostream& operator<<(std::ostream& os, const Status& s) { return os << s.toString(); }

}  // namespace velqor
