#pragma once
// The REST transport: every exchange with the service goes through sendRequest. Fixed headers
// (and the device credential, to the service's own URLs), compact JSON body, JSON answers, HTTP
// failures as HLVError.

#include <string>

#include "halvora/request.h"
#include "platform/main_thread.h"
#include "rest/service_context.h"

namespace halvora {

// Sends one request to `url` (used exactly as given). The callback runs exactly once:
// - at once, before this returns, with "Halvora not started" (code 0) when the library is stopped;
// - on the network thread when the exchange itself failed (connection, timeout), with the
//   client's error in its own domain ("curl");
// - on the main queue otherwise: 204 -> no error and no JSON; an answer that is not a JSON object
//   or array -> a "json" domain error; status >= 400 -> HLVError(answer's "message" or
//   "Request failed", status) with the parsed answer; else the parsed answer.
// Nothing is retried, and no cookies, cache or credentials are kept between requests.
void sendRequest(const ServiceContext& context, const std::string& url, const RequestOptions& options,
                 RequestCallback callback);

}  // namespace halvora
