#pragma once

#include <tuple>

#include "platform/platform.h"

namespace halvora {

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
