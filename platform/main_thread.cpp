#include "platform/main_thread.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "halvora/platform/log.h"

namespace halvora::platform {

void assertOnMainThread(const char* where) {
    if (mainQueue().isCurrentThread()) return;
    const std::string message = std::string("Halvora: ") + where +
                                " must be called on the main thread (the thread running the installed main queue)";
    // Also straight to stderr: the host's log sink may be buffered or itself bound to a thread.
    log(message);
    std::fprintf(stderr, "%s\n", message.c_str());
    std::abort();
}

}  // namespace halvora::platform
