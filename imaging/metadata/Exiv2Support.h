#pragma once

namespace velqor {

// Exiv2's process-wide set-up, done once before any use from any thread: its
// XMP parser initialized (not thread-safe on first use) and its own logging
// muted, since every failure is reported through our return values.
class Exiv2Support {
 public:
  static void ensureInitialized();
};

}  // namespace velqor
