#include "peer_fixture.h"

#include <fstream>
#include <iostream>
#include <sstream>

namespace halvora::sio_test {
namespace {

// The ports peer.js writes, once the file exists (none after kBound).
std::optional<PeerPorts> readPortFile(const std::string& file) {
    for (const auto deadline = std::chrono::steady_clock::now() + kBound; std::chrono::steady_clock::now() < deadline;) {
        std::stringstream text;
        text << std::ifstream(file).rdbuf();
        if (!text.str().empty()) {
            const auto json = nlohmann::json::parse(text.str());
            return PeerPorts{json.at("port").get<int>(), json.value("tlsPort", 0), json.value("caFile", "")};
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return std::nullopt;
}

}  // namespace

PeerPorts sharedPeer() {
    const char* file = std::getenv("SIO_PEER_PORT_FILE");
    return file ? readPortFile(file).value_or(PeerPorts{}) : PeerPorts{};
}

WorkerExecutor::WorkerExecutor() {
    thread_ = std::thread([queue = queue_] {
        std::unique_lock lock(queue->mutex);
        while (queue->ready.wait(lock, [&] { return queue->stopped || !queue->tasks.empty(); }), !queue->tasks.empty()) {
            auto task = std::move(queue->tasks.front());
            queue->tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    });
}

WorkerExecutor::~WorkerExecutor() {
    {
        std::lock_guard lock(queue_->mutex);
        queue_->stopped = true;
        queue_->tasks.clear();
    }
    queue_->ready.notify_all();
    thread_.join();
}

sio::Executor WorkerExecutor::executor() {
    return [weak = std::weak_ptr<Queue>(queue_)](std::function<void()> task) {
        auto queue = weak.lock();
        if (!queue) return;
        std::lock_guard lock(queue->mutex);
        if (queue->stopped) return;
        queue->tasks.push_back(std::move(task));
        queue->ready.notify_one();
    };
}

void Recorder::watch(sio::Socket& socket, const std::vector<std::string>& names) {
    for (const auto& name : names) {
        socket.on(name, [this, name](const sio::Items& items, sio::Ack) {
            std::lock_guard lock(mutex_);
            events_.push_back({name, items});
            changed_.notify_all();
        });
    }
}

std::optional<sio::Items> Recorder::waitFor(const std::string& name, int nth) {
    std::unique_lock lock(mutex_);
    std::optional<sio::Items> found;
    changed_.wait_for(lock, kBound, [&] {
        int seen = 0;
        for (const auto& event : events_) {
            if (event.name == name && ++seen == nth) found = event.items;
        }
        return found.has_value();
    });
    return found;
}

int Recorder::count(const std::string& name) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(events_.begin(), events_.end(), [&](const Event& e) { return e.name == name; }));
}

std::vector<Event> Recorder::events() const {
    std::lock_guard lock(mutex_);
    return events_;
}

std::optional<sio::Items> ask(sio::Socket& socket, const std::string& event, sio::Items items, sio::Seconds timeout) {
    struct Answer {
        std::mutex mutex;
        std::condition_variable ready;
        std::optional<sio::Items> items;
    };
    auto answer = std::make_shared<Answer>();
    socket.emitWithAck(event, std::move(items), timeout, [answer](const sio::Items& reply) {
        std::lock_guard lock(answer->mutex);
        answer->items = reply;
        answer->ready.notify_all();
    });
    std::unique_lock lock(answer->mutex);
    answer->ready.wait_for(lock, kBound + std::chrono::seconds(1), [&] { return answer->items.has_value(); });
    return answer->items;
}

std::vector<std::uint8_t> bytes(std::size_t size) {
    std::vector<std::uint8_t> out(size);
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<std::uint8_t>(i * 31 + i / 251);
    return out;
}

void PeerTest::TearDown() {
    if (!HasFailure() && !std::getenv("SIO_TEST_VERBOSE")) return;
    for (const auto& event : recorder_.events()) {
        std::string items = sio::Value(event.items).dump();
        std::cerr << "  event " << event.name << " " << items.substr(0, 200) << (items.size() > 200 ? "...\n" : "\n");
    }
}

sio::Config PeerTest::config() {
    sio::Config config;
    config.path = "/custom/io";
    config.handleQueue = worker_.executor();
    config.reconnectWait = sio::Seconds(0.1);
    config.reconnectWaitMax = sio::Seconds(0.5);
    return config;
}

std::unique_ptr<sio::SocketManager> PeerTest::connect(sio::Config config, std::string url) {
    auto manager = std::make_unique<sio::SocketManager>(url.empty() ? wsUrl(peer_.port) : url, std::move(config));
    recorder_.watch(manager->defaultSocket(), {"connect", "disconnect", "error", "reconnect", "reconnectAttempt",
                                               "statusChange", "echo", "answer"});
    manager->connect();
    return manager;
}

}  // namespace halvora::sio_test
