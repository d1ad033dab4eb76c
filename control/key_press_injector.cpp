#include "control/key_press_injector.h"

#include "control/delivered_input.h"
#include "control/touch_behaviours.h"
#include "halvora/platform.h"

namespace halvora {

void HLVKeyPressInjector::inject(const HLVKeyPress& keyPress) {
    if (auto* delivery = platform::application().inputDelivery()) return control::deliverKey(keyPress, *delivery);
    if (!keyPress.isKeyDown()) return;
    if (auto responder = platform::application().firstResponder()) control::keyDown(responder, keyPress);
}

}  // namespace halvora
