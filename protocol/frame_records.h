#pragma once
// The records the stream socket carries to the console: a frame and the screen being shown.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/json_fields.h"

namespace halvora {

// {"type":"Frame","id","image" (binary, sent as an attachment),"timestamp","mime_type":"image/jpeg"}
Json frameRecord(std::uint64_t id, std::vector<std::uint8_t> jpeg, std::chrono::system_clock::time_point when);

// {"type":"Screen","class","title" (null when the screen has none),"timestamp"}
Json screenRecord(const std::string& className, const std::optional<std::string>& title,
                  std::chrono::system_clock::time_point when);

}  // namespace halvora
