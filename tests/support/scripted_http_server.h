#pragma once
// A loopback HTTP/1.1 server for tests. It records every request and answers from a script:
// queued replies first (one per request, in arrival order), then an optional handler, then the
// default reply. Keep-alive works; each connection has its own thread. Every member is
// thread-safe, and the destructor stops promptly even with connections told never to answer.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvora::testing {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct RecordedRequest {
    std::string method;
    std::string target;  // exactly as on the request line, e.g. "/v1/items?x=1"
    std::string body;    // Content-Length bytes, exactly
};

struct Reply {
    enum class Kind {
        Response,            // status line, headers and body built from the fields below
        NeverAnswer,         // read the request, then stay silent until the client or server quits
        CloseWithoutAnswer,  // read the request, then close the connection
    };

    Kind kind = Kind::Response;
    int statusCode = 200;
    HttpHeaders headers;       // sent in this order
    std::string body;

    static Reply status(int code, std::string body = {}, std::string contentType = "text/plain");
    static Reply json(int code, std::string body) { return status(code, std::move(body), "application/json"); }
    static Reply neverAnswer() { return Reply().as(Kind::NeverAnswer); }
    static Reply closeConnection() { return Reply().as(Kind::CloseWithoutAnswer); }

    Reply& as(Kind k) {
        kind = k;
        return *this;
    }
    Reply& withHeader(std::string name, std::string value) {
        headers.emplace_back(std::move(name), std::move(value));
        return *this;
    }
};

// A loopback port nobody listens on: bound once, then released.
std::uint16_t unusedLoopbackPort();

class ScriptedHttpServer {
public:
    // Consulted when no queued reply is left; return nothing to fall through to the default reply.
    // Runs on the connection's thread, possibly on several at once.
    using Handler = std::function<std::optional<Reply>(const RecordedRequest&)>;

    // Listens on 127.0.0.1 on an ephemeral port at once. Throws std::system_error on failure.
    ScriptedHttpServer();
    ~ScriptedHttpServer();
    ScriptedHttpServer(const ScriptedHttpServer&) = delete;
    ScriptedHttpServer& operator=(const ScriptedHttpServer&) = delete;

    std::uint16_t port() const;
    std::string baseUrl() const { return "http://127.0.0.1:" + std::to_string(port()); }
    std::string url(std::string_view target) const { return baseUrl() + std::string(target); }

    // Until changed: 404 with a "no scripted reply" body, so unplanned requests stand out.
    void setDefaultReply(Reply reply);
    void enqueueReply(Reply reply);
    void setHandler(Handler handler);

    std::vector<RecordedRequest> requests() const;
    // True once at least `count` requests were recorded; false if the timeout passed first.
    bool waitForRequests(std::size_t count,
                         std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvora::testing
