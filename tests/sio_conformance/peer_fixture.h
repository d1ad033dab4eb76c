#pragma once
// What the sio conformance cases share: the peer server's address, an executor thread standing in
// for an application's UI queue, and a recorder of the events a socket receives.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "sio/socket_manager.h"

namespace halvora::sio_test {

using ::testing::HasSubstr;

// Failure bound of every wait; the events come much sooner when things work.
inline constexpr std::chrono::seconds kBound{10};

struct PeerPorts {
    int port = 0;
    int tlsPort = 0;
    std::string caFile;
};

// The peer started by the CTest fixture (path /custom/io, TLS as well).
PeerPorts sharedPeer();

class WorkerExecutor {
public:
    WorkerExecutor();
    ~WorkerExecutor();
    sio::Executor executor();

private:
    struct Queue {
        std::mutex mutex;
        std::condition_variable ready;
        std::deque<std::function<void()>> tasks;
        bool stopped = false;
    };
    std::shared_ptr<Queue> queue_ = std::make_shared<Queue>();
    std::thread thread_;
};

struct Event {
    std::string name;
    sio::Items items;
};

class Recorder {
public:
    void watch(sio::Socket& socket, const std::vector<std::string>& names);
    // Waits for the `nth` event called `name` (1-based) and returns its items.
    std::optional<sio::Items> waitFor(const std::string& name, int nth = 1);
    // The first item of that event; null if it never came.
    sio::Value first(const std::string& name, int nth = 1) {
        const auto items = waitFor(name, nth);
        return items && !items->empty() ? items->front() : sio::Value();
    }
    int count(const std::string& name) const;
    std::vector<Event> events() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Event> events_;
};

// Sends an event asking for an acknowledgement and waits for the answer.
std::optional<sio::Items> ask(sio::Socket& socket, const std::string& event, sio::Items items,
                              sio::Seconds timeout = kBound);

std::vector<std::uint8_t> bytes(std::size_t size);
inline const std::vector<std::uint8_t>& bytesOf(const sio::Value& value) { return value.get_binary(); }

// A manager on the shared peer, handlers on a worker thread, every client event recorded.
class PeerTest : public testing::Test {
protected:
    void TearDown() override;  // a failed case shows what the socket went through
    sio::Config config();
    std::unique_ptr<sio::SocketManager> connect(sio::Config config, std::string url = {});
    static std::string wsUrl(int port) { return "ws://127.0.0.1:" + std::to_string(port); }

    PeerPorts peer_ = sharedPeer();
    WorkerExecutor worker_;
    Recorder recorder_;
};

}  // namespace halvora::sio_test
