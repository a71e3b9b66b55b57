#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/StatusOr.h"
#include "web/BufferBudget.h"

namespace velqor {

// The serialized answers being sent to pages: one copy per answer however
// many connections read it, charged to the server's buffer budget while any
// reader holds it and given back when the last one lets go. When the budget
// cannot hold a new copy the reader is turned away (UNAVAILABLE), so readers
// that never read cost their sockets' buffers, not copies.
//
// Threads: any. The budget must outlive every copy handed out.
class AnswerCopies {
 public:
  using Copy = std::shared_ptr<const std::string>;
  explicit AnswerCopies(BufferBudget& budget) : budget_(budget) {}

  // The copy of answer `index`, made by `make` when no reader holds one.
  StatusOr<Copy> get(size_t index, const std::function<StatusOr<std::string>()>& make);

 private:
  BufferBudget& budget_;
  std::mutex mutex_;  // also makes one copy at a time: a burst of readers never serializes twice
  std::map<size_t, std::weak_ptr<const std::string>> copies_;
};

}  // namespace velqor
