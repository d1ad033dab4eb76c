// A service that misbehaves: every bad answer, refused connection or silence produces exactly one
// callback with the right error, over real HTTP.
#include <sys/socket.h>
#include <netinet/in.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "device/device.h"
#include "platform/linux/curl_http_client.h"
#include "halvora/platform/log.h"
#include "halvora/platform.h"
#include "halvora/platform/run_loop.h"
#include "halvora/session.h"
#include "tests/support/library_fixture.h"
#include "tests/support/scripted_http_server.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;
using testing::Reply;

class FaultyServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::CurlHttpClient::Options options;
        options.idleTimeout = 500ms;  // the silent server must not hold the test for a minute
        platform::install({.mainQueue = loop,
                           .store = std::make_shared<testing::MemoryStore>(),
                           .appInfo = std::make_shared<platform::StaticAppInfo>(),
                           .deviceInfo = std::make_shared<testing::FakeDeviceInfo>(),
                           .http = std::make_shared<platform::CurlHttpClient>(options)});
        platform::setLogSink([this](std::string_view line) { logged.emplace_back(line); });
        server.setDefaultReply(Reply::json(200, R"({"id":"d","next_registration":600})"));
        halvora.setApi(server.baseUrl());
        halvora.start();
        // The loop's first registration completes first, so its connection is idle for reuse.
        EXPECT_TRUE(loop->runUntil([&] { return halvora.device()->resource().has_value(); }, 10s));
    }
    void TearDown() override { platform::setLogSink(nullptr); }

    // Creates a session against the scripted answer and returns the outcome after one callback.
    std::pair<OptionalError, std::shared_ptr<HLVSession>> createAgainst(Reply reply) {
        server.enqueueReply(std::move(reply));
        int calls = 0;
        std::pair<OptionalError, std::shared_ptr<HLVSession>> outcome;
        halvora.createSession([&](OptionalError error, std::shared_ptr<HLVSession> session) {
            ++calls;
            outcome = {error, session};
        });
        EXPECT_TRUE(loop->runUntil([&] { return calls > 0; }, 10s));
        loop->runUntil([] { return false; }, 100ms);  // nothing more may arrive
        EXPECT_EQ(calls, 1);
        return outcome;
    }

    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    testing::ScriptedHttpServer server;
    Halvora& halvora = Halvora::instance();
    std::vector<std::string> logged;
};

TEST_F(FaultyServiceTest, AnswersThatAreNotSessionsAreRejected) {
    auto [notJson, s1] = createAgainst(Reply::status(200, "<html>maintenance</html>", "text/html"));
    EXPECT_EQ(notJson->domain(), "json");
    EXPECT_FALSE(s1);

    auto [array, s2] = createAgainst(Reply::json(200, "[1,2,3]"));
    EXPECT_EQ(*array, HLVError("Expecting session to be a dictionary", 0));

    auto [wrongType, s3] = createAgainst(Reply::json(201, R"({"type":42,"id":"x","state":"pending"})"));
    EXPECT_EQ(*wrongType, HLVError("Expected a Session resource", 0));

    auto [noState, s4] = createAgainst(Reply::json(201, R"({"type":"Session","id":"x"})"));
    EXPECT_EQ(*noState, HLVError("Expected session to have a state field", 0));
    EXPECT_FALSE(halvora.currentSession());

    // Odd but valid: a numeric state is adopted and is simply none of the known states.
    auto [odd, s5] = createAgainst(Reply::json(201, R"({"type":"Session","id":7,"state":5})"));
    EXPECT_FALSE(odd);
    ASSERT_TRUE(s5);
    EXPECT_FALSE(s5->isPending() || s5->isActive() || s5->isEnded());
    EXPECT_EQ(s5->url(), server.baseUrl() + "/api/1/sessions/7");
}

TEST_F(FaultyServiceTest, ServerErrorsCarryStatusAndMessage) {
    auto [generic, s1] = createAgainst(Reply::json(500, R"({"error":"boom"})"));
    EXPECT_EQ(*generic, HLVError("Request failed", 500));
    auto [named, s2] = createAgainst(Reply::json(503, R"({"message":"Down for maintenance"})"));
    EXPECT_EQ(*named, HLVError("Down for maintenance", 503));
    auto [html, s3] = createAgainst(Reply::status(502, "<h1>Bad gateway</h1>", "text/html"));
    EXPECT_EQ(html->domain(), "json");
}

TEST_F(FaultyServiceTest, DroppedAndSilentConnectionsFailOnce) {
    // curl sends a request once more when a reused connection closes before any answer, so the
    // service drops both tries.
    server.enqueueReply(Reply::closeConnection());
    auto [dropped, s1] = createAgainst(Reply::closeConnection());
    EXPECT_EQ(dropped->domain(), "curl");

    auto [silent, s2] = createAgainst(Reply::neverAnswer());
    EXPECT_EQ(silent->domain(), "curl");
    EXPECT_EQ(silent->code(), 28);  // timed out
    EXPECT_FALSE(halvora.currentSession());
}

TEST_F(FaultyServiceTest, RefusedConnectionReachesTheRegistrationLog) {
    halvora.setApi("http://127.0.0.1:" + std::to_string(testing::unusedLoopbackPort()));  // re-registers at once against nothing
    ASSERT_TRUE(loop->runUntil(
        [&] {
            for (const auto& line : logged) {
                if (line.rfind("Halvora registration error: Error Domain=curl Code=7", 0) == 0) return true;
            }
            return false;
        },
        10s));
    loop->runUntil([] { return false; }, 100ms);
    EXPECT_TRUE(halvora.device()->hasPendingRegistration());  // tries again in a minute
}

}  // namespace
}  // namespace halvora
