#pragma once
// A session over real Qt Quick windows, composed as an application gets it from
// halvora::qt::install(), with its frames decoded as the agent would see them, and a probe that
// captures as often as the scene changes beside the session's own loop.

#include <QImage>
#include <QPainter>
#include <QTimer>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "capture/screen_capture.h"
#include "facade/facade_access.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "halvora/quick.h"
#include "halvora/session.h"
#include "quick_test_support.h"
#include "tests/support/fake_http_client.h"
#include "tests/support/fake_realtime_socket.h"
#include "tests/support/library_fixture.h"

namespace halvora::qt::test {

struct Frame {
    int id = 0;
    QImage image;    // the whole picture, with a regions frame drawn over the one before it
    int regions = 0;  // how many regions it carried; 0 for a whole frame
    std::chrono::steady_clock::time_point sentAt;
};

inline bool anyPixel(const QImage& image, bool (*match)(QColor)) {
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (match(image.pixelColor(x, y))) return true;
    return false;
}
// Everything sensitive in the test windows is magenta, a colour nothing else uses.
inline bool isCardColour(QColor c) { return c.red() > 200 && c.green() < 70 && c.blue() > 150; }

// Connects the library to a fake service and shows the window windowQml() describes.
class SessionOverQuickWindow : public ::testing::Test {
protected:
    void SetUp() override {
        install();
        platform::install({.store = std::make_shared<testing::MemoryStore>(),
                           .http = http,
                           .sockets = sockets});
        Halvora::instance().setApi("http://svc");
        Halvora::instance().start();
        session = FacadeAccess::makeSession();
        ASSERT_TRUE(eventually([&] { return http->pendingCount() == 1; }));
        http->respondJson(200, R"({"id":"device","next_registration":600})");
        window = showWindow(windowQml());
        ASSERT_TRUE(window);
    }
    virtual const char* windowQml() const = 0;

    // Activates a session as the user's approval would, with its frame stream connected.
    void activate() {
        Halvora::instance().setCurrentSession(session);
        session->updateResource(record("pending"));
        session->activate([](OptionalError, std::shared_ptr<HLVSession>) {});
        ASSERT_TRUE(eventually([&] { return http->pendingCount() == 1; }));
        http->respondJson(200, record("active").dump());
        ASSERT_TRUE(stream());
        stream()->connected = true;
    }
    static Json record(const char* state) {
        return Json{{"type", "Session"},         {"id", "S"},           {"code", "123456"},
                    {"state", state},            {"control_url", "http://svc"}, {"control_token", "c1"},
                    {"stream_url", "http://svc"}, {"stream_token", "s1"}};
    }
    std::shared_ptr<testing::FakeRealtimeSocket> stream() const {
        auto socket = sockets->latestWithToken("s1");
        if (!socket) ADD_FAILURE() << "no stream socket";
        return socket;
    }

    // Every frame sent so far, decoded as an agent drawing regions sees it (each decoded once).
    const std::vector<Frame>& frames() const {
        for (auto& emission : stream()->emittedSince(eventsRead_)) {
            ++eventsRead_;
            if (emission.event != "frame") continue;
            const Json& record = emission.items.at(0);
            Frame frame{record.at("id").get<int>(), {}, 0, emission.at};
            if (!record.contains("regions")) {
                frame.image = jpegImage(record.at("image"));
            } else {
                EXPECT_TRUE(!decoded_.empty() && record.at("base") == decoded_.back().id) << "frame " << frame.id;
                frame.image = decoded_.empty() ? QImage() : decoded_.back().image.copy();
                EXPECT_EQ(QSize(record.at("width"), record.at("height")), frame.image.size()) << "frame " << frame.id;
                QPainter painter(&frame.image);
                for (const Json& region : record.at("regions")) {
                    const QImage piece = jpegImage(region.at("image"));
                    EXPECT_EQ(piece.size(), QSize(region.at("width"), region.at("height"))) << "frame " << frame.id;
                    painter.drawImage(QPoint(region.at("x"), region.at("y")), piece);
                    ++frame.regions;
                }
            }
            EXPECT_FALSE(frame.image.isNull()) << "frame " << frame.id << " is not a JPEG";
            decoded_.push_back(std::move(frame));
        }
        return decoded_;
    }
    static QImage jpegImage(const Json& binary) {
        const auto& jpeg = binary.get_binary();
        QImage image;
        image.loadFromData(jpeg.data(), static_cast<int>(jpeg.size()), "JPEG");
        return image.convertToFormat(QImage::Format_RGB32);
    }
    // Waits for a frame that `match` finds a pixel in and returns how many frames were sent by then.
    std::size_t waitForFrameShowing(bool (*match)(QColor)) const {
        std::size_t count = 0;
        const bool seen = eventually([&] {
            const auto& sent = frames();
            count = sent.size();
            return !sent.empty() && anyPixel(sent.back().image, match);
        });
        EXPECT_TRUE(seen) << "no frame shows the expected picture";
        return count;
    }

    std::shared_ptr<testing::FakeHttpClient> http = std::make_shared<testing::FakeHttpClient>();
    std::shared_ptr<testing::FakeSocketFactory> sockets = std::make_shared<testing::FakeSocketFactory>();
    std::shared_ptr<HLVSession> session;
    std::unique_ptr<QQuickWindow> window;

private:
    mutable std::size_t eventsRead_ = 0;
    mutable std::vector<Frame> decoded_;
};

// Counts every pass of a capture made as often as the scene changes, beside the session's own,
// so frames in the middle of transitions are looked at too.
class CaptureProbe {
public:
    CaptureProbe() {
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            auto& application = platform::application();
            const auto key = application.keyWindow();
            const bool captured = captureWindows(
                application, captureScale(key ? key->bounds() : platform::screen().bounds()),
                [&](const platform::Window& w) { return isCapturedWindow(w, key, {}); }, application.sensitiveViews(),
                canvas_);
            ++(captured ? shown : refused);
            if (captured && containsMagenta(canvas_)) ++leaked;
        });
        timer_.start(5);
    }
    int shown = 0, refused = 0, leaked = 0;

private:
    // isCardColour on the raw bytes: the probe runs every few milliseconds, and in a sanitized
    // build a QColor per pixel would leave the session's own passes little of the main thread.
    static bool containsMagenta(const RgbaFrame& canvas) {
        for (int y = 0; y < canvas.height; ++y) {
            const std::uint8_t* p = canvas.row(y);
            for (int x = 0; x < canvas.width; ++x, p += RgbaFrame::kBytesPerPixel) {
                if (p[0] > 200 && p[1] < 70 && p[2] > 150) return true;
            }
        }
        return false;
    }
    QTimer timer_;
    RgbaFrame canvas_;
};

}  // namespace halvora::qt::test
