#pragma once
// A loopback HTTP/1.1 server for tests. It records every request and answers queued replies first
// (in arrival order), then the handler's, then the default reply. Keep-alive works; each
// connection has its own thread, and the destructor stops even connections told never to answer.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace halvora::testing {

struct RecordedRequest {
    std::string method;
    std::string target;  // as on the request line
    std::string body;
};

struct Reply {
    enum class Kind { Response, NeverAnswer, CloseWithoutAnswer };
    Kind kind = Kind::Response;
    int statusCode = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    static Reply status(int code, std::string body = {}, std::string contentType = "text/plain") {
        Reply reply{Kind::Response, code, {}, std::move(body)};
        if (!reply.body.empty()) reply.headers.emplace_back("Content-Type", std::move(contentType));
        return reply;
    }
    static Reply json(int code, std::string body) { return status(code, std::move(body), "application/json"); }
    static Reply neverAnswer() { return {Kind::NeverAnswer, 0, {}, {}}; }
    static Reply closeConnection() { return {Kind::CloseWithoutAnswer, 0, {}, {}}; }
    Reply& withHeader(std::string name, std::string value) {
        headers.emplace_back(std::move(name), std::move(value));
        return *this;
    }
};

// A loopback port nobody listens on: bound once, then released.
std::uint16_t unusedLoopbackPort();

class ScriptedHttpServer {
public:
    // Runs on connection threads; returning nothing falls through to the default reply.
    using Handler = std::function<std::optional<Reply>(const RecordedRequest&)>;

    ScriptedHttpServer();  // listens on 127.0.0.1 at once; throws std::system_error on failure
    ~ScriptedHttpServer();
    ScriptedHttpServer(const ScriptedHttpServer&) = delete;
    ScriptedHttpServer& operator=(const ScriptedHttpServer&) = delete;

    std::uint16_t port() const;
    std::string baseUrl() const { return "http://127.0.0.1:" + std::to_string(port()); }
    std::string url(const std::string& target) const { return baseUrl() + target; }

    void setDefaultReply(Reply reply);  // until set: a 404, so unplanned requests stand out
    void enqueueReply(Reply reply);
    void setHandler(Handler handler);

    std::vector<RecordedRequest> requests() const;
    // Whether `count` requests arrived; the deadline only stops a broken test.
    bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvora::testing
