#include "platform/main_thread.h"

#include <cstdlib>
#include <string>

#include "halvora/platform/log.h"

namespace halvora::platform {

void assertOnMainThread(const char* where) {
    if (mainQueue().isCurrentThread()) return;
    log(std::string("Halvora: ") + where +
        " must be called on the main thread (the thread running the installed main queue); aborting");
    std::abort();
}

}  // namespace halvora::platform
