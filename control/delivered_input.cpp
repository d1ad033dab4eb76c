#include "control/delivered_input.h"

#include <algorithm>
#include <cmath>

#include "halvora/platform.h"

namespace halvora::control {

using platform::PointerInput;

namespace {

// A call climbs at most this many ancestors: a toolkit with a cycle in its tree must not hang
// the main thread.
constexpr int kMaxChain = 256;

enum class Phase { began, moved, ended };

// Offers a call to the extension of `view`'s class, then of each ancestor's; true when one took it.
bool offerToExtensions(const platform::ViewRef& view, Phase phase, const HLVTouches& touches,
                       const HLVTouchEvent& event) {
    if (HLVResponderRegistry::responders().empty()) return false;
    int depth = 0;
    for (auto current = view; current && current->isAlive() && depth < kMaxChain;
         current = current->superview(), ++depth) {
        auto extension = HLVResponderRegistry::responder(current->className());
        if (!extension) continue;
        const bool handled = phase == Phase::began   ? extension->halvoraTouchesBegan(touches, event, current)
                             : phase == Phase::moved ? extension->halvoraTouchesMoved(touches, event, current)
                                                     : extension->halvoraTouchesEnded(touches, event, current);
        if (handled) return true;
    }
    return false;
}

}  // namespace

struct DeliveredPointers::Pointer {
    Json key;
    int id = 0;
    bool isFinger = false;
    platform::WindowRef window;
    // What extensions are offered: the view under the press and the pointer's events.
    std::shared_ptr<HLVTouch> touch;
    // An extension took the press: the toolkit never saw it, so it sees nothing of the pointer.
    bool byExtension = false;
    HLVPoint lastInWindow;
};

DeliveredPointers::DeliveredPointers(WindowFilter isTouchable) : isTouchable_(std::move(isTouchable)) {}

void DeliveredPointers::inject(const HLVTouchEvent& event, platform::InputDelivery& delivery) {
    switch (event.kind) {
    case HLVTouchEvent::Kind::touch:
        if (event.isStart()) press(event, delivery);
        if (event.isMove() || event.isEnd()) moveOrRelease(event, delivery);
        return;
    case HLVTouchEvent::Kind::click:
        click(event, delivery);
        return;
    case HLVTouchEvent::Kind::wheel: {
        HLVPoint point;
        if (!event.hasPosition) return;
        if (auto window = windowAt(event.position, point)) {
            delivery.deliverWheel(window, point, event.wheelNotches, event.modifiers);
        }
        return;
    }
    }
}

std::vector<platform::WindowRef> touchableWindows(const WindowFilter& isTouchable) {
    auto windows = platform::application().windows();
    std::erase_if(windows, [&](const auto& window) {
        return !window || !window->isAlive() || (isTouchable && !isTouchable(*window));
    });
    std::reverse(windows.begin(), windows.end());
    return windows;
}

platform::WindowRef DeliveredPointers::windowAt(HLVPoint screenPoint, HLVPoint& inWindow) const {
    for (const auto& window : touchableWindows(isTouchable_)) {
        const HLVPoint point = window->convertFromScreen(screenPoint);
        if (window->bounds().contains(point)) {
            inWindow = point;
            return window;
        }
    }
    return nullptr;
}

// What extensions are given: every touch that is down, this pointer's first.
HLVTouches DeliveredPointers::touchesWith(const Pointer& pointer) const {
    HLVTouches touches{pointer.touch};
    for (const auto& other : pointers_) {
        if (other->touch && other->touch != pointer.touch) touches.push_back(other->touch);
    }
    return touches;
}

int DeliveredPointers::freeId() const {
    for (int id = 0;; ++id) {
        if (std::none_of(pointers_.begin(), pointers_.end(), [id](const auto& p) { return p->id == id; })) return id;
    }
}

void DeliveredPointers::press(const HLVTouchEvent& event, platform::InputDelivery& delivery) {
    const Json key = event.id.value_or(Json());
    const bool isFinger = event.isFinger;
    const auto fingers = std::count_if(pointers_.begin(), pointers_.end(), [](const auto& p) { return p->isFinger; });
    const bool full = isFinger ? static_cast<std::size_t>(fingers) >= kMostFingers
                               : std::any_of(pointers_.begin(), pointers_.end(), [](const auto& p) { return !p->isFinger; });
    const bool down = std::any_of(pointers_.begin(), pointers_.end(), [&](const auto& p) { return p->key == key; });
    if (!event.hasPosition || full || down) return;

    auto pointer = std::make_shared<Pointer>();
    pointer->window = windowAt(event.position, pointer->lastInWindow);
    if (!pointer->window) return;  // nothing the agent sees lies there
    pointer->key = key;
    pointer->id = freeId();
    pointer->isFinger = isFinger;
    pointers_.push_back(pointer);

    if (!HLVResponderRegistry::responders().empty()) {
        pointer->touch = std::make_shared<HLVTouch>(pointer->window->hitTest(pointer->lastInWindow));
        pointer->touch->addTouch(event);
        pointer->touch->setPhase(HLVTouch::HLVTouchPhaseBegan);
        pointer->byExtension = offerToExtensions(pointer->touch->target(), Phase::began, touchesWith(*pointer), event);
        if (pointer->byExtension) return;
    }
    PointerInput input;
    input.phase = PointerInput::Phase::press;
    input.id = pointer->id;
    input.isFinger = isFinger;
    input.clicks = event.clicks;
    input.position = pointer->lastInWindow;
    input.modifiers = event.modifiers;
    if (!delivery.deliverPointer(pointer->window, input)) std::erase(pointers_, pointer);
}

void DeliveredPointers::moveOrRelease(const HLVTouchEvent& event, platform::InputDelivery& delivery) {
    const Json key = event.id.value_or(Json());
    auto found = std::find_if(pointers_.begin(), pointers_.end(), [&](const auto& p) { return p->key == key; });
    if (found == pointers_.end()) return;
    const std::shared_ptr<Pointer> pointer = *found;
    const bool release = event.isEnd();
    if (release) pointers_.erase(found);
    // A move to nowhere is dropped; a release there still lets go, where the pointer last was.
    if (event.hasPosition && pointer->window->isAlive()) {
        pointer->lastInWindow = pointer->window->convertFromScreen(event.position);
    } else if (!release) {
        return;
    }

    if (pointer->touch) {
        pointer->touch->addTouch(event);
        pointer->touch->setPhase(release ? HLVTouch::HLVTouchPhaseEnded : HLVTouch::HLVTouchPhaseMoved);
        if (offerToExtensions(pointer->touch->target(), release ? Phase::ended : Phase::moved, touchesWith(*pointer), event)) {
            // The extension takes the pointer over: the toolkit lets go of its press unacted.
            if (!pointer->byExtension) delivery.cancelPointers();
            pointer->byExtension = true;
            return;
        }
    }
    if (pointer->byExtension) return;
    PointerInput input;
    input.phase = release ? PointerInput::Phase::release : PointerInput::Phase::move;
    input.id = pointer->id;
    input.isFinger = pointer->isFinger;
    input.position = pointer->lastInWindow;
    input.modifiers = event.modifiers;
    if (!delivery.deliverPointer(pointer->window, input)) std::erase(pointers_, pointer);
}

// A whole click goes to the toolkit alone: extensions know taps, and a secondary or middle button
// means nothing to them. It waits for no pointer: one that is down keeps its press.
void DeliveredPointers::click(const HLVTouchEvent& event, platform::InputDelivery& delivery) {
    const bool mouseDown = std::any_of(pointers_.begin(), pointers_.end(), [](const auto& p) { return !p->isFinger; });
    HLVPoint point;
    if (!event.hasPosition || mouseDown) return;
    auto window = windowAt(event.position, point);
    if (!window) return;
    PointerInput input;
    input.id = freeId();
    input.button = event.button;
    input.position = point;
    input.modifiers = event.modifiers;
    for (int click = 1; click <= event.clicks; ++click) {
        input.phase = PointerInput::Phase::press;
        input.clicks = click;
        if (!delivery.deliverPointer(window, input) || !window->isAlive()) return;
        input.phase = PointerInput::Phase::release;
        if (!delivery.deliverPointer(window, input) || !window->isAlive()) return;
    }
}

void DeliveredPointers::cancelAll(platform::InputDelivery* delivery) {
    const bool anyDelivered = std::any_of(pointers_.begin(), pointers_.end(), [](const auto& p) { return !p->byExtension; });
    pointers_.clear();
    if (delivery && anyDelivered) delivery->cancelPointers();
}

namespace {

bool isNamedKey(const std::string& key) {
    // Named keys ("Enter", "F5", "Unidentified") are two or more ASCII letters and digits; text is
    // anything else, a single letter included.
    return key.size() > 1 && std::all_of(key.begin(), key.end(), [](unsigned char c) {
               return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
           });
}

// Valid UTF-8 of printable characters only: no control characters, no broken sequences.
bool isPrintableUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
        if (length == 0 || i + length > text.size()) return false;
        if (length == 1 && (lead < 0x20 || lead == 0x7F)) return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
        }
        i += length;
    }
    return true;
}

