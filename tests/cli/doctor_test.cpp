// The doctor's failure reports against a scripted service: where it stops, what it prints, and that
// it always tries to deregister, once. The passing run and a refused connection run against the
// reference service in doctor_test.sh. The manual clock makes every duration 0 ms except timeouts.
// One process per case: the facade is a process-wide singleton.
#include <gtest/gtest.h>

#include <algorithm>

#include "halvora/halvora.h"
#include "tools/cli/cli_options.h"
#include "tests/cli/fake_service_fixture.h"

namespace halvora {
namespace {

using platform::HttpRequest;
using Result = std::optional<platform::HttpResult>;
using testing::FakeServiceTest;
using Route = FakeServiceTest::Route;

Route reply(long status, const Json& body) {
    return [status, body](const HttpRequest&) -> Result { return FakeServiceTest::answer(status, body); };
}
Result refused(const HttpRequest&) { return FakeServiceTest::failure(7, "Couldn't connect to server"); }

struct Failure {
    const char* name;
    std::map<std::string, Route> routes;
    std::vector<std::string> printed;
    const char* notReached;
    std::optional<std::string> err = "";
    std::chrono::milliseconds timeout{30'000};
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }  // stable test names

class DoctorTest : public FakeServiceTest, public ::testing::WithParamInterface<Failure> {};

TEST_P(DoctorTest, AFailedStepEndsTheRunWithItsReasonAndTheDeviceIsDeregisteredOnce) {
    const Failure& c = GetParam();
    for (const auto& [route, handler] : c.routes) routes[route] = handler;
    options.command = cli::Command::Doctor;
    options.timeout = c.timeout;
    EXPECT_EQ(runCli(), cli::kExitFailure);
    const auto lines = linesOf(out.str());
    for (const auto& line : c.printed) EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
    EXPECT_EQ(out.str().find(std::string("] ") + c.notReached), std::string::npos) << out.str();
    EXPECT_EQ(out.str().find("passed"), std::string::npos);
    const auto sent = sentLines();
    EXPECT_EQ(std::count_if(sent.begin(), sent.end(), [](const std::string& l) { return l.starts_with("DELETE "); }), 1);
    EXPECT_EQ(err.str(), c.err.value_or(err.str()));  // none: not checked
    EXPECT_FALSE(Halvora::instance().isStarted());
}

INSTANTIATE_TEST_SUITE_P(
    Steps, DoctorTest,
    ::testing::Values(
        Failure{"ServiceError",
                {{"POST sessions", reply(503, {{"message", "No session codes are free"}})}},
                {"[FAIL] create session             0 ms", "       No session codes are free (code 503)"},
                "get session by code"},
        Failure{"TransportErrorAndFailedCleanup",
                {{"PUT device", refused}, {"DELETE device", refused}},
                {"[FAIL] register                   0 ms", "       Couldn't connect to server (domain curl, code 7)"},
                "create session",
                "halvora-cli: could not stop cleanly: Error Domain=curl Code=7 \"Couldn't connect to server\"\n"},
        Failure{"FoundAnotherSession",
                {{"GET session", reply(200, FakeServiceTest::session("S2", "pending"))}},
                {"[FAIL] get session by code        0 ms",
                 "       code 123456 found session S2, but the created session is S1"},
                "end session"},
        Failure{"EndedSessionNotEnded",
                {{"PUT session", reply(200, FakeServiceTest::session("S1", "active"))}},
                {"[FAIL] end session                0 ms",
                 "       the session's state is \"active\" after ending it, expected \"ended\""},
                "deregister and stop"},
        // Only the library's log tells of this one, and the quiet tool still watches it.
        Failure{"StopFailure",
                {{"DELETE device", reply(404, {{"message", "Device not found"}})}},
                {"[FAIL] deregister and stop        0 ms", "       Error Domain=Halvora Code=404 \"Device not found\""},
                "none",
                std::nullopt},
        Failure{"Unanswered",
                {{"POST sessions", [](const HttpRequest&) -> Result { return std::nullopt; }}},
                {"[FAIL] create session          2500 ms", "       timed out after 2.5 s"},
                "get session by code",
                "",
                std::chrono::milliseconds(2500)}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace halvora
