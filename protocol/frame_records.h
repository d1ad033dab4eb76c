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

// A changed rectangle of the picture, encoded on its own.
struct EncodedRegion {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> jpeg;
};

// For agents that announced they draw regions: only what changed since frame `base`, on a
// picture of `width` x `height` pixels. No "image" key, so that an agent unaware of regions
// skips the record rather than showing a piece as the whole picture.
// {"type":"Frame","id","timestamp","mime_type":"image/jpeg","width","height","base",
//  "regions":[{"x","y","width","height","image" (binary)}, ...]}
Json regionsFrameRecord(std::uint64_t id, std::uint64_t base, int width, int height,
                        std::vector<EncodedRegion> regions, std::chrono::system_clock::time_point when);

// {"type":"Screen","class","title" (null when the screen has none),"timestamp"}
Json screenRecord(const std::string& className, const std::optional<std::string>& title,
                  std::chrono::system_clock::time_point when);

}  // namespace halvora
