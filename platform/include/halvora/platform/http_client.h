#pragma once
// One HTTP exchange, as the REST transport needs it: no cookies, cache or credentials are kept
// between requests.

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace halvora::platform {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string url;            // sent exactly as given
    std::string method = "GET";
    HeaderList headers;         // sent in this order
    std::optional<std::string> body;
};

struct HttpResponse {
    long status = 0;
    HeaderList headers;         // as received, names in the server's case
};

// A failure before a complete response arrived (connection refused, DNS, TLS, timeout...).
struct TransportError {
    std::string domain;   // e.g. "curl"
    long code = 0;        // the client library's own code
    std::string message;  // human-readable description
};

struct HttpResult {
    std::optional<TransportError> error;     // set: response may be partial or none
    std::optional<HttpResponse> response;
    std::string body;
};

class HttpClient {
public:
    using Completion = std::function<void(HttpResult)>;
    virtual ~HttpClient() = default;
    // Starts the exchange and returns at once. The completion runs exactly once, on the client's
    // own network thread. Callable from any thread.
    virtual void send(HttpRequest request, Completion completion) = 0;
};

}  // namespace halvora::platform
