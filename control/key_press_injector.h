#pragma once
// Hands the agent's key presses to the view with the keyboard focus in the key window. On a
// toolkit that delivers input events itself, they become its key events (after the extensions of
// that view and its ancestors were offered them). Otherwise a text input types, deletes or moves
// its caret; any other view offers the key to the extension for its class and passes it to its
// superview.

#include "halvora/agent_events.h"

namespace halvora {

class HLVKeyPressInjector {
public:
    // Key-downs (and records without a state) act; every other state is dropped.
    void inject(const HLVKeyPress& keyPress);
};

}  // namespace halvora
