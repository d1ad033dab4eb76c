// The tool's log sink: echo with a prefix unless quiet, and one replaceable watcher.
#include <gtest/gtest.h>

#include "tools/cli/log_relay.h"
#include "halvora/platform/log.h"

namespace halvora::cli {
namespace {

class LogRelayTest : public ::testing::Test {
protected:
    void TearDown() override { platform::setLogSink(nullptr); }
    std::shared_ptr<LogRelay> relay(bool echo) {
        auto made = std::make_shared<LogRelay>(echo, [this](std::string_view text) { echoed += text; });
        made->install();
        return made;
    }
    std::string echoed;
};

TEST_F(LogRelayTest, QuietHidesLinesFromTheTerminalButNotFromTheWatcher) {
    auto quiet = relay(false);
    std::vector<std::string> seen;
    quiet->watch([&seen](std::string_view line) { seen.emplace_back(line); });
    platform::log("Initialised Halvora SDK 1.5.4");
    quiet->watch([&seen](std::string_view line) { seen.push_back("second: " + std::string(line)); });
    platform::log("Halvora Stopped");
    quiet->watch(nullptr);
    platform::log("unwatched");
    EXPECT_EQ(echoed, "");
    EXPECT_EQ(seen, (std::vector<std::string>{"Initialised Halvora SDK 1.5.4", "second: Halvora Stopped"}));
}

}  // namespace
}  // namespace halvora::cli
