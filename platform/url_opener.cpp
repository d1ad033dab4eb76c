#include "halvora/platform/url_opener.h"

#include "halvora/platform/log.h"

namespace halvora::platform {

void LoggingUrlOpener::open(const std::string& url) { log("The agent asked to open " + url); }

}  // namespace halvora::platform
