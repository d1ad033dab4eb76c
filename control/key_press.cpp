#include "control/key_press.h"

#include "core/agent_records.h"

namespace halvora {

std::shared_ptr<HLVKeyPress> HLVKeyPress::from(const Json& value) {
    if (!hasRecordType(value, "KeyPress")) return nullptr;
    auto press = std::make_shared<HLVKeyPress>();
    press->key = rawField(value, "key");
    press->code = rawField(value, "code");
    press->state = rawField(value, "state");
    return press;
}

}  // namespace halvora
