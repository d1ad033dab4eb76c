#include "base/json_fields.h"

namespace halvora {

const Json* member(const Json& object, const char* key) {
    if (!object.is_object()) return nullptr;
    auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::optional<Json> rawField(const Json& object, const char* key) {
    const Json* value = member(object, key);
    return value ? std::optional<Json>(*value) : std::nullopt;
}

std::optional<std::string> stringField(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<double> floatField(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value || !value->is_number()) return std::nullopt;
    return static_cast<double>(value->get<float>());
}

std::optional<std::uint64_t> positiveIntegerField(const Json& object, const char* key, std::uint64_t max) {
    const Json* value = member(object, key);
    if (!value || !value->is_number_integer()) return std::nullopt;
    std::uint64_t number = 0;
    if (value->is_number_unsigned()) {
        number = value->get<std::uint64_t>();
    } else {
        auto signedValue = value->get<std::int64_t>();
        if (signedValue <= 0) return std::nullopt;
        number = static_cast<std::uint64_t>(signedValue);
    }
    if (number == 0 || number > max) return std::nullopt;
    return number;
}

std::string describeFirst(const std::vector<Json>& items) {
    if (items.empty()) return "(no details)";
    return items[0].is_string() ? items[0].get<std::string>()
                                : items[0].dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace halvora
