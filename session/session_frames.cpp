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
constexpr std::chrono::seconds kWholeFrameInterval{10};
// Past half the picture, the regions would cost about what the whole picture costs: the whole
// picture is sent instead.
constexpr double kMostChangedShare = 0.5;
// Socket.IO servers take at most 10 binary attachments per message: more regions are joined.
constexpr std::size_t kMostRegions = 10;
constexpr std::size_t kMostRegionsToJoin = 48;
}  // namespace

bool HLVSession::isFrameLoopRunning() const { return frames_->loopRunning; }

void HLVSession::setWindowFilter(WindowFilter filter) { frames_->windowFilter = std::move(filter); }

void HLVSession::setMaxFrameSide(int pixels) { frames_->maxFrameSide = pixels > 0 ? pixels : kDefaultMaxFrameSide; }

const RgbaFrame& HLVSession::lastCapture() const { return frames_->capture; }

void HLVSession::invalidateFrame() {
    frames_->changeDetector.invalidate();
    frames_->wholeDue = true;
}

void HLVSession::agentAsksForPicture(bool drawsRegions) {
    frames_->agentDrawsRegions = drawsRegions;
    invalidateFrame();
    // Nothing may render for a long while: the picture is not left waiting for it.
    askForPass();
}

std::string HLVSession::lastFrameId() const { return std::to_string(frames_->counter->load()); }

void HLVSession::frameLoop() {
    if (frames_->loopRunning) return;
    frames_->loopRunning = true;
    frames_->busy = true;
    std::weak_ptr<HLVSession> weak = self();
    frames_->renders = platform::application().observeRenders([weak] {
        if (auto session = weak.lock()) session->askForPass();
    });
    // Asynchronous even on the main thread, so activation finishes before the first capture.
    platform::mainQueue().post([weak] {
        if (auto session = weak.lock()) session->framePass(false);
    });
}

void HLVSession::askForPass() {
    if (!frames_->loopRunning) return;
    if (frames_->busy) {
        frames_->asked = true;
        return;
    }
    frames_->busy = true;
    std::weak_ptr<HLVSession> weak = self();
    platform::mainQueue().post([weak] {
        if (auto session = weak.lock()) session->framePass(true);
    });
}

void HLVSession::stopFrameLoop() {
    frames_->loopRunning = false;
    frames_->busy = frames_->asked = false;
    frames_->renders.reset();
    frames_->wholeTimer.cancel();
}

void HLVSession::framePass(bool requireActive) {
    if (requireActive && !isActive()) {
        stopFrameLoop();
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
            if (auto session = weak.lock()) session->passRested();
        });
    });
}

void HLVSession::passRested() {
    if (!frames_->loopRunning) return;
    frames_->busy = false;
    // Polled when the toolkit cannot tell when it renders; otherwise only when asked meanwhile.
    if (!frames_->renders || std::exchange(frames_->asked, false)) askForPass();
}

bool HLVSession::captureScreen() {
    auto& application = platform::application();
    const auto key = application.keyWindow();
    // The picture is the key window's: its size, not the screen's, decides whether it must shrink
    // (a 1280x800 window on a 4K screen stays one pixel per point).
    const float scale = captureScale(key ? key->bounds() : platform::screen().bounds(), frames_->maxFrameSide);
    const auto& others = frames_->windowFilter;
    return captureWindows(
        application, scale, [&](const platform::Window& window) { return isCapturedWindow(window, key, others); },
        application.sensitiveViews(), frames_->capture);
}

