// Measures sio's frame path against a Socket.IO server: binary "frame" events, each acknowledged.
//   sio_frame_bench URL [--path P] [--messages N] [--size BYTES] [--round-trips N]
// Throughput: N events emitted back to back, timed until the last acknowledgement. Latency: one
// event at a time, the median time to its acknowledgement. Prints one JSON line.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "sio/socket_manager.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kBound{60};

struct Options {
    std::string url;
    std::string path = "/socket.io";
    int messages = 2000;
    std::size_t size = 30 * 1024;
    int roundTrips = 200;
};

bool parse(int argc, char** argv, Options& options) {
    if (argc < 2) return false;
    options.url = argv[1];
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = argv[i + 1];
        try {
            if (name == "--path") options.path = value;
            else if (name == "--messages") options.messages = std::stoi(value);
            else if (name == "--size") options.size = std::stoul(value);
            else if (name == "--round-trips") options.roundTrips = std::stoi(value);
            else return false;
        } catch (const std::exception&) {
            return false;
        }
    }
    return options.messages > 0 && options.roundTrips > 0;
}

// Counts acknowledgements and lets the main thread wait for a number of them.
class Acks {
public:
    void add() {
        std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    bool waitFor(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kBound, [&] { return count_ >= count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::cerr << "usage: sio_frame_bench URL [--path P] [--messages N] [--size BYTES] "
                     "[--round-trips N]\n";
        return 64;
    }
    halvora::sio::Config config;
    config.path = options.path;
    config.reconnects = false;
    halvora::sio::SocketManager manager(options.url, config);
    auto& socket = manager.defaultSocket();
    Acks connected;
    socket.on("connect", [&](const halvora::sio::Items&, halvora::sio::Ack) { connected.add(); });
    socket.on("error", [](const halvora::sio::Items& items, halvora::sio::Ack) {
        std::cerr << "error: " << halvora::sio::Value(items).dump() << "\n";
    });
    manager.connect();
    if (!connected.waitFor(1)) {
        std::cerr << "could not connect to " << options.url << "\n";
        return 1;
    }

    std::vector<std::uint8_t> frame(options.size);
    for (std::size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<std::uint8_t>(i);
    const auto send = [&](Acks& acks) {
        // A copy per event, as an application hands over each new frame.
        socket.emitWithAck("frame", {halvora::sio::binary(frame)}, halvora::sio::Seconds(0),
                           [&acks](const halvora::sio::Items&) { acks.add(); });
    };

    Acks burst;
    const auto start = Clock::now();
    for (int i = 0; i < options.messages; ++i) send(burst);
    if (!burst.waitFor(options.messages)) {
        std::cerr << "acknowledgements missing after " << kBound.count() << " s\n";
        return 1;
    }
    const std::chrono::duration<double> elapsed = Clock::now() - start;

    Acks sequential;
    std::vector<double> roundTrips;
    for (int i = 1; i <= options.roundTrips; ++i) {
        const auto sent = Clock::now();
        send(sequential);
        if (!sequential.waitFor(i)) {
            std::cerr << "acknowledgement missing after " << kBound.count() << " s\n";
            return 1;
        }
        roundTrips.push_back(std::chrono::duration<double, std::milli>(Clock::now() - sent).count());
    }
    std::nth_element(roundTrips.begin(), roundTrips.begin() + roundTrips.size() / 2, roundTrips.end());

    halvora::sio::Value result{{"client", "sio"},
                      {"messages", options.messages},
                      {"bytes", options.size},
                      {"seconds", elapsed.count()},
                      {"messagesPerSecond", options.messages / elapsed.count()},
                      {"medianRoundTripMs", roundTrips[roundTrips.size() / 2]}};
    std::cout << result.dump() << std::endl;
    manager.disconnect();
    return 0;
}
