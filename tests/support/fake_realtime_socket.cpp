#include "tests/support/fake_realtime_socket.h"

namespace halvora::testing {

void FakeRealtimeSocket::on(const std::string& event, Handler handler) {
    handlers_.emplace(event, std::move(handler));
}

void FakeRealtimeSocket::emitEvent(const std::string& event, Items items) {
    std::lock_guard lock(emittedMutex_);
    emitted.emplace_back(event, std::move(items));
    emittedAt.push_back(std::chrono::steady_clock::now());
}

std::vector<FakeRealtimeSocket::Emission> FakeRealtimeSocket::emittedSince(std::size_t from) const {
    std::lock_guard lock(emittedMutex_);
    std::vector<Emission> since;
    for (std::size_t i = from; i < emitted.size(); ++i) since.push_back({emitted[i].first, emitted[i].second, emittedAt[i]});
    return since;
}

std::vector<std::pair<std::string, platform::RealtimeSocket::Items>> FakeRealtimeSocket::emittedSoFar() const {
    std::lock_guard lock(emittedMutex_);
    return emitted;
}

void FakeRealtimeSocket::fire(const std::string& event, Items items) {
    auto [first, last] = handlers_.equal_range(event);
    std::vector<Handler> due;
    for (auto it = first; it != last; ++it) due.push_back(it->second);
    for (const auto& handler : due) handler(items);
}

std::string FakeRealtimeSocket::bearer() const {
    for (const auto& [name, value] : config.extraHeaders) {
        if (name == "Authorization" && value.rfind("Bearer ", 0) == 0) return value.substr(7);
    }
    return {};
}

std::shared_ptr<platform::RealtimeSocket> FakeSocketFactory::make(const std::string&,
                                                                  platform::RealtimeSocketConfig config) {
    auto socket = std::make_shared<FakeRealtimeSocket>();
    socket->config = std::move(config);
    made.push_back(socket);
    return socket;
}

std::shared_ptr<FakeRealtimeSocket> FakeSocketFactory::latestWithToken(const std::string& token) const {
    for (auto it = made.rbegin(); it != made.rend(); ++it) {
        if ((*it)->bearer() == token) return *it;
    }
    return nullptr;
}

}  // namespace halvora::testing
