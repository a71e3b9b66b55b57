#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace velqor {

// Standard alphabet with padding and no line breaks. `prefix` is written first,
// so a data URL is built in its final string without an intermediate copy.
std::string base64Encode(std::span<const std::uint8_t> bytes, std::string_view prefix = {});

// Decodes standard base64 (padding optional, no whitespace); none when invalid.
std::optional<std::string> base64Decode(std::string_view text);

}  // namespace velqor
