#pragma once
// An HttpClient that answers at once from a script, for driving whole commands without a
// network: the script sees each request and returns its answer, or none to leave it unanswered.

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/json_fields.h"
#include "halvora/platform/http_client.h"

namespace halvora::testing {

class ScriptedHttpClient final : public platform::HttpClient {
public:
    using Script = std::function<std::optional<platform::HttpResult>(const platform::HttpRequest&)>;

    explicit ScriptedHttpClient(Script script) : script_(std::move(script)) {}

    void send(platform::HttpRequest request, Completion completion) override {
        {
            std::lock_guard lock(mutex_);
            sent_.push_back(request);
        }
        auto result = script_(request);
        if (!result) {
            std::lock_guard lock(mutex_);
            unanswered_.push_back(std::move(completion));
            return;
        }
        completion(std::move(*result));
    }

    // Every request, in order.
    std::vector<platform::HttpRequest> sent() const {
        std::lock_guard lock(mutex_);
        return sent_;
    }
    // "METHOD url" of every request, in order.
    std::vector<std::string> sentLines() const {
        std::vector<std::string> lines;
        for (const auto& request : sent()) lines.push_back(request.method + " " + request.url);
        return lines;
    }

    static platform::HttpResult answer(long status, const Json& body) {
        platform::HttpResult result;
        result.response = platform::HttpResponse{status, {{"Content-Type", "application/json"}}};
        result.body = body.dump();
        return result;
    }

    static platform::HttpResult failure(long code, std::string message) {
        platform::HttpResult result;
        result.error = platform::TransportError{"curl", code, std::move(message)};
        return result;
    }

private:
    Script script_;
    mutable std::mutex mutex_;
    std::vector<platform::HttpRequest> sent_;
    std::vector<Completion> unanswered_;
};

}  // namespace halvora::testing
