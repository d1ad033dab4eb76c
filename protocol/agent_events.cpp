#include "halvora/agent_events.h"

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

std::optional<HLVTouchEvent> HLVTouchEvent::from(const Json& value) {
    if (!hasRecordType(value, "Touch")) return std::nullopt;
    HLVTouchEvent event;
    event.id = rawField(value, "id");
    event.state = rawField(value, "state");
    if (auto fraction = pointField(value)) event.fraction = *fraction;
    const auto screen = platform::screen().bounds();
    event.position = {event.fraction.x * screen.width, event.fraction.y * screen.height};
    return event;
}

std::optional<HLVKeyPress> HLVKeyPress::from(const Json& value) {
    if (!hasRecordType(value, "KeyPress")) return std::nullopt;
    HLVKeyPress press;
    press.key = rawField(value, "key");
    press.code = rawField(value, "code");
    press.state = rawField(value, "state");
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