void HLVSession::updateFrame(std::function<void()> completion) {
    if (!captureScreen()) {
        // Nothing to show, or a sensitive place unknown for now: tried again after the pause.
        frames_->asked = true;
        completion();
        return;
    }
    const RgbaFrame& picture = frames_->capture;
    FrameChanges changes = frames_->changeDetector.compare(picture);
    if (changes.none()) {
        completion();
        return;
    }
    // Scattered changes make many rectangles, and joining them costs the cube of their number on
    // the main thread: past a few dozen the whole picture goes, as it would once joined anyway.
    const bool scattered = changes.regions.size() > kMostRegionsToJoin;
    if (!scattered) joinRegions(changes.regions, kMostRegions);
    long long changedArea = 0;
    for (const PixelRect& region : changes.regions) changedArea += region.area();
    const bool whole = changes.whole || !frames_->agentDrawsRegions || frames_->wholeDue || scattered ||
                       static_cast<double>(changedArea) > kMostChangedShare * static_cast<double>(picture.width) * picture.height;
    if (whole) {
        const auto& jpeg = frames_->encoder.encode(picture, JpegEncoder::kDefaultQuality);
        if (jpeg.empty()) {
            invalidateFrame();  // not sent: the next picture is not compared with it
            completion();
            return;
        }
        wholeFrameSent();
        sendFrame(std::vector<std::uint8_t>(jpeg), std::move(completion));
        return;
    }
    std::vector<EncodedRegion> regions;
    regions.reserve(changes.regions.size());
    for (const PixelRect& r : changes.regions) {
        EncodedRegion& region = regions.emplace_back(EncodedRegion{r.x, r.y, r.width, r.height, {}});
        if (!frames_->encoder.encodeRegionInto(picture, r, region.jpeg, JpegEncoder::kDefaultQuality)) {
            invalidateFrame();  // not sent: the next picture is not compared with it
            completion();
            return;
        }
    }
    sendRecord(
        [regions = std::move(regions), width = picture.width, height = picture.height](std::uint64_t id) mutable {
            return regionsFrameRecord(id, id - 1, width, height, std::move(regions), std::chrono::system_clock::now());
        },
        std::move(completion));
}

void HLVSession::wholeFrameSent() {
    frames_->wholeDue = false;
    frames_->wholeTimer.cancel();
    std::weak_ptr<HLVSession> weak = self();
    frames_->wholeTimer = platform::mainQueue().postAfter(kWholeFrameInterval, [weak] {
        if (auto session = weak.lock()) session->frames_->wholeDue = true;
    });
}

std::shared_ptr<platform::RealtimeSocket> HLVSession::connectedStream() const {
    auto stream = sockets_ ? sockets_->stream() : nullptr;
    return stream && stream->isConnected() ? stream : nullptr;
}

void HLVSession::sendFrame(std::vector<std::uint8_t> jpeg, std::function<void()> completion) {
    sendRecord(
        [jpeg = std::move(jpeg)](std::uint64_t id) mutable {
            return frameRecord(id, std::move(jpeg), std::chrono::system_clock::now());
        },
        std::move(completion));
}

void HLVSession::sendRecord(std::function<Json(std::uint64_t id)> record, std::function<void()> completion) {
    // The socket is read here, on the main thread; the sending queue touches only the counter.
    auto stream = sockets_ ? sockets_->stream() : nullptr;
    platform::backgroundQueue().post(
        [counter = frames_->counter, stream = std::move(stream), record = std::move(record),
         completion = std::move(completion)]() mutable {
            // A frame that cannot go out still spends its number, so regions that follow it name a
            // base the agent never had and are not drawn.
            const std::uint64_t id = ++*counter;
            if (stream && stream->isConnected()) stream->emitEvent("frame", {record(id)});
            completion();
        });
}

void HLVSession::viewWillAppear(const platform::ViewControllerRef& viewController, bool /*animated*/) {
    if (!viewController || !isActive()) return;
    const auto top = platform::application().topViewController();
    if (!top || !top->isSameController(*viewController)) return;
    // Another screen is drawn whole, whatever part of the picture it changed.
    frames_->wholeDue = true;
    announceScreen(viewController->className(), viewController->title());
}

void HLVSession::announceScreen(const std::string& className, const std::optional<std::string>& title) {
    if (!isActive()) return;
    if (auto stream = connectedStream()) {
        stream->emitEvent("screen", {screenRecord(className, title, std::chrono::system_clock::now())});
    }
}

}  // namespace halvora
