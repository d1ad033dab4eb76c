// The session screens in Qt Quick: every layout with its outlets, and the user-started flow in a
// real window: pushed onto the application's StackView, the code, approval by a click, the
// countdown, activation back to the root, then the banner's management screen and its end; and the
// start by itself when the application's event loop is up.
#include <gtest/gtest.h>

#include <QDesktopServices>
#include <QQmlComponent>
#include <QQmlEngine>

#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "halvora/quick.h"
#include "overlay/halvora_window.h"
#include "qt/quick_view.h"
#include "qt/screen_presentation.h"
#include "quick_test_support.h"
#include "tests/support/fake_http_client.h"
#include "tests/support/fake_realtime_socket.h"
#include "tests/support/layout_outlets.h"
#include "tests/support/library_fixture.h"

namespace halvora::qt {
namespace {

using test::eventually;
using test::findItem;

TEST(SessionLayouts, EveryLayoutBuildsWithItsOutletsFoundByObjectName) {
    for (const auto& [name, outlets] : halvora::testing::layoutOutlets()) {
        SCOPED_TRACE(name);
        auto layout = loadQuickLayout(name, nullptr);
        ASSERT_TRUE(layout);
        for (const auto& outlet : outlets) {
            auto view = layout->outlet(outlet);
            ASSERT_TRUE(view) << outlet;
            EXPECT_EQ(findItem(itemOf(layout->view()), QString::fromStdString(outlet)), itemOf(view));
        }
        EXPECT_FALSE(layout->outlet("missing"));
    }
    EXPECT_EQ(loadQuickLayout("HLVNoSuchView", nullptr), nullptr);
}

Json record(const char* state, bool agent = false) {
    Json session{{"type", "Session"},           {"id", "S"},           {"code", "123456"}, {"state", state},
                 {"control_url", "http://svc"}, {"control_token", "c1"}, {"stream_url", "http://svc"},
                 {"stream_token", "s1"}};
    if (agent) session["agent"] = {{"id", "a7"}, {"name", "Dana"}};
    return session;
}

constexpr const char* kAppQml = R"(
import QtQuick
import QtQuick.Controls
import Halvora
ApplicationWindow {
    width: 390; height: 700
    StackView {
        id: stack
        objectName: "stack"
        anchors.fill: parent
        initialItem: Page { title: "Home" }
    }
    Component { id: flow; SessionFlow {} }
    // Immediate: an offscreen window does not animate, and a StackView refuses input mid-transition.
    function getHelp() { stack.push(flow, {}, StackView.Immediate) }
}
)";

class SessionScreensTest : public ::testing::Test {
protected:
    void SetUp() override {
        install();
        platform::install({.store = std::make_shared<halvora::testing::MemoryStore>(), .http = http,
                           .sockets = sockets});
        Halvora::instance().setApi("http://svc");
        Halvora::instance().start();
        ASSERT_TRUE(eventually([&] { return http->pendingCount() == 1; }));
        http->respondJson(200, R"({"id":"device","next_registration":600})");
        window = test::showWindow(kAppQml);
        ASSERT_TRUE(window);
    }
    QQuickItem* item(const char* name) const { return findItem(window->contentItem(), QString::fromLatin1(name)); }
    QString text(const char* name) const {
        QQuickItem* found = item(name);
        return found ? found->property("text").toString() : QString();
    }
    // A user's click in the middle of an item.
    void click(const char* name) const {
        QQuickItem* target = item(name);
        ASSERT_TRUE(target) << name;
        // Laid out and still: a StackView push slides the page in.
        QPointF last(-1, -1);
        ASSERT_TRUE(eventually([&] {
            const QPointF at = target->mapToScene({0, 0});
            const bool settled = target->width() > 0 && at == last;
            last = at;
            QTest::qWait(20);
            return settled;
        }));
        const QPointF centre = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(window.get(), Qt::LeftButton, {}, centre.toPoint());
    }
    bool answered(const char* method, const Json& body) const {
        return eventually([&] {
            if (http->pendingCount() == 0 || http->sent().back().method != method) return false;
            http->respondJson(200, body.dump());
            return true;
        });
    }

