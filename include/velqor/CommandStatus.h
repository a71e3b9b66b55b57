#pragma once

#include <optional>
#include <string_view>

namespace velqor {

/// The error statuses the plug-in answers with. OK is the host's success status
/// and never passed by the plug-in as an error.
///
/// Threads: the functions below are pure and may be called from any thread.
enum class CommandStatus {
  OK,
  INVALID_PARAM,
  NO_PERMISSION,
  OBJECT_REFERENCE_FAILED,
  FAIL_TAKE_PICTURE,
  UNABLE_FILE_WRITE,
  UNABLE_FILE_REMOVE,
};

/// The case's name, as answers print it ("NO_PERMISSION").
std::string_view commandStatusName(CommandStatus status);
/// The case with that name; none for an unknown name.
std::optional<CommandStatus> commandStatusFromName(std::string_view name);

}  // namespace velqor
