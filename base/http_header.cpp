#include "base/http_header.h"

#include <algorithm>

namespace halvora {

bool isHttpToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        const bool alnum = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        return alnum || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    });
}

bool isHttpHeaderValue(std::string_view value) {
    return std::none_of(value.begin(), value.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7f;
    });
}

std::string invalidHeader(const std::vector<std::pair<std::string, std::string>>& headers) {
    for (const auto& [name, value] : headers) {
        if (!isHttpToken(name)) return "invalid header name \"" + name + "\"";
        if (!isHttpHeaderValue(value)) return "header \"" + name + "\" has a control character in its value";
    }
    return {};
}

}  // namespace halvora
