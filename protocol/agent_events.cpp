#include "halvora/agent_events.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "base/json_fields.h"
#include "halvora/platform.h"
#include "protocol/record_fields.h"
#include "protocol/web_url.h"

namespace halvora {

std::optional<HLVURL> HLVURL::from(const Json& value) {
    if (!hasRecordType(value, "URL")) return std::nullopt;
    HLVURL record;
    record.id = rawField(value, "id");
    if (auto url = stringField(value, "url"); url && isOpenableWebUrl(*url)) record.url = *url;
    return record;
}

namespace {

bool flag(const Json& record, const char* name) {
    auto found = record.find(name);
    return found != record.end() && found->is_boolean() && found->get<bool>();
}

// A whole number from 1 to 3 (a triple click at most); 0 for anything else.
int clickCount(const Json& record, const char* name) {
    auto found = record.find(name);
    if (found == record.end() || !found->is_number_integer()) return 0;
    const auto count = found->get<std::int64_t>();
    return count >= 1 && count <= 3 ? static_cast<int>(count) : 0;
}

double notches(const Json& record, const char* name) {
    constexpr double kMostNotches = 20;
    auto value = floatField(record, name);
    if (!value || !std::isfinite(*value)) return 0;
    return std::clamp(*value, -kMostNotches, kMostNotches);
}

platform::KeyModifiers modifiersIn(const Json& record) {
    return {flag(record, "ctrlKey"), flag(record, "shiftKey"), flag(record, "altKey"), flag(record, "metaKey")};
}

}  // namespace

std::optional<HLVTouchEvent> HLVTouchEvent::from(const Json& value) {
    HLVTouchEvent event;
    if (hasRecordType(value, "Click")) {
        event.kind = Kind::click;
    } else if (hasRecordType(value, "Wheel")) {
        event.kind = Kind::wheel;
    } else if (!hasRecordType(value, "Touch")) {
        return std::nullopt;
    }
    event.id = rawField(value, "id");
    event.state = rawField(value, "state");
    if (auto fraction = pointField(value)) {
        event.fraction = *fraction;
        event.hasPosition = std::isfinite(fraction->x) && std::isfinite(fraction->y);
    }
    const auto screen = platform::screen().bounds();
    event.position = {event.fraction.x * screen.width, event.fraction.y * screen.height};
    const auto pointerType = stringField(value, "pointerType");
    event.isFinger = pointerType && (*pointerType == "touch" || *pointerType == "pen");
    if (event.kind == Kind::click) {
        const auto button = stringField(value, "button");
        if (button == "secondary") event.button = platform::MouseButton::secondary;
        if (button == "middle") event.button = platform::MouseButton::middle;
        event.clicks = clickCount(value, "count");
        if (event.clicks == 0) event.clicks = 1;
    } else if (event.kind == Kind::touch) {
        event.clicks = clickCount(value, "clicks");
    } else {
        event.wheelNotches = {notches(value, "deltaX"), notches(value, "deltaY")};
    }
    event.modifiers = modifiersIn(value);
    return event;
}

std::optional<HLVKeyPress> HLVKeyPress::from(const Json& value) {
    if (!hasRecordType(value, "KeyPress")) return std::nullopt;
    HLVKeyPress press;
    press.key = rawField(value, "key");
    press.code = rawField(value, "code");
    press.state = rawField(value, "state");
    const auto held = modifiersIn(value);
    press.ctrlKey = held.control;
    press.shiftKey = held.shift;
    press.altKey = held.alt;
    press.metaKey = held.meta;
    press.repeat = flag(value, "repeat");
    return press;
}

std::optional<HLVLaser> HLVLaser::from(const Json& value) {
    if (!hasRecordType(value, "Laser")) return std::nullopt;
    HLVLaser laser;
    laser.id = rawField(value, "id");
    laser.state = rawField(value, "state");
    if (auto position = pointField(value)) laser.position = *position;
    return laser;
}

std::optional<HLVDrawing> HLVDrawing::from(const Json& value) {
    if (!hasRecordType(value, "Drawing")) return std::nullopt;
    HLVDrawing drawing;
    drawing.id = rawField(value, "id");
    drawing.image = rawField(value, "image");
    drawing.mime_type = rawField(value, "mime_type");
    auto x = floatField(value, "x");
    auto y = floatField(value, "y");
    auto height = floatField(value, "height");
    auto width = floatField(value, "width");
    if (x && y && height && width) drawing.bounds = {*x, *y, *width, *height};
    return drawing;
}

std::optional<std::vector<std::uint8_t>> HLVDrawing::imageBytes() const {
    if (!image || !image->is_binary()) return std::nullopt;
    const auto& bytes = image->get_binary();
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

namespace {
template <typename Record>
std::optional<HLVAgentEvent> wrap(std::optional<Record> record) {
    if (!record) return std::nullopt;
    return HLVAgentEvent(std::move(*record));
}
}  // namespace

std::optional<HLVAgentEvent> agentEventFrom(std::string_view eventName, const Json& record) {
    if (eventName == "url") return wrap(HLVURL::from(record));
    if (eventName == "touch") return wrap(HLVTouchEvent::from(record));
    if (eventName == "keypress") return wrap(HLVKeyPress::from(record));
    if (eventName == "laser") return wrap(HLVLaser::from(record));
    if (eventName == "drawing") return wrap(HLVDrawing::from(record));
    return std::nullopt;
}

}  // namespace halvora
