#pragma once
// What the layers below the facade need of its configuration. The facade owns the one instance and
// hands it to what it makes, so nothing below the facade reaches for the facade itself.

#include <memory>
#include <string>

namespace halvora {

struct ServiceContext {
    // Requests are refused while the library is stopped.
    bool started = false;
    // The service's base URL, without a trailing slash.
    std::string api;
};

using ServiceContextPtr = std::shared_ptr<const ServiceContext>;

}  // namespace halvora
