#include "protocol/record_fields.h"

#include "base/json_fields.h"

namespace halvora {

bool hasRecordType(const Json& value, const char* type) { return stringField(value, "type") == type; }

std::optional<HLVPoint> pointField(const Json& object) {
    auto x = floatField(object, "x");
    auto y = floatField(object, "y");
    if (!x || !y) return std::nullopt;
    return HLVPoint{*x, *y};
}

}  // namespace halvora
