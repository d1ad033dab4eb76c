#pragma once
// One exchange with the service through the library's REST transport (Halvora::request).

#include <functional>
#include <optional>
#include <string>

#include "halvora/error.h"
#include "halvora/json.h"
#include "halvora/platform/http_client.h"

namespace halvora {

struct RequestOptions {
    std::optional<std::string> method;  // "GET" when none
    std::optional<Json> body;           // no body when none
};

// error or none; the parsed answer or none; the HTTP response or none.
using RequestCallback = std::function<void(OptionalError, std::optional<Json>,
                                           std::optional<platform::HttpResponse>)>;

}  // namespace halvora
