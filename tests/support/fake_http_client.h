#pragma once
// An HttpClient whose answers the test gives, one request at a time, or a script gives at once.
// Completions run on the thread that answers (the test's), like a network thread that happens to
// be the main one.

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "halvora/platform/http_client.h"

namespace halvora::testing {

class FakeHttpClient final : public platform::HttpClient {
public:
    struct Pending {
        platform::HttpRequest request;
        Completion completion;
    };

    // Sees each request and returns its answer, or none to leave it pending.
    using Script = std::function<std::optional<platform::HttpResult>(const platform::HttpRequest&)>;
    Script script;

    void send(platform::HttpRequest request, Completion completion) override;

    // Requests sent and not yet answered, oldest first.
    std::size_t pendingCount() const;
    // Every request ever sent, in order.
    std::vector<platform::HttpRequest> sent() const;
    const platform::HttpRequest& lastSent() const;

    // Answers the oldest pending request.
    void respond(long status, const std::string& body);
    void respondJson(long status, const std::string& json) { respond(status, json); }
    void fail(long code = 7, const std::string& message = "Couldn't connect to server");

    static platform::HttpResult answer(long status, std::string body);
    static platform::HttpResult failure(long code, std::string message);

private:
    Pending takeOldest();

    mutable std::mutex mutex_;
    std::deque<Pending> pending_;
    std::vector<platform::HttpRequest> sent_;
};

}  // namespace halvora::testing
