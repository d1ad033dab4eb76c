// Engine: the Engine.IO settings and limits of a manager's connection.
#include "sio/engine.h"

#include "sio/detail/manager_core.h"

namespace halvora::sio {

Engine::Engine(std::weak_ptr<detail::ManagerCore> core) : core_(std::move(core)) {}

void Engine::setExtraHeaders(Headers headers) {
    if (auto core = core_.lock()) core->setExtraHeaders(std::move(headers));
}

Headers Engine::extraHeaders() const {
    auto core = core_.lock();
    return core ? core->extraHeaders() : Headers();
}

bool Engine::connected() const {
    auto core = core_.lock();
    return core && core->engineOpen();
}

std::size_t Engine::maxPayload() const {
    auto core = core_.lock();
    return core ? core->maxPayload() : 0;
}

Seconds Engine::pingInterval() const {
    auto core = core_.lock();
    return core ? core->pingInterval() : Seconds(0);
}

Seconds Engine::pingTimeout() const {
    auto core = core_.lock();
    return core ? core->pingTimeout() : Seconds(0);
}

}  // namespace halvora::sio
