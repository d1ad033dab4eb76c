#pragma once
// The support agent attached to a session.

#include <memory>
#include <optional>

#include "halvora/json.h"

namespace halvora {

struct HLVAgent {
    std::optional<Json> name;  // whatever the record carried (a string in practice)
    std::optional<Json> id;

    // An agent for any JSON object (missing members stay none); none for anything else.
    static std::shared_ptr<HLVAgent> from(const Json& value);
};

}  // namespace halvora
