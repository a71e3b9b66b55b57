#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace velqor {

// Notes on why an image could not be encoded, in words: a codec that cannot
// make a representation because the whole bitmap it needs is not given (past
// the decode limits, or pixels that do not decode) adds one beside the empty
// result it returns. They are kept apart from the log, for whoever owns the
// notes to show. Each note carries a stamp taken when it was added, from the
// function given at construction (0 without one), so the owner can tell which
// result a note belongs to.
//
// Threads: any; add() is called from the worker threads that encode.
class EncodeNotes {
 public:
  struct Note {
    std::size_t stamp = 0;
    std::string text;
  };
  explicit EncodeNotes(std::function<std::size_t()> stamp = {}) : stamp_(std::move(stamp)) {}

  void add(std::string text) {
    const std::size_t stamp = stamp_ ? stamp_() : 0;
    std::lock_guard lock(mutex_);
    notes_.push_back({stamp, std::move(text)});
  }
  std::vector<Note> all() const {
    std::lock_guard lock(mutex_);
    return notes_;
  }
  // The notes stamped `stamp`, joined by "; "; none when there are none.
  std::optional<std::string> stamped(std::size_t stamp) const {
    std::lock_guard lock(mutex_);
    std::optional<std::string> out;
    for (const auto& n : notes_)
      if (n.stamp == stamp) out = out ? *out + "; " + n.text : n.text;
    return out;
  }

 private:
  std::function<std::size_t()> stamp_;
  mutable std::mutex mutex_;
  std::vector<Note> notes_;
};

}  // namespace velqor