std::string stringOf(const std::optional<Json>& value) {
    return value && value->is_string() ? value->get<std::string>() : std::string();
}

// What a key types: its "key" when that is text rather than the name of a key (one or more
// printable characters), and no Control or Meta key is held; empty otherwise.
std::string typedText(const HLVKeyPress& keyPress) {
    // Longer text comes from an input method's composition; a page of it is not a key stroke.
    constexpr std::size_t kLongestText = 256;
    const std::string key = stringOf(keyPress.key);
    if (key.empty() || key.size() > kLongestText || keyPress.ctrlKey || keyPress.metaKey) return {};
    if (isNamedKey(key) || !isPrintableUtf8(key)) return {};
    return key;
}

}  // namespace

void deliverKey(const HLVKeyPress& keyPress, platform::InputDelivery& delivery) {
    if (!keyPress.isKeyDown()) return;
    const auto focus = platform::application().firstResponder();
    if (!HLVResponderRegistry::responders().empty()) {
        int depth = 0;
        for (auto current = focus; current && current->isAlive() && depth < kMaxChain;
             current = current->superview(), ++depth) {
            auto extension = HLVResponderRegistry::responder(current->className());
            if (extension && extension->halvoraKeyDown(keyPress, current)) return;
        }
    }
    platform::KeyInput input;
    input.key = stringOf(keyPress.key);
    input.code = stringOf(keyPress.code);
    input.text = typedText(keyPress);
    input.modifiers = keyPress.modifiers();
    input.autoRepeat = keyPress.repeat;
    if (input.key.empty() && input.code.empty()) return;
    delivery.deliverKey(input);
}

}  // namespace halvora::control
