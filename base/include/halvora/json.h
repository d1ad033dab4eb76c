#pragma once
// JSON as the library handles it: objects keep insertion order, because key order is part of
// what the service and the console see (record keys, request bodies).

#include <optional>

#include <nlohmann/json.hpp>

namespace halvora {

using Json = nlohmann::ordered_json;

// The value, or JSON null when there is none: for putting possibly missing values into objects.
template <typename T>
Json NotNil(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

}  // namespace halvora
