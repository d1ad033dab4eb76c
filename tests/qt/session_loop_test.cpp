// A whole session over real Qt Quick windows, composed as an application gets it from
// halvora::qt::install(): the frame loop's pictures as the agent would decode them, the overlay kept
// out of them, and sensitive items masked in every frame until the session ends.
#include <gtest/gtest.h>

#include <QImage>

#include <memory>
#include <optional>
#include <vector>

#include "halvora/halvora.h"
#include "facade/facade_access.h"
#include "halvora/delegate.h"
#include "halvora/platform.h"
#include "halvora/quick.h"
#include "qt/quick_view.h"
#include "quick_test_support.h"
#include "halvora/session.h"
#include "tests/support/fake_http_client.h"
#include "tests/support/fake_realtime_socket.h"
#include "tests/support/library_fixture.h"

namespace halvora::qt {
namespace {

using test::child;
using test::eventually;

// The home page has a blue badge; the checkout page a green header and a card in a colour nothing
// else on screen uses.
constexpr const char* kShopQml = R"(
    import QtQuick
    import QtQuick.Controls
    import Halvora
    Window {
        width: 390; height: 844; color: "white"
        function showCheckout() { stack.push(checkout) }
        function back() { stack.pop() }
        Page {
            id: checkout; objectName: "checkout"; title: "Checkout"; visible: false
            Halvora.redactedItems: [card]
            Rectangle { width: 390; height: 120; color: "#10a040" }
            Rectangle { id: card; objectName: "card"; x: 20; y: 300; width: 350; height: 90; color: "#ff00cc" }
        }
        StackView {
            id: stack; objectName: "stack"; anchors.fill: parent
            initialItem: Page {
                title: "Home"
                Rectangle { objectName: "badge"; x: 40; y: 200; width: 200; height: 200; color: "#2040c0" }
            }
        }
    })";

struct Frame {
    int id = 0;
    QImage image;
};

bool anyPixel(const QImage& image, bool (*match)(QColor)) {
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (match(image.pixelColor(x, y))) return true;
    return false;
}
bool isCardColour(QColor c) { return c.red() > 200 && c.green() < 70 && c.blue() > 150; }
bool isBannerRed(QColor c) { return c.red() > 200 && c.green() < 90 && c.blue() < 90; }
bool isCheckoutGreen(QColor c) { return c.red() < 60 && c.green() > 130 && c.blue() < 100; }
bool isBadgeBlue(QColor c) { return c.red() < 60 && c.green() < 100 && c.blue() > 160; }
bool isBadgeOrange(QColor c) { return c.red() > 200 && c.green() > 100 && c.green() < 170 && c.blue() < 60; }

class RefuseEveryWindow final : public HalvoraDelegate {
public:
    void halvoraSessionDidUpdate(const std::shared_ptr<HLVSession>&) override {}
    void halvoraSessionDidEnd(const std::shared_ptr<HLVSession>&) override {}
    std::optional<bool> halvoraShouldCaptureWindow(const platform::Window&) override { return false; }
};

class QtSessionTest : public ::testing::Test {
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
        window = test::showWindow(kShopQml);
        ASSERT_TRUE(window);
    }

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

    // Every frame sent so far, decoded.
    std::vector<Frame> frames() const {
        std::vector<Frame> decoded;
        for (const auto& [event, items] : stream()->emittedSoFar()) {
            if (event != "frame") continue;
            const auto& jpeg = items.at(0).at("image").get_binary();
            Frame frame{items.at(0).at("id").get<int>(), {}};
            frame.image.loadFromData(jpeg.data(), static_cast<int>(jpeg.size()), "JPEG");
            EXPECT_FALSE(frame.image.isNull()) << "frame " << frame.id << " is not a JPEG";
            decoded.push_back(std::move(frame));
        }
        return decoded;
    }
    // Waits for a frame that `match` finds a pixel in and returns how many frames were sent by then.
    std::size_t waitForFrameShowing(bool (*match)(QColor)) const {
        std::size_t count = 0;
        const bool seen = eventually([&] {
            const auto sent = frames();
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
};

TEST_F(QtSessionTest, FramesFollowTheScreenAndSyncResendsWithoutTheOverlayEvenIfEveryWindowIsRefused) {
    Halvora::instance().setDelegate(std::make_shared<RefuseEveryWindow>());
    ASSERT_NO_FATAL_FAILURE(activate());
    waitForFrameShowing(isBadgeBlue);
    // The banner is on the screen the user sees, but never in what the agent gets.
    ASSERT_TRUE(eventually([&] { return anyPixel(window->grabWindow(), isBannerRed); }));

    QTest::qWait(600);  // several passes over a still screen
    ASSERT_EQ(frames().size(), 1u);

    child(window.get(), "badge")->setProperty("color", QColor("#f08020"));
    waitForFrameShowing(isBadgeOrange);
    stream()->fire("sync");
    ASSERT_TRUE(eventually([&] { return frames().size() == 3; }));
    QTest::qWait(300);

    const auto sent = frames();
    ASSERT_EQ(sent.size(), 3u);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].id, static_cast<int>(i) + 1);
        EXPECT_EQ(sent[i].image.size(), QSize(231, 500));  // 390x844 points, longer side 500
        EXPECT_FALSE(anyPixel(sent[i].image, isBannerRed)) << "frame " << sent[i].id;
    }
    EXPECT_EQ(sent[2].image, sent[1].image);
}

TEST_F(QtSessionTest, ASensitiveItemIsMaskedInEveryFrameFromItsScreenOnAndUnmaskedAtTheEnd) {
    ASSERT_NO_FATAL_FAILURE(activate());
    waitForFrameShowing(isBadgeBlue);

    QMetaObject::invokeMethod(window.get(), "showCheckout");
    waitForFrameShowing(isCheckoutGreen);
    QQuickItem* card = child(window.get(), "card");
    auto masks = [card] {
        int count = 0;
        for (const auto& view : viewFor(card)->subviews()) count += view->role() == platform::ViewRole::redactionMask;
        return count;
    };
    EXPECT_EQ(masks(), 1);

    ASSERT_TRUE(eventually([&] { return !child(window.get(), "stack")->property("busy").toBool(); }));
    QMetaObject::invokeMethod(window.get(), "back");
    waitForFrameShowing(isBadgeBlue);
    EXPECT_EQ(masks(), 1);  // the screen went, its mask stays for the rest of the session
    QMetaObject::invokeMethod(window.get(), "showCheckout");
    waitForFrameShowing(isCheckoutGreen);
    ASSERT_TRUE(eventually([&] { return !child(window.get(), "stack")->property("busy").toBool(); }));
    QTest::qWait(300);
    const std::size_t sentBeforeEnd = frames().size();

    session->updateResource(record("ended"));
    ASSERT_TRUE(eventually([&] { return masks() == 0; }));
    EXPECT_TRUE(Halvora::instance().redactedViews().empty());
    QTest::qWait(300);
    EXPECT_FALSE(session->isFrameLoopRunning());

    const auto sent = frames();
    EXPECT_EQ(sent.size(), sentBeforeEnd);  // nothing after the end, when the card shows again
    for (const auto& frame : sent) EXPECT_FALSE(anyPixel(frame.image, isCardColour)) << "frame " << frame.id;
    EXPECT_TRUE(anyPixel(window->grabWindow(), isCardColour));
}

}  // namespace
}  // namespace halvora::qt
