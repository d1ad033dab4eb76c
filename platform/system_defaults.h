#pragma once
// The defaults that need the operating system (settings store, device information, HTTP client,
// realtime sockets) are made by a layer above the portable registry. It registers a maker here;
// the registry calls it, lazily and under its lock, for whatever the host left out.

#include <functional>

#include "halvora/platform.h"

namespace halvora::platform {

using SystemDefaults = std::function<void(Services&)>;
void setSystemDefaults(SystemDefaults make);

}  // namespace halvora::platform
