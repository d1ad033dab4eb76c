#include "protocol/web_url.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "base/url_parts.h"

namespace halvora {
namespace {

// An absolute URL with one of `schemes`, a host, and no spaces or control characters.
bool hasSchemeAndHost(const std::string& text, std::initializer_list<std::string_view> schemes) {
    if (std::any_of(text.begin(), text.end(), [](unsigned char c) { return c <= 0x20 || c == 0x7f; })) return false;
    auto parts = splitUrl(text);
    if (!parts || parts->host.empty()) return false;
    return std::find(schemes.begin(), schemes.end(), parts->scheme) != schemes.end();
}

}  // namespace

bool isOpenableWebUrl(const std::string& text) { return hasSchemeAndHost(text, {"https", "http"}); }

bool isSocketUrl(const std::string& text) { return hasSchemeAndHost(text, {"https", "http", "wss", "ws"}); }

}  // namespace halvora
