#include "control/touch_event.h"

#include "platform/platform.h"

namespace halvora {

std::shared_ptr<HLVTouchEvent> HLVTouchEvent::from(const Json& value) {
    if (!hasRecordType(value, "Touch")) return nullptr;
    auto event = std::make_shared<HLVTouchEvent>();
    event->id = rawField(value, "id");
    event->state = rawField(value, "state");
    if (auto fraction = pointField(value)) event->fraction = *fraction;
    const auto screen = platform::screen().bounds();
    event->position = {event->fraction.x * screen.width, event->fraction.y * screen.height};
    return event;
}

}  // namespace halvora
