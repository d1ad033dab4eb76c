#pragma once
// An HttpClient the test answers, one request at a time, or a script answers at once. Completions
// run on the answering thread (the test's), like a network thread that happens to be the main one.

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "halvora/platform/http_client.h"

namespace halvora::testing {

class FakeHttpClient final : public platform::HttpClient {
public:
    // Returns the answer to a request, or none to leave it pending.
    using Script = std::function<std::optional<platform::HttpResult>(const platform::HttpRequest&)>;
    Script script;

    void send(platform::HttpRequest request, Completion completion) override {
        {
            std::lock_guard lock(mutex_);
            sent_.push_back(request);
        }
        if (auto result = script ? script(request) : std::nullopt) return completion(std::move(*result));
        std::lock_guard lock(mutex_);
        pending_.emplace_back(std::move(request), std::move(completion));
    }

    std::size_t pendingCount() const {
        std::lock_guard lock(mutex_);
        return pending_.size();
    }
    std::vector<platform::HttpRequest> sent() const {
        std::lock_guard lock(mutex_);
        return sent_;
    }
    const platform::HttpRequest& lastSent() const {
        std::lock_guard lock(mutex_);
        if (sent_.empty()) throw std::logic_error("no request was sent");
        return sent_.back();
    }

    // Answer the oldest pending request.
    void respond(long status, const std::string& body) { takeOldest()(answer(status, body)); }
    void respondJson(long status, const std::string& json) { respond(status, json); }
    void fail(long code = 7, const std::string& message = "Couldn't connect to server") {
        takeOldest()(failure(code, message));
    }

    static platform::HttpResult answer(long status, std::string body) {
        platform::HttpResult result;
        result.response = platform::HttpResponse{status, {{"Content-Type", "application/json"}}};
        result.body = std::move(body);
        return result;
    }
    static platform::HttpResult failure(long code, std::string message) {
        platform::HttpResult result;
        result.error = platform::TransportError{"curl", code, std::move(message)};
        return result;
    }

private:
    Completion takeOldest() {
        std::lock_guard lock(mutex_);
        if (pending_.empty()) throw std::logic_error("no request is waiting for an answer");
        Completion oldest = std::move(pending_.front().second);
        pending_.pop_front();
        return oldest;
    }

    mutable std::mutex mutex_;
    std::deque<std::pair<platform::HttpRequest, Completion>> pending_;
    std::vector<platform::HttpRequest> sent_;
};

}  // namespace halvora::testing
