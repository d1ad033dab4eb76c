#pragma once
// One key the agent pressed at the console: a "keypress" event from the session's stream.
// "key" and "code" follow a browser keyboard event's values.

#include <memory>
#include <optional>
#include <string>

#include "core/agent_event.h"
#include "core/json.h"

namespace halvora {

class HLVKeyPress final : public HLVAgentEvent {
public:
    std::optional<Json> key;
    std::optional<Json> code;
    std::optional<Json> state;
    // Never filled from records: the console's modifier flags are not acted on.
    bool ctrlKey = false;
    bool shiftKey = false;
    bool altKey = false;
    bool metaKey = false;

    // A record for an object whose "type" is "KeyPress"; none for anything else.
    static std::shared_ptr<HLVKeyPress> from(const Json& value);
    // Key-downs act; so does a record without a state.
    bool isKeyDown() const { return !state || (state->is_string() && *state == "keydown"); }
};

}  // namespace halvora
