// The doctor's steps against a scripted service: the printed report, where it stops, and that it
// always tries to deregister. The manual clock makes every duration 0 ms except timeouts.
#include <algorithm>

#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "tools/cli/cli_options.h"
#include "tests/cli/fake_service_fixture.h"

namespace halvora {
namespace {

using platform::HttpRequest;
using Result = std::optional<platform::HttpResult>;

class DoctorTest : public testing::FakeServiceTest {
protected:
    void SetUp() override {
        FakeServiceTest::SetUp();
        options.command = cli::Command::Doctor;
    }
    bool printed(const std::string& line) const {
        auto lines = linesOf(out.str());
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    bool printedStep(const std::string& name) const { return out.str().find("] " + name + " ") != std::string::npos; }
    bool deregistered() const {
        auto lines = sentLines();
        return !lines.empty() && lines.back().starts_with("DELETE " + std::string(kApi) + "/api/1/devices/");
    }
};

TEST_F(DoctorTest, EveryStepPassesAgainstAWellBehavedService) {
    EXPECT_EQ(runCli(), cli::kExitOk);
    const std::string id = Halvora::instance().deviceId();
    EXPECT_EQ(linesOf(out.str()), (std::vector<std::string>{
                                      "[ OK ] start                      0 ms",
                                      "       Halvora SDK 1.5.4, api http://svc",
                                      "[ OK ] register                   0 ms",
                                      "       device id: " + id,
                                      "       next_registration: 600",
                                      "[ OK ] create session             0 ms",
                                      "       session code: 123456",
                                      "       session id: S1",
                                      "[ OK ] get session by code        0 ms",
                                      "       session id: S1",
                                      "       state: pending",
                                      "[ OK ] end session                0 ms",
                                      "       state: ended",
                                      "[ OK ] deregister and stop        0 ms",
                                      "All 6 steps passed",
                                  }));
    EXPECT_EQ(err.str(), "");
    const std::string devices = std::string(kApi) + "/api/1/devices/" + id;
    EXPECT_EQ(sentLines(), (std::vector<std::string>{
                               "PUT " + devices,  // the library's own registration loop
                               "PUT " + devices,
                               "POST http://svc/api/1/sessions",
                               "GET http://svc/api/1/sessions/123456",
                               "PUT http://svc/api/1/sessions/S1",
                               "DELETE " + devices,
                           }));
    EXPECT_NE(echoed.find("halvora: Halvora Stopped\n"), std::string::npos) << echoed;
    EXPECT_FALSE(Halvora::instance().isStarted());
}

TEST_F(DoctorTest, ServiceErrorStopsThereWithDescriptionAndCodeAndStillDeregisters) {
    routes["POST sessions"] = [](const HttpRequest&) -> Result {
        return answer(503, {{"message", "No session codes are free"}});
    };
    EXPECT_EQ(runCli(), cli::kExitFailure);
    EXPECT_TRUE(printed("[FAIL] create session             0 ms"));
    EXPECT_TRUE(printed("       No session codes are free (code 503)"));
    EXPECT_FALSE(printedStep("get session by code"));
    EXPECT_FALSE(printedStep("deregister and stop"));
    EXPECT_EQ(out.str().find("passed"), std::string::npos);
    EXPECT_TRUE(deregistered());
    EXPECT_FALSE(Halvora::instance().isStarted());
    EXPECT_EQ(err.str(), "");
}

TEST_F(DoctorTest, TransportFailureNamesItsDomainAndAFailedCleanupIsReported) {
    routes["PUT device"] = [](const HttpRequest&) -> Result {
        return failure(7, "Couldn't connect to server");
    };
    routes["DELETE device"] = routes["PUT device"];
    EXPECT_EQ(runCli(), cli::kExitFailure);
    EXPECT_TRUE(printed("[FAIL] register                   0 ms"));
    EXPECT_TRUE(printed("       Couldn't connect to server (domain curl, code 7)"));
    EXPECT_FALSE(printedStep("create session"));
    EXPECT_EQ(err.str(), "halvora-cli: could not stop cleanly: Error Domain=curl Code=7 \"Couldn't connect to server\"\n");
}

TEST_F(DoctorTest, SessionFoundByCodeMustBeTheOneCreated) {
    routes["GET session"] = [](const HttpRequest&) -> Result {
        return answer(200, session("S2", "pending"));
    };
    EXPECT_EQ(runCli(), cli::kExitFailure);
    EXPECT_TRUE(printed("[FAIL] get session by code        0 ms"));
    EXPECT_TRUE(printed("       code 123456 found session S2, but the created session is S1"));
    EXPECT_FALSE(printedStep("end session"));
    EXPECT_TRUE(deregistered());
}

TEST_F(DoctorTest, EndingMustLeaveTheSessionEnded) {
    routes["PUT session"] = [](const HttpRequest&) -> Result {
        return answer(200, session("S1", "active"));
    };
    EXPECT_EQ(runCli(), cli::kExitFailure);
    EXPECT_TRUE(printed("[FAIL] end session                0 ms"));
    EXPECT_TRUE(printed("       the session's state is \"active\" after ending it, expected \"ended\""));
    EXPECT_TRUE(deregistered());
}

TEST_F(DoctorTest, StopFailureComesFromTheLibraryLog) {
    routes["DELETE device"] = [](const HttpRequest&) -> Result {
        return answer(404, {{"message", "Device not found"}});
    };
    EXPECT_EQ(runCli(), cli::kExitFailure);
    EXPECT_TRUE(printed("[FAIL] deregister and stop        0 ms"));
    EXPECT_TRUE(printed("       Error Domain=Halvora Code=404 \"Device not found\""));
    EXPECT_EQ(out.str().find("passed"), std::string::npos);
    const auto sent = sentLines();
    EXPECT_EQ(std::count_if(sent.begin(), sent.end(), [](const std::string& line) { return line.starts_with("DELETE "); }),
              1);  // no second attempt after the stop step itself failed
}

TEST_F(DoctorTest, UnansweredStepFailsAtTheDeadline) {
    routes["POST sessions"] = [](const HttpRequest&) -> Result { return std::nullopt; };
    options.timeout = std::chrono::milliseconds(2500);
    EXPECT_EQ(runCli(), cli::kExitFailure);
    EXPECT_TRUE(printed("[FAIL] create session          2500 ms"));
    EXPECT_TRUE(printed("       timed out after 2.5 s"));
    EXPECT_FALSE(printedStep("get session by code"));
    EXPECT_TRUE(deregistered());
}

}  // namespace
}  // namespace halvora
