#include "sio/detail/handler_registry.h"

#include <algorithm>

namespace halvora::sio::detail {

void HandlerRegistry::Matched::call(const std::string& name, const Items& items,
                                    const Ack& ack) const {
    for (const auto& handler : named) (*handler)(items, ack);
    if (any.empty()) return;
    Items withName;
    withName.reserve(items.size() + 1);
    withName.emplace_back(name);
    withName.insert(withName.end(), items.begin(), items.end());
    for (const auto& handler : any) (*handler)(withName, ack);
}

std::uint64_t HandlerRegistry::add(std::string event, Socket::Handler handler) {
    if (!handler) return 0;
    const auto id = nextId_++;
    registrations_.push_back(
        {id, std::move(event), false, std::make_shared<const Socket::Handler>(std::move(handler))});
    return id;
}

std::uint64_t HandlerRegistry::addAny(Socket::Handler handler) {
    if (!handler) return 0;
    const auto id = nextId_++;
    registrations_.push_back(
        {id, {}, true, std::make_shared<const Socket::Handler>(std::move(handler))});
    return id;
}

std::vector<HandlerRegistry::HandlerPtr> HandlerRegistry::remove(std::uint64_t id) {
    return removeIf([&](const Registration& r) { return r.id == id; });
}

std::vector<HandlerRegistry::HandlerPtr> HandlerRegistry::remove(const std::string& event) {
    return removeIf([&](const Registration& r) { return !r.any && r.event == event; });
}

std::vector<HandlerRegistry::HandlerPtr> HandlerRegistry::takeAll() {
    return removeIf([](const Registration&) { return true; });
}

template <typename Match>
std::vector<HandlerRegistry::HandlerPtr> HandlerRegistry::removeIf(Match match) {
    auto keep = std::stable_partition(registrations_.begin(), registrations_.end(),
                                      [&](const Registration& r) { return !match(r); });
    std::vector<HandlerPtr> removed;
    removed.reserve(static_cast<std::size_t>(registrations_.end() - keep));
    for (auto r = keep; r != registrations_.end(); ++r) removed.push_back(std::move(r->handler));
    registrations_.erase(keep, registrations_.end());
    return removed;
}

bool HandlerRegistry::wants(const std::string& name, bool fromServer) const {
    return std::any_of(registrations_.begin(), registrations_.end(),
                       [&](const Registration& r) { return r.any ? fromServer : r.event == name; });
}

HandlerRegistry::Matched HandlerRegistry::match(const std::string& name, bool fromServer) const {
    Matched matched;
    for (const auto& r : registrations_) {
        if (r.any) {
            if (fromServer) matched.any.push_back(r.handler);
        } else if (r.event == name) {
            matched.named.push_back(r.handler);
        }
    }
    return matched;
}

}  // namespace halvora::sio::detail
