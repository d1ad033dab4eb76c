#pragma once
// How the transport reads the service's answer to a request: the body as JSON and the status as
// an error. Kept apart from the sending so that it can be tested and fuzzed on its own.

#include <optional>
#include <string>

#include "halvora/error.h"
#include "base/json_fields.h"

namespace halvora {

struct ServiceAnswer {
    OptionalError error;
    std::optional<Json> json;
};

// 204: no error and no JSON. A body that is not a JSON object or array: a "json" domain error.
// Status 400 and above: HLVError(the answer's "message" or "Request failed", status) with the JSON.
ServiceAnswer interpretAnswer(long status, const std::string& body);

}  // namespace halvora
