#pragma once
// Where the agent's laser pointer is: one "laser" event from the session's stream.

#include <memory>
#include <optional>
#include <string>

#include "core/agent_event.h"
#include "core/agent_records.h"

namespace halvora {

class HLVLaser final : public HLVAgentEvent {
public:
    std::optional<Json> id;
    // Fractions of the screen's width and height; (0, 0) when "x" or "y" is not a number.
    HLVPoint position;
    // "touchend" when the agent lifted the pointer.
    std::optional<Json> state;

    // A record for an object whose "type" is "Laser"; none for anything else.
    static std::shared_ptr<HLVLaser> from(const Json& value);
    bool isEnd() const { return state && state->is_string() && *state == "touchend"; }
};

}  // namespace halvora
