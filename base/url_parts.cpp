#include "base/url_parts.h"

#include <algorithm>
#include <cctype>

namespace halvora {

std::optional<UrlParts> splitUrl(std::string_view url) {
    const auto schemeEnd = url.find("://");
    if (schemeEnd == std::string_view::npos || schemeEnd == 0) return std::nullopt;
    UrlParts parts;
    parts.scheme = std::string(url.substr(0, schemeEnd));
    std::transform(parts.scheme.begin(), parts.scheme.end(), parts.scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });

    std::string_view rest = url.substr(schemeEnd + 3);
    const auto authorityEnd = rest.find_first_of("/?#");
    std::string_view authority = rest.substr(0, authorityEnd);
    rest = authorityEnd == std::string_view::npos ? std::string_view{} : rest.substr(authorityEnd);

    if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
        parts.userinfo = std::string(authority.substr(0, at));
        authority.remove_prefix(at + 1);
    }
    std::optional<std::string_view> portText;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        parts.bracketedHost = true;
        parts.host = std::string(authority.substr(1, close - 1));
        const auto after = authority.substr(close + 1);
        if (!after.empty() && after.front() != ':') return std::nullopt;
        if (!after.empty()) portText = after.substr(1);
    } else {
        const auto colon = authority.rfind(':');
        parts.host = std::string(authority.substr(0, colon));
        if (colon != std::string_view::npos) portText = authority.substr(colon + 1);
    }
    if (portText) parts.port = std::string(*portText);

    const auto fragmentStart = rest.find('#');
    if (fragmentStart != std::string_view::npos) {
        parts.fragment = std::string(rest.substr(fragmentStart + 1));
        rest = rest.substr(0, fragmentStart);
    }
    const auto queryStart = rest.find('?');
    if (queryStart != std::string_view::npos) {
        parts.query = std::string(rest.substr(queryStart + 1));
        rest = rest.substr(0, queryStart);
    }
    parts.path = std::string(rest);
    return parts;
}

}  // namespace halvora
