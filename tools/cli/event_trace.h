#pragma once
// Shows every realtime event the library receives: a socket factory that wraps another and
// prints "<event> <first argument>" before the library's own handler runs.

#include <functional>
#include <memory>
#include <string>

#include "base/json_fields.h"
#include "halvora/platform/realtime_socket.h"

namespace halvora::cli {

class TracingSocketFactory final : public platform::RealtimeSocketFactory {
public:
    using Printer = std::function<void(const std::string& line)>;

    TracingSocketFactory(std::shared_ptr<platform::RealtimeSocketFactory> inner, Printer print);
    std::shared_ptr<platform::RealtimeSocket> make(const std::string& url, platform::RealtimeSocketConfig config) override;

private:
    std::shared_ptr<platform::RealtimeSocketFactory> inner_;
    Printer print_;
};

// Local time with milliseconds: "14:05:09.123".
std::string clockTime(std::chrono::system_clock::time_point when);
// The value as compact JSON with binary values shortened to "<N bytes>" (frames and drawings
// would otherwise flood the terminal) and tokens ("..._token") hidden.
std::string traceValue(const Json& value);

}  // namespace halvora::cli
