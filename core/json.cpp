#include "core/json.h"

namespace halvora {

std::optional<std::string> stringField(const Json& object, const char* key) {
    if (!object.is_object()) return std::nullopt;
    auto it = object.find(key);
    if (it == object.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

std::string describeFirst(const std::vector<Json>& items) {
    if (items.empty()) return "(no details)";
    return items[0].is_string() ? items[0].get<std::string>()
                                : items[0].dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace halvora
