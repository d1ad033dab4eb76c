#include "core/agent.h"

namespace halvora {
namespace {
std::optional<Json> member(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end()) return std::nullopt;
    return *it;
}
}  // namespace

std::shared_ptr<HLVAgent> HLVAgent::from(const Json& value) {
    if (!value.is_object()) return nullptr;
    auto agent = std::make_shared<HLVAgent>();
    agent->id = member(value, "id");
    agent->name = member(value, "name");
    return agent;
}

}  // namespace halvora
