#pragma once
// The agent's sketch: an encoded image and where to lay it over the screen. A record without an
// image clears the drawing on show.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/agent_event.h"
#include "core/agent_records.h"

namespace halvora {

class HLVDrawing final : public HLVAgentEvent {
public:
    std::optional<Json> id;
    // The record's "image" as it stands (a binary attachment in practice).
    std::optional<Json> image;
    std::optional<Json> mime_type;
    // Fractions of the screen; the whole screen (0, 0, 1, 1) when any of the four is missing.
    HLVRect bounds{0, 0, 1, 1};

    // A record for an object whose "type" is "Drawing"; none for anything else.
    static std::shared_ptr<HLVDrawing> from(const Json& value);
    // The image bytes when "image" is binary; none otherwise (no image, or text).
    std::optional<std::vector<std::uint8_t>> imageBytes() const;
};

}  // namespace halvora
