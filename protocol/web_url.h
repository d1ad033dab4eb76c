#pragma once
// Which URLs the library will act on for the service or the agent.

#include <string>

namespace halvora {

// True for an absolute http(s) URL with a host and no spaces or control characters.
// Only such URLs are ever opened on the agent's behalf.
bool isOpenableWebUrl(const std::string& text);
// True for an absolute http(s) or ws(s) URL with a host: where a realtime connection may go.
bool isSocketUrl(const std::string& text);

}  // namespace halvora
