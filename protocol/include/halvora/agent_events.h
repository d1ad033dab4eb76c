#pragma once
// What the agent sends on the session's stream, as records: open a page, touch, key press,
// laser pointer, drawing. The set is closed, so handlers take an HLVAgentEvent and std::visit it;
// a new kind of event then fails to compile where it is not handled.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "halvora/json.h"
#include "halvora/platform/input_delivery.h"
#include "halvora/platform/screen.h"

namespace halvora {

// Records and views share the platform's point and rectangle.
using HLVPoint = platform::Point;
using HLVRect = platform::Rect;

// The agent's request to open a web page on the device.
struct HLVURL {
    std::optional<Json> id;
    // The page to open: an absolute http or https URL, none when the record's "url" was not one.
    std::optional<std::string> url;

    // A record for an object whose "type" is "URL"; none for anything else.
    static std::optional<HLVURL> from(const Json& value);
};

// One press, move or release of the agent's pointer ("Touch" records), or one of the desktop
// pointer's extension records on the same event: a whole "Click" of a button, and a turn of the
// mouse "Wheel". The extensions have their own types, so a device that does not know them drops
// them rather than taking a right click for a tap.
struct HLVTouchEvent {
    enum class Kind { touch, click, wheel };

    Kind kind = Kind::touch;
    // The pointer's identifier, as the record gives it; equal for every event of one touch.
    std::optional<Json> id;
    std::optional<Json> state;
    // Fractions of the screen's width and height; (0, 0) when "x" or "y" is not a number. No range
    // check: a point off the screen is kept.
    HLVPoint fraction;
    // The same point on the screen, in points: the fraction times the screen's size when parsed.
    HLVPoint position;
    // Whether "x" and "y" were both finite numbers.
    bool hasPosition = false;

    // "pointerType": "touch" and "pen" contacts are fingers; anything else is a mouse.
    bool isFinger = false;
    // A click's "button" (touches are always primary).
    platform::MouseButton button = platform::MouseButton::primary;
    // A press's click count: "clicks" of a touchstart, "count" of a click; 0 when the record gives
    // none, and the toolkit counts as for its own mouse.
    int clicks = 0;
    // A wheel's "deltaX" and "deltaY", in notches of a mouse wheel, positive towards the end of the
    // content; each clamped to +-20.
    HLVPoint wheelNotches;
    // The modifier flags "ctrlKey", "shiftKey", "altKey", "metaKey"; a flag that is missing or not
    // true counts as released.
    platform::KeyModifiers modifiers;

    // A record for an object whose "type" is "Touch", "Click" or "Wheel"; none for anything else.
    static std::optional<HLVTouchEvent> from(const Json& value);

    bool isStart() const { return kind == Kind::touch && hasState("touchstart"); }
    bool isMove() const { return kind == Kind::touch && hasState("touchmove"); }
    bool isEnd() const { return kind == Kind::touch && hasState("touchend"); }

private:
    bool hasState(const char* name) const { return state && state->is_string() && *state == name; }
};

// One key the agent pressed at the console; "key" and "code" follow a browser keyboard event's.
struct HLVKeyPress {
    std::optional<Json> key;
    std::optional<Json> code;
    std::optional<Json> state;
    bool ctrlKey = false;
    bool shiftKey = false;
    bool altKey = false;
    bool metaKey = false;
    // The browser's "repeat": the key is held down.
    bool repeat = false;

    // A record for an object whose "type" is "KeyPress"; none for anything else.
    static std::optional<HLVKeyPress> from(const Json& value);
    // Key-downs act; so does a record without a state.
    bool isKeyDown() const { return !state || (state->is_string() && *state == "keydown"); }
    platform::KeyModifiers modifiers() const { return {ctrlKey, shiftKey, altKey, metaKey}; }
};

// Where the agent's laser pointer is.
struct HLVLaser {
    std::optional<Json> id;
    // Fractions of the screen's width and height; (0, 0) when "x" or "y" is not a number.
    HLVPoint position;
    // "touchend" when the agent lifted the pointer.
    std::optional<Json> state;

    // A record for an object whose "type" is "Laser"; none for anything else.
    static std::optional<HLVLaser> from(const Json& value);
    bool isEnd() const { return state && state->is_string() && *state == "touchend"; }
};

// The agent's sketch: an encoded image and where to lay it over the screen. A record without an
// image clears the drawing on show.
struct HLVDrawing {
    std::optional<Json> id;
    // The record's "image" as it stands (a binary attachment in practice).
    std::optional<Json> image;
    std::optional<Json> mime_type;
    // Fractions of the screen; the whole screen (0, 0, 1, 1) when any of the four is missing.
    HLVRect bounds{0, 0, 1, 1};

    // A record for an object whose "type" is "Drawing"; none for anything else.
    static std::optional<HLVDrawing> from(const Json& value);
    // The image bytes when "image" is binary; none otherwise (no image, or text).
    std::optional<std::vector<std::uint8_t>> imageBytes() const;
};

using HLVAgentEvent = std::variant<HLVURL, HLVTouchEvent, HLVKeyPress, HLVLaser, HLVDrawing>;

// The record a stream event carries: "url" -> HLVURL, "touch" -> HLVTouchEvent, "keypress" ->
// HLVKeyPress, "laser" -> HLVLaser, "drawing" -> HLVDrawing. None for another event name or a
// record of the wrong type.
std::optional<HLVAgentEvent> agentEventFrom(std::string_view eventName, const Json& record);

}  // namespace halvora
