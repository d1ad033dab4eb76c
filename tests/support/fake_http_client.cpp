#include "tests/support/fake_http_client.h"

#include <stdexcept>

namespace halvora::testing {

void FakeHttpClient::send(platform::HttpRequest request, Completion completion) {
    {
        std::lock_guard lock(mutex_);
        sent_.push_back(request);
    }
    if (auto result = script ? script(request) : std::nullopt) return completion(std::move(*result));
    std::lock_guard lock(mutex_);
    pending_.push_back({std::move(request), std::move(completion)});
}

std::size_t FakeHttpClient::pendingCount() const {
    std::lock_guard lock(mutex_);
    return pending_.size();
}

std::vector<platform::HttpRequest> FakeHttpClient::sent() const {
    std::lock_guard lock(mutex_);
    return sent_;
}

const platform::HttpRequest& FakeHttpClient::lastSent() const {
    std::lock_guard lock(mutex_);
    if (sent_.empty()) throw std::logic_error("no request was sent");
    return sent_.back();
}

FakeHttpClient::Pending FakeHttpClient::takeOldest() {
    std::lock_guard lock(mutex_);
    if (pending_.empty()) throw std::logic_error("no request is waiting for an answer");
    Pending oldest = std::move(pending_.front());
    pending_.pop_front();
    return oldest;
}

platform::HttpResult FakeHttpClient::answer(long status, std::string body) {
    platform::HttpResult result;
    result.response = platform::HttpResponse{status, {{"Content-Type", "application/json"}}};
    result.body = std::move(body);
    return result;
}

platform::HttpResult FakeHttpClient::failure(long code, std::string message) {
    platform::HttpResult result;
    result.error = platform::TransportError{"curl", code, std::move(message)};
    return result;
}

void FakeHttpClient::respond(long status, const std::string& body) {
    takeOldest().completion(answer(status, body));
}

void FakeHttpClient::fail(long code, const std::string& message) {
    takeOldest().completion(failure(code, message));
}

}  // namespace halvora::testing
