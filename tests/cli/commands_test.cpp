// register, create and get against a scripted service: the record on stdout, errors on stderr,
// and the library left registered.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "tests/cli/fake_service_fixture.h"

namespace halvora {
namespace {

using platform::HttpRequest;
using Result = std::optional<platform::HttpResult>;

class CommandsTest : public testing::FakeServiceTest {};

TEST_F(CommandsTest, RegisterPrintsTheDeviceRecordWithTheCustomDataAndStaysRegistered) {
    const Json record = {{"type", "Device"}, {"id", "D"}, {"custom_data", {{"plan", "pro"}, {"seats", 3}}}};
    routes["PUT device"] = [record](const HttpRequest&) -> Result { return answer(200, record); };
    options.command = cli::Command::Register;
    options.customData = {{"plan", "pro"}, {"seats", 3}};

    EXPECT_EQ(runCli(), cli::kExitOk);
    EXPECT_EQ(out.str(), record.dump(2) + "\n");
    EXPECT_EQ(err.str(), "");
    for (const auto& request : http->sent()) {
        EXPECT_EQ(request.method, "PUT");
        EXPECT_EQ(bodyOf(request)["custom_data"], options.customData);
    }
    EXPECT_TRUE(Halvora::instance().isStarted());
}

TEST_F(CommandsTest, CreatePrintsTheSessionRecord) {
    options.command = cli::Command::Create;
    EXPECT_EQ(runCli(), cli::kExitOk);
    EXPECT_EQ(out.str(), session("S1", "pending").dump(2) + "\n");
    EXPECT_EQ(sentLines().back(), "POST http://svc/api/1/sessions");
}

TEST_F(CommandsTest, GetPassesTheCodeThroughAndReportsErrorsOnStderr) {
    routes["GET session"] = [](const HttpRequest&) -> Result {
        return answer(404, {{"message", "Session not found"}});
    };
    options.command = cli::Command::Get;
    options.code = "000000";
    EXPECT_EQ(runCli(), cli::kExitFailure);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), "halvora-cli: get failed: Session not found (code 404)\n");
    EXPECT_EQ(sentLines().back(), "GET http://svc/api/1/sessions/000000");
}

}  // namespace
}  // namespace halvora
