#pragma once
// What the host application hears about the current session. Held strongly by the facade.

#include <memory>

namespace halvora {

class HLVSession;

class HalvoraDelegate {
public:
    virtual ~HalvoraDelegate() = default;
    // After every adopted update of the current session.
    virtual void halvoraSessionDidUpdate(const std::shared_ptr<HLVSession>& session) = 0;
    // When the current session's state becomes ended.
    virtual void halvoraSessionDidEnd(const std::shared_ptr<HLVSession>& session) = 0;
};

}  // namespace halvora
