#pragma once
// The REST transport: every exchange with the service goes through sendRequest (the facade's
// Halvora::request). Fixed headers, compact JSON body, JSON answers, HTTP failures as HLVError.

#include <functional>
#include <optional>
#include <string>

#include "core/error.h"
#include "core/json.h"
#include "platform/http_client.h"

namespace halvora {

struct RequestOptions {
    std::optional<std::string> method;  // "GET" when none
    std::optional<Json> body;           // no body when none
};

// error or none; the parsed answer or none; the HTTP response or none.
using RequestCallback = std::function<void(OptionalError, std::optional<Json>,
                                           std::optional<platform::HttpResponse>)>;

// Sends one request to `url` (used exactly as given). The callback runs exactly once:
// - at once, before this returns, with "Halvora not started" (code 0) when the library is stopped;
// - on the network thread when the exchange itself failed (connection, timeout), with the
//   client's error in its own domain ("curl");
// - on the main queue otherwise: 204 -> no error and no JSON; an answer that is not a JSON object
//   or array -> a "json" domain error; status >= 400 -> HLVError(answer's "message" or
//   "Request failed", status) with the parsed answer; else the parsed answer.
// Nothing is retried, and no cookies, cache or credentials are kept between requests.
void sendRequest(const std::string& url, const RequestOptions& options, RequestCallback callback);

// The headers of every request, in order.
platform::HeaderList requestHeaders();

// Wraps a callback so that it always runs on the main queue: called there, it runs at once;
// called from another thread, it is posted. The library's own callers use this so their state is
// only touched on the main thread, whichever thread the transport answered on.
template <typename... Args>
std::function<void(Args...)> onMainQueue(std::function<void(Args...)> callback);

}  // namespace halvora

#include "core/request_inl.h"
