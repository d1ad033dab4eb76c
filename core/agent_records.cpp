#include "core/agent_records.h"

namespace halvora {

bool hasRecordType(const Json& value, const char* type) {
    if (!value.is_object()) return false;
    auto it = value.find("type");
    return it != value.end() && it->is_string() && it->get_ref<const std::string&>() == type;
}

std::optional<double> floatField(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_number()) return std::nullopt;
    return static_cast<double>(it->get<float>());
}

std::optional<HLVPoint> pointField(const Json& object) {
    auto x = floatField(object, "x");
    auto y = floatField(object, "y");
    if (!x || !y) return std::nullopt;
    return HLVPoint{*x, *y};
}

std::optional<Json> rawField(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end()) return std::nullopt;
    return *it;
}

}  // namespace halvora
