#pragma once
// The default realtime sockets: the project's own Socket.IO client, with handlers delivered on the
// main queue.

#include "halvora/platform/realtime_socket.h"

namespace halvora::platform {

class SioSocketFactory final : public RealtimeSocketFactory {
public:
    std::shared_ptr<RealtimeSocket> make(const std::string& url, RealtimeSocketConfig config) override;
};

}  // namespace halvora::platform
