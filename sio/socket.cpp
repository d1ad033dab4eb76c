// Socket: the default namespace's handlers and emits, forwarded to the manager's core.
#include "sio/socket.h"

#include "sio/detail/manager_core.h"

namespace halvora::sio {

Socket::Socket(std::weak_ptr<detail::ManagerCore> core) : core_(std::move(core)) {}

std::uint64_t Socket::on(const std::string& event, Handler handler) {
    auto core = core_.lock();
    return core ? core->on(event, std::move(handler)) : 0;
}

std::uint64_t Socket::onAny(Handler handler) {
    auto core = core_.lock();
    return core ? core->onAny(std::move(handler)) : 0;
}

void Socket::off(std::uint64_t id) {
    if (auto core = core_.lock()) core->off(id);
}

void Socket::off(const std::string& event) {
    if (auto core = core_.lock()) core->off(event);
}

void Socket::emit(const std::string& event, Items items) {
    if (auto core = core_.lock()) core->emit(event, std::move(items), Seconds(0), nullptr);
}

void Socket::emitWithAck(const std::string& event, Items items, Seconds timeout, AckCallback onAck) {
    auto core = core_.lock();
    if (!core) return;
    std::shared_ptr<const AckCallback> callback;
    // Without a callback there is nothing to wait for: a plain emit.
    if (onAck) callback = std::make_shared<const AckCallback>(std::move(onAck));
    core->emit(event, std::move(items), timeout, std::move(callback));
}

Status Socket::status() const {
    auto core = core_.lock();
    return core ? core->status() : Status::disconnected;
}

std::string Socket::id() const {
    auto core = core_.lock();
    return core ? core->sid() : std::string();
}

}  // namespace halvora::sio
