// register and create against a scripted service, the event trace, and a step that never
// finishes. get's error on stderr, and passing and failing steps, are checked against the reference
// service in doctor_test.sh.
#include <gtest/gtest.h>

#include <sstream>

#include "halvora/halvora.h"
#include "halvora/platform/clock.h"
#include "tests/cli/fake_service_fixture.h"
#include "tests/support/fake_realtime_socket.h"
#include "tools/cli/event_trace.h"
#include "tools/cli/step_runner.h"

namespace halvora::cli {
namespace {

using namespace std::chrono_literals;

class CommandsTest : public testing::FakeServiceTest {};

TEST_F(CommandsTest, RegisterPrintsTheDeviceRecordWithTheCustomDataAndStaysRegistered) {
    const Json record = {{"type", "Device"}, {"id", "D"}, {"custom_data", {{"plan", "pro"}, {"seats", 3}}}};
    routes["PUT device"] = [record](const auto&) -> std::optional<platform::HttpResult> { return answer(200, record); };
    options.command = Command::Register;
    options.customData = {{"plan", "pro"}, {"seats", 3}};

    EXPECT_EQ(runCli(), kExitOk);
    EXPECT_EQ(out.str(), record.dump(2) + "\n");
    EXPECT_EQ(err.str(), "");
    for (const auto& request : http->sent()) {
        EXPECT_EQ(request.method, "PUT");
        EXPECT_EQ(bodyOf(request)["custom_data"], options.customData);
    }
    EXPECT_TRUE(Halvora::instance().isStarted());
}

TEST_F(CommandsTest, CreatePrintsTheSessionRecord) {
    options.command = Command::Create;
    EXPECT_EQ(runCli(), kExitOk);
    EXPECT_EQ(out.str(), session("S1", "pending").dump(2) + "\n");
    EXPECT_EQ(sentLines().back(), "POST http://svc/api/1/sessions");
}

TEST(EventTraceTest, PrintsEachEventBeforeTheLibrarysHandler) {
    auto inner = std::make_shared<testing::FakeSocketFactory>();
    std::vector<std::string> lines;
    TracingSocketFactory factory(inner, [&](const std::string& line) { lines.push_back(line); });
    auto socket = factory.make("http://svc", {});
    socket->on("drawing", [&](const platform::RealtimeSocket::Items&) { lines.push_back("handled"); });
    socket->on("connect", [&](const platform::RealtimeSocket::Items&) {});

    inner->made[0]->fire("drawing", {Json{{"type", "Drawing"}, {"image", Json::binary({1, 2, 3})}}});
    inner->made[0]->fire("connect");
    EXPECT_EQ(lines, (std::vector<std::string>{R"(drawing {"type":"Drawing","image":"<3 bytes>"})", "handled",
                                               "connect"}));
    EXPECT_EQ(traceValue(Json{{"stream_token", "secret"}, {"nested", {{"control_token", "x"}}}}),
              R"({"stream_token":"<hidden>","nested":{"control_token":"<hidden>"}})");
}

TEST(StepRunnerTest, StepThatNeverFinishesTimesOutAndIgnoresItsLateAnswer) {
    auto loop = std::make_shared<platform::RunLoop>(std::make_shared<platform::ManualClock>());
    std::ostringstream out;
    StepRunner runner{loop, 2s, out};
    bool lateAnswerRan = false;
    EXPECT_FALSE(runner.run("silent", [&](const Finish& finish) {
        loop->postAfter(5s, [&lateAnswerRan, finish] {
            lateAnswerRan = true;
            finish(StepResult::passed());
        });
    }));
    EXPECT_EQ(out.str(), stepLine(false, "silent", 2000ms) + "\n       timed out after 2 s\n");
    loop->advance(10s);
    EXPECT_TRUE(lateAnswerRan);
    // A later step is not confused by the earlier one's answer.
    EXPECT_EQ(awaitStep(loop, 1s, [](const Finish&) {}).details, std::vector<std::string>{"timed out after 1 s"});
}

}  // namespace
}  // namespace halvora::cli
