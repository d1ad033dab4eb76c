#pragma once
// The main thread, as the library relies on it: every public entry point and every callback into
// the application runs there. Debug builds check it at each of those places, in the manner of a
// sequence checker, so that a host calling from another thread fails loudly in development instead
// of racing silently in the field.

#include <functional>
#include <tuple>

#include "halvora/platform.h"

#if defined(HALVORA_THREAD_CHECKS) && HALVORA_THREAD_CHECKS
#define HALVORA_ASSERT_MAIN_THREAD() ::halvora::platform::assertOnMainThread(__func__)
#else
#define HALVORA_ASSERT_MAIN_THREAD() static_cast<void>(0)
#endif

namespace halvora::platform {

// Logs "<where> must be called on the main thread ..." and aborts, unless called on the thread
// of the installed main queue.
void assertOnMainThread(const char* where);

}  // namespace halvora::platform

namespace halvora {

// Wraps a callback so that it always runs on the main queue: called there, it runs at once;
// called from another thread, it is posted. The library's own callers use this so their state is
// only touched on the main thread, whichever thread the transport answered on.
template <typename... Args>
std::function<void(Args...)> onMainQueue(std::function<void(Args...)> callback) {
    return [callback = std::move(callback)](Args... args) {
        auto& queue = platform::mainQueue();
        if (queue.isCurrentThread()) {
            callback(std::move(args)...);
            return;
        }
        queue.post([callback, saved = std::make_tuple(std::move(args)...)]() mutable {
            std::apply(callback, std::move(saved));
        });
    };
}

}  // namespace halvora
