#pragma once
// What the agent-event parsers share: the record's type tag and its position.

#include <optional>

#include "halvora/agent_events.h"
#include "halvora/json.h"

namespace halvora {

// True for an object whose "type" is the string `type`.
bool hasRecordType(const Json& value, const char* type);
// "x" and "y" read as floats and widened; none unless both are numbers.
std::optional<HLVPoint> pointField(const Json& object);

}  // namespace halvora
