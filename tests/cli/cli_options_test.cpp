// halvora-cli's command line. The end-to-end scripts run doctor, get and listen with --api, --data,
// --timeout, --quiet and --duration; these cases pin the precedence and what is refused.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "tools/cli/cli_options.h"

namespace halvora::cli {
namespace {

using std::chrono::milliseconds;
using Args = std::vector<std::string>;

CliOptions options(const Args& args, std::optional<std::string> environmentApi = std::nullopt) {
    ParseResult result = parseArguments(args, environmentApi);
    if (auto* error = std::get_if<UsageError>(&result)) ADD_FAILURE() << "usage error: " << error->message;
    return std::holds_alternative<CliOptions>(result) ? std::get<CliOptions>(result) : CliOptions{};
}

TEST(CliOptionsTest, ApiComesFromTheOptionThenTheEnvironmentThenTheDefault) {
    EXPECT_EQ(options({"--api", "http://opt", "doctor"}, "bad env").api, "http://opt");
    EXPECT_EQ(options({"doctor"}, "https://env.example:8443").api, "https://env.example:8443");
    EXPECT_EQ(options({"doctor"}, "").api, Halvora::kDefaultApi);
    EXPECT_EQ(options({"--api", "http://h:1/base//", "doctor"}).api, "http://h:1/base");  // paths are appended
    EXPECT_EQ(options({"get", "--", "-weird/code"}).code, "-weird/code");
    EXPECT_EQ(options({"listen", "--duration", "2.5"}).duration, milliseconds(2500));
}

TEST(CliOptionsTest, CustomValuesAreJsonWhenValidElseText) {
    const std::pair<const char*, Json> cases[] = {
        {"42", 42},       {"true", true},   {"null", nullptr},        {R"({"a":[1]})", {{"a", {1}}}},
        {"pro", "pro"},   {"", ""},         {"{broken", "{broken"},    {"1e999", "1e999"},  // overflows a double
        {"1 2", "1 2"},   {R"("q")", "q"},
    };
    for (const auto& [text, value] : cases) EXPECT_EQ(customValue(text), value) << text;
}

TEST(CliOptionsTest, MistakesAreRefusedWithAMessageNamingThem) {
    const std::tuple<Args, std::optional<std::string>, std::string> cases[] = {
        {{"--api", "ftp://h", "doctor"}, {}, "--api must be an http"},
        {{"doctor"}, "127.0.0.1:8080", "HALVORA_API"},
        {{"--api", "https:///path", "doctor"}, {}, "no host"},
        {{"--api", "http://h st", "doctor"}, {}, "spaces"},
        {{"--custom", "plan", "doctor"}, {}, "KEY=VALUE"},
        {{"--custom", "=pro", "doctor"}, {}, "KEY"},
        {{"--custom", "k=\xff\xfe", "doctor"}, {}, "UTF-8"},
        {{"get"}, {}, "needs a session CODE"},
        {{"get", ""}, {}, "non-empty"},
        {{"get", "1", "2"}, {}, "one CODE"},
        {{"listen", "--duration", "-1"}, {}, "--duration needs a positive"},
        {{"get", "1", "--duration", "5"}, {}, "only applies to join and listen"},
        {{"listen", "x"}, {}, "takes no arguments"},
        {{"--quiet"}, {}, "no command given"},
        {{"Doctor"}, {}, "unknown command: Doctor"},
        {{"-q", "doctor"}, {}, "unknown option: -q"},
        {{"doctor", "--timeout"}, {}, "option --timeout needs a number of seconds"},
        {{"--quiet=yes", "doctor"}, {}, "option --quiet takes no value"},
        {{"--data", "", "doctor"}, {}, "option --data needs a non-empty directory"},
    };
    for (const auto& [args, environment, message] : cases) {
        ParseResult result = parseArguments(args, environment);
        const auto* error = std::get_if<UsageError>(&result);
        ASSERT_TRUE(error) << ::testing::PrintToString(args);
        EXPECT_NE(error->message.find(message), std::string::npos) << error->message;
    }
}

}  // namespace
}  // namespace halvora::cli
