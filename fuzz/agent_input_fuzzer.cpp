// Whatever the agent sends as touches and key presses, in any order and number, through the
// parsers and the injectors onto a small view tree (scroll views, cells, controls, text inputs)
// on a manual clock: any identifier type, unknown states, points off the screen or unreadable,
// a release that never comes. Nothing may crash, and no touch or timer may outlive the input.
// Inputs whose first byte is odd go to a toolkit that delivers input events itself: there, a
// pointer's moves and releases only ever follow its press, and the mouse is pressed once at most.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "control/key_press_injector.h"
#include "control/touch_injector.h"
#include "halvora/platform.h"
#include "tests/support/fake_ui.h"

namespace {

using halvora::platform::Rect;
using halvora::platform::ViewRole;
using halvora::testing::FakeView;

// Checks what the library delivers against what a window system could produce.
class CheckedDelivery final : public halvora::platform::InputDelivery {
public:
    bool deliverPointer(const halvora::platform::WindowRef& window, const halvora::platform::PointerInput& input) override {
        using Phase = halvora::platform::PointerInput::Phase;
        if (!window || !std::isfinite(input.position.x) || !std::isfinite(input.position.y)) __builtin_trap();
        if (input.phase == Phase::press) {
            if (held_) __builtin_trap();
            held_ = input.id;
        } else if (held_ != input.id) {
            __builtin_trap();
        } else if (input.phase == Phase::release) {
            held_.reset();
        }
        return true;
    }
    void deliverWheel(const halvora::platform::WindowRef& window, halvora::platform::Point, halvora::platform::Point notches,
                      halvora::platform::KeyModifiers) override {
        if (!window || !(std::abs(notches.x) <= 20 && std::abs(notches.y) <= 20)) __builtin_trap();
    }
    void deliverKey(const halvora::platform::KeyInput& input) override {
        if (input.key.empty() && input.code.empty()) __builtin_trap();
    }
    void cancelPointers() override { held_.reset(); }
    bool held() const { return held_.has_value(); }

private:
    std::optional<int> held_;
};

struct World {
    std::shared_ptr<halvora::platform::ManualClock> clock = std::make_shared<halvora::platform::ManualClock>();
    std::shared_ptr<halvora::platform::RunLoop> loop = std::make_shared<halvora::platform::RunLoop>(clock);
    std::shared_ptr<halvora::testing::FakeApplication> ui = std::make_shared<halvora::testing::FakeApplication>();
    halvora::HLVTouchInjector touches{nullptr};
    halvora::HLVKeyPressInjector keys;

    World() {
        halvora::platform::install({.mainQueue = loop, .application = ui});
        auto window = ui->showKeyWindow({255, 255, 255, 255});
        auto add = [](const std::shared_ptr<FakeView>& parent, Rect frame, ViewRole role) {
            auto view = std::make_shared<FakeView>(frame, halvora::testing::Rgba{0, 0, 0, 0}, role);
            parent->addSubview(view);
            return view;
        };
        auto list = add(window->root, {0, 100, 390, 600}, ViewRole::tableView);
        auto cell = add(list, {0, 0, 390, 60}, ViewRole::tableCell);
        add(cell, {10, 10, 100, 40}, ViewRole::control);
        auto inner = add(list, {0, 100, 390, 300}, ViewRole::scrollView);
        add(inner, {0, 0, 200, 40}, ViewRole::slider);
        ui->focused = add(inner, {0, 50, 390, 40}, ViewRole::textInput);
        add(window->root, {0, 720, 390, 60}, ViewRole::navigationBar);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World world;
    static CheckedDelivery delivery;
    world.ui->delivery = size > 0 && (data[0] & 1) ? &delivery : nullptr;
    const auto records = halvora::Json::parse(data + (size > 0 ? 1 : 0), data + size, nullptr, false);
    if (records.is_discarded() || !records.is_array()) return 0;
    for (const auto& record : records) {
        if (auto event = halvora::agentEventFrom("touch", record)) {
            world.touches.inject(std::get<halvora::HLVTouchEvent>(*event));
        } else if (auto key = halvora::agentEventFrom("keypress", record)) {
            world.keys.inject(std::get<halvora::HLVKeyPress>(*key));
        }
        world.loop->advance(std::chrono::milliseconds(100));
    }
    world.loop->advance(std::chrono::milliseconds(300));
    world.touches.cancelAll();
    if (world.touches.activeTouchCount() != 0 || world.loop->pendingTimerCount() != 0 || delivery.held()) __builtin_trap();
    return 0;
}
