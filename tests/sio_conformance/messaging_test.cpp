// Events, acknowledgements and binary attachments in both directions.
#include "peer_fixture.h"

namespace halvora::sio_test {
namespace {

class Messaging : public PeerTest {};

TEST_F(Messaging, EventsAndAcknowledgementsTravelBothWays) {
    // Declared before the manager, which runs handlers until it is destroyed.
    std::mutex mutex;
    std::vector<sio::Items> seenByAny;
    auto manager = connect(config());
    auto& socket = manager->defaultSocket();
    socket.onAny([&](const sio::Items& items, sio::Ack) {
        std::lock_guard lock(mutex);
        seenByAny.push_back(items);
    });
    // The server's question asks for an acknowledgement; its answer event carries ours back.
    socket.on("question", [](const sio::Items& items, sio::Ack ack) {
        EXPECT_TRUE(ack.expected());
        ack({"reply to", items.at(0), 42});
        ack({"second call is ignored"});
    });
    ASSERT_TRUE(recorder_.waitFor("connect"));

    const sio::Items items{"text", 7, sio::Value{{"nested", {1, 2}}, {"flag", true}}, nullptr};
    socket.emit("echo", items);
    auto echoed = recorder_.waitFor("echo");
    ASSERT_TRUE(echoed);
    EXPECT_EQ(*echoed, items);
    EXPECT_EQ(ask(socket, "echo", items), items);

    socket.emit("ask", {"life"});
    auto answer = recorder_.waitFor("answer");
    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, (sio::Items{"reply to", "life", 42}));

    std::lock_guard lock(mutex);
    ASSERT_GE(seenByAny.size(), 1u);
    EXPECT_EQ(seenByAny.front().at(0), "echo");
    EXPECT_EQ(seenByAny.front().at(1), "text");
}

TEST_F(Messaging, BinaryAttachmentsOfEverySizeRoundTrip) {
    auto manager = connect(config());
    auto& socket = manager->defaultSocket();
    ASSERT_TRUE(recorder_.waitFor("connect"));
    int echoes = 0;
    for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{30 * 1024},
                             std::size_t{2 * 1024 * 1024}}) {
        SCOPED_TRACE(size);
        const auto data = bytes(size);
        auto acked = ask(socket, "echo", {sio::binary(data), "tag", sio::binary({1, 2, 3})});
        ASSERT_TRUE(acked);
        ASSERT_EQ(acked->size(), 3u);
        EXPECT_EQ(bytesOf(acked->at(0)), data);
        EXPECT_EQ(acked->at(1), "tag");
        EXPECT_EQ(bytesOf(acked->at(2)), (std::vector<std::uint8_t>{1, 2, 3}));

        socket.emit("echo", {sio::Value{{"frame", sio::binary(data)}}});
        auto echoed = recorder_.waitFor("echo", ++echoes);
        ASSERT_TRUE(echoed);
        EXPECT_EQ(bytesOf(echoed->at(0)["frame"]), data);
    }
}

TEST_F(Messaging, OversizedEventsAreDroppedBeforeSending) {
    auto manager = connect(config());
    auto& socket = manager->defaultSocket();
    ASSERT_TRUE(recorder_.waitFor("connect"));

    socket.emit("echo", {sio::binary(bytes(manager->engine().maxPayload() + 1))});
    EXPECT_THAT(recorder_.first("error").dump(), HasSubstr("larger than"));

    sio::Items many;
    for (int i = 0; i < 11; ++i) many.push_back(sio::binary({1}));
    socket.emit("echo", many);
    EXPECT_THAT(recorder_.first("error", 2).dump(), HasSubstr("attachments"));

    // Neither reached the server, and the connection is still fine.
    EXPECT_EQ(ask(socket, "echo", {"still here"}), sio::Items{"still here"});
    EXPECT_EQ(recorder_.count("echo"), 0);
    EXPECT_EQ(recorder_.count("disconnect"), 0);
}

}  // namespace
}  // namespace halvora::sio_test
