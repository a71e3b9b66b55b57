#include "host/CommandStatus.h"

#include <array>
#include <utility>

namespace velqor {
namespace {
constexpr std::array<std::pair<CommandStatus, std::string_view>, 7> kNames{{
    {CommandStatus::OK, "OK"},
    {CommandStatus::INVALID_PARAM, "INVALID_PARAM"},
    {CommandStatus::NO_PERMISSION, "NO_PERMISSION"},
    {CommandStatus::OBJECT_REFERENCE_FAILED, "OBJECT_REFERENCE_FAILED"},
    {CommandStatus::FAIL_TAKE_PICTURE, "FAIL_TAKE_PICTURE"},
    {CommandStatus::UNABLE_FILE_WRITE, "UNABLE_FILE_WRITE"},
    {CommandStatus::UNABLE_FILE_REMOVE, "UNABLE_FILE_REMOVE"},
}};
}  // namespace

std::string_view commandStatusName(CommandStatus status) {
  for (const auto& [s, n] : kNames)
    if (s == status) return n;
  return "UNKNOWN";
}

std::optional<CommandStatus> commandStatusFromName(std::string_view name) {
  for (const auto& [s, n] : kNames)
    if (n == name) return s;
  return std::nullopt;
}

}  // namespace velqor
