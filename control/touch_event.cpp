#include "control/touch_event.h"

namespace halvora {

std::shared_ptr<HLVTouchEvent> HLVTouchEvent::from(const Json& value) {
    if (!hasRecordType(value, "Touch")) return nullptr;
    auto event = std::make_shared<HLVTouchEvent>();
    event->id = rawField(value, "id");
    event->state = rawField(value, "state");
    auto x = floatField(value, "x");
    auto y = floatField(value, "y");
    if (x && y) event->fraction = {*x, *y};
    return event;
}

}  // namespace halvora
