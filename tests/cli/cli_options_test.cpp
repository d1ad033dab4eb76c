// halvora-cli's command line: what each option becomes, and which input is refused.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "tools/cli/cli_options.h"

namespace halvora::cli {
namespace {

using std::chrono::milliseconds;
using Args = std::vector<std::string>;

ParseResult parse(const Args& args, std::optional<std::string> environmentApi = std::nullopt) {
    return parseArguments(args, environmentApi);
}

CliOptions options(const Args& args, std::optional<std::string> environmentApi = std::nullopt) {
    ParseResult result = parse(args, std::move(environmentApi));
    if (auto* error = std::get_if<UsageError>(&result)) ADD_FAILURE() << "usage error: " << error->message;
    EXPECT_TRUE(std::holds_alternative<CliOptions>(result));
    return std::holds_alternative<CliOptions>(result) ? std::get<CliOptions>(result) : CliOptions{};
}

// The message of the usage error, or a marker that fails any expectation on the message.
std::string usageError(const Args& args, std::optional<std::string> environmentApi = std::nullopt) {
    ParseResult result = parse(args, std::move(environmentApi));
    if (auto* error = std::get_if<UsageError>(&result)) return error->message;
    ADD_FAILURE() << "accepted: " << ::testing::PrintToString(args);
    return "<accepted>";
}

TEST(CliOptionsTest, DoctorAloneGetsTheDefaults) {
    CliOptions o = options({"doctor"});
    EXPECT_EQ(o.command, Command::Doctor);
    EXPECT_EQ(o.api, Halvora::kDefaultApi);
    EXPECT_FALSE(o.dataDir);
    EXPECT_EQ(o.customData, Json::object());
    EXPECT_EQ(o.timeout, milliseconds(30'000));
    EXPECT_FALSE(o.quiet);
    EXPECT_TRUE(o.code.empty());
}

TEST(CliOptionsTest, ApiComesFromTheOptionThenTheEnvironmentThenTheDefault) {
    EXPECT_EQ(options({"--api", "http://opt", "doctor"}, "http://env").api, "http://opt");
    EXPECT_EQ(options({"doctor"}, "https://env.example:8443").api, "https://env.example:8443");
    EXPECT_EQ(options({"doctor"}, "").api, Halvora::kDefaultApi);
    // The library appends its paths to the base as it is.
    EXPECT_EQ(options({"--api", "http://h:1/base//", "doctor"}).api, "http://h:1/base");
}

TEST(CliOptionsTest, ApiMustBeAnHttpUrlWithAHostAndSaysWhereItCameFrom) {
    EXPECT_NE(usageError({"--api", "ftp://h", "doctor"}).find("--api must be an http"), std::string::npos);
    EXPECT_NE(usageError({"doctor"}, "127.0.0.1:8080").find("HALVORA_API"), std::string::npos);
    EXPECT_NE(usageError({"--api", "http://", "doctor"}).find("no host"), std::string::npos);
    EXPECT_NE(usageError({"--api", "https:///path", "doctor"}).find("no host"), std::string::npos);
    EXPECT_NE(usageError({"--api", "http://h st", "doctor"}).find("spaces"), std::string::npos);
    // A bad environment does not matter when the option overrides it.
    EXPECT_EQ(options({"--api", "http://ok", "doctor"}, "bad").api, "http://ok");
}

TEST(CliOptionsTest, CustomValuesAreJsonWhenValidElseText) {
    EXPECT_EQ(customValue("42"), Json(42));
    EXPECT_EQ(customValue("-1.5"), Json(-1.5));
    EXPECT_EQ(customValue("true"), Json(true));
    EXPECT_EQ(customValue("null"), Json(nullptr));
    EXPECT_EQ(customValue(R"({"a":[1,"b"]})"), Json::parse(R"({"a":[1,"b"]})"));
    EXPECT_EQ(customValue(R"("quoted")"), Json("quoted"));
    EXPECT_EQ(customValue("pro"), Json("pro"));
    EXPECT_EQ(customValue(""), Json(""));
    EXPECT_EQ(customValue("{broken"), Json("{broken"));
    EXPECT_EQ(customValue("1e999"), Json("1e999"));  // overflows a double: kept as written
    EXPECT_EQ(customValue("1 2"), Json("1 2"));
}

TEST(CliOptionsTest, CustomPairsWithoutKeyOrEqualsOrUtf8AreRefused) {
    EXPECT_NE(usageError({"--custom", "plan", "doctor"}).find("KEY=VALUE"), std::string::npos);
    EXPECT_NE(usageError({"--custom", "=pro", "doctor"}).find("KEY"), std::string::npos);
    EXPECT_NE(usageError({"--custom", "k=\xff\xfe", "doctor"}).find("UTF-8"), std::string::npos);
    EXPECT_NE(usageError({"--custom", "\xc3=1", "doctor"}).find("UTF-8"), std::string::npos);
}

TEST(CliOptionsTest, GetTakesExactlyOneNonEmptyCode) {
    CliOptions o = options({"get", "123456"});
    EXPECT_EQ(o.command, Command::Get);
    EXPECT_EQ(o.code, "123456");
    EXPECT_EQ(options({"get", "--", "-weird/code"}).code, "-weird/code");
    EXPECT_EQ(options({"get", "-"}).code, "-");
    EXPECT_NE(usageError({"get"}).find("needs a session CODE"), std::string::npos);
    EXPECT_NE(usageError({"get", ""}).find("non-empty"), std::string::npos);
    EXPECT_NE(usageError({"get", "1", "2"}).find("one CODE"), std::string::npos);
}

TEST(CliOptionsTest, DurationBelongsToJoinAndListenOnly) {
    EXPECT_EQ(options({"join", "123456"}).duration, std::nullopt);
    EXPECT_EQ(options({"listen", "--duration", "2.5"}).duration, milliseconds(2500));
    EXPECT_EQ(options({"join", "123456", "--duration=1"}).code, "123456");
    EXPECT_NE(usageError({"listen", "--duration", "-1"}).find("--duration needs a positive"), std::string::npos);
    EXPECT_NE(usageError({"get", "1", "--duration", "5"}).find("only applies to join and listen"), std::string::npos);
    EXPECT_NE(usageError({"listen", "x"}).find("takes no arguments"), std::string::npos);
}

TEST(CliOptionsTest, CommandsAreRequiredKnownAndWithoutStrayArguments) {
    EXPECT_EQ(usageError({}), "no command given");
    EXPECT_EQ(usageError({"--quiet"}), "no command given");
    EXPECT_EQ(usageError({"doctr"}), "unknown command: doctr");
    EXPECT_EQ(usageError({"Doctor"}), "unknown command: Doctor");
    EXPECT_NE(usageError({"doctor", "now"}).find("takes no arguments"), std::string::npos);
    EXPECT_NE(usageError({"create", "x"}).find("takes no arguments"), std::string::npos);
}

TEST(CliOptionsTest, OptionMistakesAreNamed) {
    EXPECT_EQ(usageError({"--verbose", "doctor"}), "unknown option: --verbose");
    EXPECT_EQ(usageError({"-q", "doctor"}), "unknown option: -q");
    EXPECT_EQ(usageError({"doctor", "--api"}), "option --api needs a URL");
    EXPECT_EQ(usageError({"doctor", "--timeout"}), "option --timeout needs a number of seconds");
    EXPECT_EQ(usageError({"--quiet=yes", "doctor"}), "option --quiet takes no value");
    EXPECT_EQ(usageError({"--data", "", "doctor"}), "option --data needs a non-empty directory");
}

}  // namespace
}  // namespace halvora::cli
