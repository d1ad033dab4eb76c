#pragma once
// Reading members of JSON objects that come from outside (service answers, socket packets, agent
// records, settings): a missing member, a member of another type and a non-object all read as none.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "halvora/json.h"

namespace halvora {

// The member itself; null when `object` is not an object or has no such member.
const Json* member(const Json& object, const char* key);
// A member as it stands.
std::optional<Json> rawField(const Json& object, const char* key);
std::optional<std::string> stringField(const Json& object, const char* key);
// A number read in single precision and widened, as the console writes its coordinates.
std::optional<double> floatField(const Json& object, const char* key);
// A whole number in 1...max; none when fractional, negative, zero or too large.
std::optional<std::uint64_t> positiveIntegerField(const Json& object, const char* key, std::uint64_t max);

// The first of an event's arguments for a log line: a string as it stands, anything else as JSON.
std::string describeFirst(const std::vector<Json>& items);

}  // namespace halvora
