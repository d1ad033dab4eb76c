#pragma once
// The library's log: single lines, no levels. Default sink is stderr; the host may replace it.
// Never pass tokens or push tokens here.

#include <functional>
#include <string>
#include <string_view>

namespace halvora::platform {

using LogSink = std::function<void(std::string_view line)>;

// Replaces the sink for the whole process; an empty sink restores stderr. Thread-safe.
void setLogSink(LogSink sink);
// Writes one line; newlines inside are replaced by spaces so every call stays one line. Thread-safe.
void log(std::string_view line);

}  // namespace halvora::platform
