#include "halvora/platform/app_info.h"

#include <cctype>
#include <cstdlib>

namespace halvora::platform {

std::optional<std::string> StaticAppInfo::preferredLocalization() const {
    if (localization) return localization;
    // The order in which the C library itself picks the message locale (LANGUAGE aside).
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return languageOfLocale(value);
    }
    return languageOfLocale("");
}

std::optional<InfoValue> StaticAppInfo::infoValue(const std::string& key) const {
    const auto it = info.find(key);
    if (it == info.end()) return std::nullopt;
    return it->second;
}

std::string languageOfLocale(const std::string& localeName) {
    // language[_territory][.codeset][@modifier]
    std::string language = localeName.substr(0, localeName.find_first_of("_.@"));
    if (language.empty() || language == "C" || language == "POSIX") return "en";
    for (char& c : language) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return language;
}

}  // namespace halvora::platform
