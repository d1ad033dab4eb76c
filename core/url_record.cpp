#include "core/url_record.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <string_view>

namespace halvora {

namespace {

// An absolute URL with one of `schemes`, a host, and no spaces or control characters.
bool hasSchemeAndHost(const std::string& text, std::initializer_list<std::string_view> schemes) {
    std::string lower = text.substr(0, 8);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::size_t hostStart = 0;
    for (std::string_view scheme : schemes) {
        if (lower.starts_with(scheme) && lower.compare(scheme.size(), 3, "://") == 0) {
            hostStart = scheme.size() + 3;
            break;
        }
    }
    if (hostStart == 0) return false;
    for (unsigned char c : text) {
        if (c <= 0x20 || c == 0x7f) return false;
    }
    std::size_t hostEnd = text.find_first_of("/?#", hostStart);
    std::string authority = text.substr(hostStart, hostEnd == std::string::npos ? std::string::npos
                                                                                 : hostEnd - hostStart);
    auto at = authority.rfind('@');
    std::string host = at == std::string::npos ? authority : authority.substr(at + 1);
    return !host.empty() && host[0] != ':';
}

}  // namespace

bool isOpenableWebUrl(const std::string& text) { return hasSchemeAndHost(text, {"https", "http"}); }

bool isSocketUrl(const std::string& text) { return hasSchemeAndHost(text, {"https", "http", "wss", "ws"}); }

std::shared_ptr<HLVURL> HLVURL::from(const Json& value) {
    if (stringField(value, "type") != "URL") return nullptr;
    auto record = std::make_shared<HLVURL>();
    if (auto it = value.find("id"); it != value.end()) record->id = *it;
    if (auto url = stringField(value, "url"); url && isOpenableWebUrl(*url)) record->url = *url;
    return record;
}

}  // namespace halvora
