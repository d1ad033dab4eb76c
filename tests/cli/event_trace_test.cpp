// The tool's event trace: every event the library hears is printed before its handler runs, with
// binary attachments shortened.
#include <gtest/gtest.h>

#include "tools/cli/event_trace.h"
#include "tests/support/fake_realtime_socket.h"

namespace halvora::cli {
namespace {

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

}  // namespace
}  // namespace halvora::cli
