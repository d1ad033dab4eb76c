#pragma once
// The one URL splitter: scheme, authority and path of an absolute URL, without judging them.
// Callers decide what they accept (web pages, socket endpoints, session links).

#include <optional>
#include <string>
#include <string_view>

namespace halvora {

struct UrlParts {
    std::string scheme;     // lower-cased
    std::optional<std::string> userinfo;  // before an "@" in the authority
    std::string host;       // as written, without an IPv6 literal's brackets
    std::optional<std::string> port;      // after the host's ":", as written (maybe empty)
    std::string path;       // from the first "/" after the authority; empty when none
    std::string query;      // after "?", without it
    std::string fragment;   // after "#", without it
    bool bracketedHost = false;  // the host was an IPv6 literal in brackets
};

// None for text without "<scheme>://" or with an unterminated "[" in the authority.
std::optional<UrlParts> splitUrl(std::string_view url);

}  // namespace halvora
