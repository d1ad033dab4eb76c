#pragma once
// The handlers registered with Socket::on and Socket::onAny, and which of them an event goes to.
// Thread affinity: any thread, unsynchronised: ManagerCore holds its mutex around every call.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sio/socket.h"

namespace halvora::sio::detail {

class HandlerRegistry {
public:
    using HandlerPtr = std::shared_ptr<const Socket::Handler>;

    // The handlers of one event, copied out so that they run after the mutex is released.
    struct Matched {
        std::vector<HandlerPtr> named;
        std::vector<HandlerPtr> any;
        // The named handlers in registration order, then the onAny ones with the name as first item.
        void call(const std::string& name, const Items& items, const Ack& ack) const;
    };

    // Ids start at 1; an empty handler is not registered and gets 0.
    std::uint64_t add(std::string event, Socket::Handler handler);
    std::uint64_t addAny(Socket::Handler handler);
    // Each removal returns what it removed, to be destroyed unlocked: a handler's captures may
    // call back into sio.
    std::vector<HandlerPtr> remove(std::uint64_t id);
    std::vector<HandlerPtr> remove(const std::string& event);
    std::vector<HandlerPtr> takeAll();

    // onAny handlers receive server events only.
    bool wants(const std::string& name, bool fromServer) const;
    Matched match(const std::string& name, bool fromServer) const;

private:
    struct Registration {
        std::uint64_t id;
        std::string event;
        bool any;
        HandlerPtr handler;
    };
    template <typename Match>
    std::vector<HandlerPtr> removeIf(Match match);

    std::vector<Registration> registrations_;
    std::uint64_t nextId_ = 1;
};

}  // namespace halvora::sio::detail
