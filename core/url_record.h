#pragma once
// The agent's request to open a web page on the device.

#include <memory>
#include <optional>
#include <string>

#include "core/agent_event.h"
#include "core/json.h"

namespace halvora {

class HLVURL final : public HLVAgentEvent {
public:
    std::optional<Json> id;
    // The page to open: an absolute http or https URL, none when the record's "url" was not one.
    std::optional<std::string> url;

    // A record for an object whose "type" is "URL"; none for anything else.
    static std::shared_ptr<HLVURL> from(const Json& value);
};

// True for an absolute http(s) URL with a host and no spaces or control characters.
// Only such URLs are ever opened on the agent's behalf.
bool isOpenableWebUrl(const std::string& text);
// True for an absolute http(s) or ws(s) URL with a host: where a realtime connection may go.
bool isSocketUrl(const std::string& text);

}  // namespace halvora
