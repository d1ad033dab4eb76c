#include "core/url_record.h"

#include <algorithm>
#include <cctype>

namespace halvora {

bool isOpenableWebUrl(const std::string& text) {
    auto lower = text.substr(0, 8);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::size_t hostStart;
    if (lower.rfind("https://", 0) == 0) {
        hostStart = 8;
    } else if (lower.rfind("http://", 0) == 0) {
        hostStart = 7;
    } else {
        return false;
    }
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

std::shared_ptr<HLVURL> HLVURL::from(const Json& value) {
    if (stringField(value, "type") != "URL") return nullptr;
    auto record = std::make_shared<HLVURL>();
    if (auto it = value.find("id"); it != value.end()) record->id = *it;
    if (auto url = stringField(value, "url"); url && isOpenableWebUrl(*url)) record->url = *url;
    return record;
}

}  // namespace halvora
