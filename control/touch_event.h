#pragma once
// One press, move or release of the agent's pointer: a "touch" event from the session's stream.

#include <memory>
#include <optional>
#include <string>

#include "core/agent_event.h"
#include "core/agent_records.h"

namespace halvora {

class HLVTouchEvent final : public HLVAgentEvent {
public:
    // The pointer's identifier, as the record gives it; equal for every event of one touch.
    std::optional<Json> id;
    std::optional<Json> state;
    // Fractions of the screen's width and height; (0, 0) when "x" or "y" is not a number. No range
    // check: a point off the screen is kept.
    HLVPoint fraction;
    // The same point on the screen, in points: the fraction times the screen's size when parsed.
    HLVPoint position;

    // A record for an object whose "type" is "Touch"; none for anything else.
    static std::shared_ptr<HLVTouchEvent> from(const Json& value);

    bool isStart() const { return hasState("touchstart"); }
    bool isMove() const { return hasState("touchmove"); }
    bool isEnd() const { return hasState("touchend"); }

private:
    bool hasState(const char* name) const { return state && state->is_string() && *state == name; }
};

}  // namespace halvora