    std::shared_ptr<halvora::testing::FakeHttpClient> http = std::make_shared<halvora::testing::FakeHttpClient>();
    std::shared_ptr<halvora::testing::FakeSocketFactory> sockets = std::make_shared<halvora::testing::FakeSocketFactory>();
    std::unique_ptr<QQuickWindow> window;
};

TEST_F(SessionScreensTest, TheUserStartedFlowFromCodeToTheBannersEndButton) {
    QMetaObject::invokeMethod(window.get(), "getHelp");
    ASSERT_TRUE(answered("POST", record("pending")));
    ASSERT_TRUE(eventually([&] { return text("codeLabel") == "123-456"; }));
    EXPECT_TRUE(item("working")->isVisible());
    EXPECT_FALSE(item("close")->isVisible());  // pushed: leaving is the StackView's back

    Halvora::instance().currentSession()->updateResource(record("pending", true));
    ASSERT_TRUE(eventually([&] { return item("approve") && item("approve")->isVisible(); }));
    click("approve");
    ASSERT_TRUE(eventually([&] { return text("coutdown") == "3"; }));
    ASSERT_TRUE(eventually([&] { return text("coutdown") == "2"; }));
    ASSERT_TRUE(eventually([&] { return text("coutdown") == "1"; }));
    ASSERT_TRUE(answered("PUT", record("active")));
    EXPECT_EQ(Json::parse(*http->sent().back().body)["state"], "active");
    QQuickItem* stack = item("stack");
    ASSERT_TRUE(eventually([&] { return stack->property("depth").toInt() == 1 && !item("subview"); }));

    // The banner opens the management screen, once however often it is tapped.
    ASSERT_TRUE(eventually([&] { return Halvora::instance().overlay().bannerFrame().width > 0; }));
    const auto banner = Halvora::instance().overlay().bannerFrame();
    const QPoint bannerCentre(static_cast<int>(banner.x + banner.width / 2), static_cast<int>(banner.y + banner.height / 2));
    QTest::mouseClick(window.get(), Qt::LeftButton, {}, bannerCentre);
    ASSERT_TRUE(eventually([&] { return item("end") && item("end")->isVisible(); }));
    EXPECT_TRUE(item("close")->isVisible());  // presented: it can be closed
    QTest::mouseClick(window.get(), Qt::LeftButton, {}, bannerCentre);
    QTest::qWait(100);
    int ends = 0;
    std::function<void(QQuickItem*)> countEnds = [&](QQuickItem* at) {
        if (at->objectName() == "end") ++ends;
        for (QQuickItem* child : at->childItems()) countEnds(child);
    };
    countEnds(window->contentItem());
    EXPECT_EQ(ends, 1);

    click("end");
    ASSERT_TRUE(answered("PUT", record("ended")));
    EXPECT_EQ(Json::parse(*http->sent().back().body)["state"], "ended");
    EXPECT_TRUE(eventually([&] { return !item("end"); }));  // the popup closed and went
    EXPECT_TRUE(eventually([&] { return !Halvora::instance().currentSession(); }));
}

// Session links the application opens itself, in its own scheme or as https to the link host,
// join the session they name instead of leaving for the browser.
// The application's own https handler, given to Halvora.
class AppLinks final : public QObject {
    Q_OBJECT
public:
    std::vector<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl& url) { opened.push_back(url); }
};

// Session links reach the library; every other https link still reaches the handler the
// application has.
TEST_F(SessionScreensTest, LinksTheApplicationOpensJoinTheirSessionAndTheRestReachItsOwnHandler) {
    AppLinks app;
    setUrlHandler("https", &app, "open");
    for (const auto& [link, code] : {std::pair{"halvora://link.halvora.io/session/123456", "123456"},
                                     std::pair{"https://LINK.halvora.io/session/654321", "654321"}}) {
        SCOPED_TRACE(link);
        const auto before = http->sent().size();
        QDesktopServices::openUrl(QUrl(QString::fromLatin1(link)));
        ASSERT_TRUE(eventually([&] { return http->sent().size() > before; }));
        EXPECT_NE(http->sent().back().url.find(code), std::string::npos) << http->sent().back().url;
    }
    EXPECT_TRUE(app.opened.empty());
    const auto before = http->sent().size();
    QDesktopServices::openUrl(QUrl("https://shop.example.com/orders/7"));
    EXPECT_EQ(app.opened, std::vector<QUrl>{QUrl("https://shop.example.com/orders/7")});
    EXPECT_EQ(http->sent().size(), before);
}

// The library starts itself about 2 s after the event loop starts, unless the application said no
// through its "HLVAutostart" property; "HLVAskBeforeAgentSessions" is read from the application
// object the same way. Each case is its own process: install() happens once.
void expectStartup(const QVariant& autostart, bool started, const QVariant& ask, bool asks) {
    if (autostart.isValid()) QCoreApplication::instance()->setProperty("HLVAutostart", autostart);
    if (ask.isValid()) QCoreApplication::instance()->setProperty("HLVAskBeforeAgentSessions", ask);
    auto http = std::make_shared<halvora::testing::FakeHttpClient>();
    platform::install({.store = std::make_shared<halvora::testing::MemoryStore>(), .http = http,
                       .sockets = std::make_shared<halvora::testing::FakeSocketFactory>()});
    install();
    Halvora::instance().setApi("http://svc");
    QTest::qWait(1000);
    EXPECT_EQ(http->sent().size(), 0u) << "started before the application was up";
    EXPECT_EQ(Halvora::instance().askBeforeAgentSessions(), asks);
    QTest::qWait(2500);
    EXPECT_EQ(!http->sent().empty(), started);
}

TEST(QuickAutostart, StartsByItselfOnceTheApplicationIsUp) { expectStartup({}, true, {}, false); }
TEST(QuickAutostart, StaysStoppedAndAsksWhenTheApplicationPropertiesSaySo) { expectStartup(false, false, true, true); }

}  // namespace
}  // namespace halvora::qt

#include "session_screens_test.moc"
