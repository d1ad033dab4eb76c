#pragma once
// Agent events arrive on the session's stream and are parsed into records of their own classes
// (URL, touch, key press, laser, drawing). Handlers tell them apart by dynamic type.

#include <memory>

namespace halvora {

class HLVAgentEvent {
public:
    virtual ~HLVAgentEvent() = default;

protected:
    HLVAgentEvent() = default;
    HLVAgentEvent(const HLVAgentEvent&) = default;
    HLVAgentEvent& operator=(const HLVAgentEvent&) = default;
};

using AgentEventPtr = std::shared_ptr<const HLVAgentEvent>;

}  // namespace halvora
