#pragma once
// Small helpers shared by the agent-event parsers: records carry positions as fractions of the
// screen, read in single precision like the console sends them.

#include <optional>

#include "core/json.h"
#include "platform/screen.h"

namespace halvora {

// The platform's geometry, so records and views share one point and rectangle type.
using HLVPoint = platform::Point;
using HLVRect = platform::Rect;

// True for an object whose "type" is the string `type`.
bool hasRecordType(const Json& value, const char* type);
// A number member read as a float and widened; none when missing or not a number.
std::optional<double> floatField(const Json& object, const char* key);
// "x" and "y" read as floats and widened; none unless both are numbers.
std::optional<HLVPoint> pointField(const Json& object);
// A member as it stands; none when missing.
std::optional<Json> rawField(const Json& object, const char* key);

}  // namespace halvora
