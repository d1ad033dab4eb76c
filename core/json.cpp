#include "core/json.h"

namespace halvora {

std::optional<std::string> stringField(const Json& object, const char* key) {
    if (!object.is_object()) return std::nullopt;
    auto it = object.find(key);
    if (it == object.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

}  // namespace halvora
