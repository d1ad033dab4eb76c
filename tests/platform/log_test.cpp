#include "halvora/platform/log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace halvora::platform {
namespace {

TEST(LogTest, LinesAreFoldedAndGoToTheInstalledSink) {
    std::vector<std::string> lines;
    setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    log("one\ntwo\r\nthree");
    log("plain");
    setLogSink(nullptr);
    log("back to stderr");
    EXPECT_EQ(lines, (std::vector<std::string>{"one two  three", "plain"}));
}

TEST(LogTest, ASinkMayLogAndReplaceTheSinkWithoutDeadlocking) {
    std::vector<std::string> lines;
    setLogSink([&](std::string_view line) {
        lines.emplace_back(line);
        setLogSink([&](std::string_view inner) { lines.push_back("inner: " + std::string(inner)); });
        log("from the sink");
    });
    log("outer");
    setLogSink(nullptr);
    EXPECT_EQ(lines, (std::vector<std::string>{"outer", "inner: from the sink"}));
}

}  // namespace
}  // namespace halvora::platform
