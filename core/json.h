#pragma once
// JSON as the library handles it: objects keep insertion order, because key order is part of
// what the service and the console see (record keys, request bodies).

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace halvora {

using Json = nlohmann::ordered_json;

// The value, or JSON null when there is none: for putting possibly missing values into objects.
template <typename T>
Json NotNil(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

// A string member of an object, none when absent or of another type.
std::optional<std::string> stringField(const Json& object, const char* key);

// The first of an event's arguments for a log line: a string as it stands, anything else as JSON.
std::string describeFirst(const std::vector<Json>& items);

}  // namespace halvora
