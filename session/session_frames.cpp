// The frame-streaming operations of HLVSession: the loop, one pass, capture, sending, and the
// screen announcements.

#include <chrono>

#include "capture/frame_records.h"
#include "capture/screen_capture.h"
#include "core/halvora.h"
#include "platform/platform.h"
#include "session/session.h"

namespace halvora {
namespace {
constexpr std::chrono::milliseconds kNextPassDelay{100};
constexpr std::chrono::milliseconds kInactivePollDelay{500};
}  // namespace

void HLVSession::frameLoop() {
    if (frameLoopRunning_) return;
    frameLoopRunning_ = true;
    std::weak_ptr<HLVSession> weak = self();
    // Asynchronous even on the main thread, so activation finishes before the first capture.
    platform::mainQueue().post([weak] {
        if (auto session = weak.lock()) session->framePass(false);
    });
}

void HLVSession::framePass(bool requireActive) {
    if (requireActive && !isActive()) {
        frameLoopRunning_ = false;
        return;
    }
    std::weak_ptr<HLVSession> weak = self();
    if (platform::application().state() != platform::ApplicationState::active) {
        platform::mainQueue().postAfter(kInactivePollDelay, [weak] {
            if (auto session = weak.lock()) session->framePass(true);
        });
        return;
    }
    updateFrame([weak] {
        platform::mainQueue().postAfter(kNextPassDelay, [weak] {
            if (auto session = weak.lock()) session->framePass(true);
        });
    });
}

bool HLVSession::captureScreen() {
    const float scale = captureScale(platform::screen().bounds());
    return captureWindows(
        platform::application(), scale,
        [](const platform::Window& window) { return Halvora::instance().shouldCaptureWindow(window); }, capture_);
}

void HLVSession::updateFrame(std::function<void()> completion) {
    if (!captureScreen() || !changeDetector_.changed(capture_)) {
        completion();
        return;
    }
    const auto& jpeg = encoder_.encode(capture_, JpegEncoder::kDefaultQuality);
    if (jpeg.empty()) {
        completion();
        return;
    }
    sendFrame(std::vector<std::uint8_t>(jpeg), std::move(completion));
}

std::shared_ptr<platform::RealtimeSocket> HLVSession::connectedStream() const {
    auto stream = sockets_ ? sockets_->stream() : nullptr;
    return stream && stream->isConnected() ? stream : nullptr;
}

void HLVSession::sendFrame(std::vector<std::uint8_t> jpeg, std::function<void()> completion) {
    // The socket is read here, on the main thread; the sending queue touches only the counter.
    auto stream = sockets_ ? sockets_->stream() : nullptr;
    platform::backgroundQueue().post(
        [counter = frameCounter_, stream = std::move(stream), jpeg = std::move(jpeg),
         completion = std::move(completion)]() mutable {
            // A frame that cannot go out still spends its number.
            const std::uint64_t id = ++*counter;
            if (stream && stream->isConnected()) {
                stream->emitEvent("frame", {frameRecord(id, std::move(jpeg), std::chrono::system_clock::now())});
            }
            completion();
        });
}

void HLVSession::viewWillAppear(const platform::ViewControllerRef& viewController, bool /*animated*/) {
    if (!viewController || !isActive()) return;
    const auto top = platform::application().topViewController();
    if (!top || !top->isSameController(*viewController)) return;
    if (auto stream = connectedStream()) {
        stream->emitEvent("screen", {screenRecord(viewController->className(), viewController->title(),
                                             std::chrono::system_clock::now())});
    }
}

}  // namespace halvora
