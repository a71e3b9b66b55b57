#include "web/AnswerCopies.h"

namespace velqor {

StatusOr<AnswerCopies::Copy> AnswerCopies::get(size_t index, const std::function<StatusOr<std::string>()>& make) {
  std::lock_guard lock(mutex_);
  std::erase_if(copies_, [](const auto& entry) { return entry.second.expired(); });
  if (auto it = copies_.find(index); it != copies_.end())
    if (auto held = it->second.lock()) return held;
  ASSIGN_OR_RETURN(std::string text, make());
  const size_t bytes = text.size();
  if (!budget_.take(bytes))
    return Status::unavailable("the server holds too many answers for readers; retry when they have read them");
  Copy copy(new std::string(std::move(text)), [budget = &budget_, bytes](const std::string* p) {
    delete p;
    budget->giveBack(bytes);
  });
  copies_[index] = copy;
  return copy;
}

}  // namespace velqor
