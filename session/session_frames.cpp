// The frame-streaming operations of HLVSession: the loop, one pass, capture, sending, and the
// screen announcements.

#include <chrono>

#include "capture/screen_capture.h"
#include "halvora/platform.h"
#include "halvora/session.h"
#include "protocol/frame_records.h"
#include "session/session_frames.h"
#include "session/session_sockets.h"

namespace halvora {
namespace {
constexpr std::chrono::milliseconds kNextPassDelay{100};
constexpr std::chrono::milliseconds kInactivePollDelay{500};
}  // namespace

bool HLVSession::isFrameLoopRunning() const { return frames_->loopRunning; }

void HLVSession::setWindowFilter(WindowFilter filter) { frames_->windowFilter = std::move(filter); }

const RgbaFrame& HLVSession::lastCapture() const { return frames_->capture; }

void HLVSession::invalidateFrame() { frames_->changeDetector.invalidate(); }

std::string HLVSession::lastFrameId() const { return std::to_string(frames_->counter->load()); }

void HLVSession::frameLoop() {
    if (frames_->loopRunning) return;
    frames_->loopRunning = true;
    std::weak_ptr<HLVSession> weak = self();
    // Asynchronous even on the main thread, so activation finishes before the first capture.
    platform::mainQueue().post([weak] {
        if (auto session = weak.lock()) session->framePass(false);
    });
}

void HLVSession::framePass(bool requireActive) {
    if (requireActive && !isActive()) {
        frames_->loopRunning = false;
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
    auto& application = platform::application();
    const auto key = application.keyWindow();
    const auto& others = frames_->windowFilter;
    return captureWindows(
        application, scale, [&](const platform::Window& window) { return isCapturedWindow(window, key, others); },
        application.sensitiveViews(), frames_->capture);
}

void HLVSession::updateFrame(std::function<void()> completion) {
    if (!captureScreen() || !frames_->changeDetector.changed(frames_->capture)) {
        completion();
        return;
    }
    const auto& jpeg = frames_->encoder.encode(frames_->capture, JpegEncoder::kDefaultQuality);
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
        [counter = frames_->counter, stream = std::move(stream), jpeg = std::move(jpeg),
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
