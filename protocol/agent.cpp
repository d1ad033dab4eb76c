#include "halvora/agent.h"

#include "base/json_fields.h"

namespace halvora {

std::shared_ptr<HLVAgent> HLVAgent::from(const Json& value) {
    if (!value.is_object()) return nullptr;
    auto agent = std::make_shared<HLVAgent>();
    agent->id = rawField(value, "id");
    agent->name = rawField(value, "name");
    return agent;
}

}  // namespace halvora
