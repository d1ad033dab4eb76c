#pragma once
// What the host application says about itself: identity, versions and its information keys.

#include <map>
#include <optional>
#include <string>
#include <variant>

namespace halvora::platform {

// An information value: the keys the library reads are strings or booleans.
using InfoValue = std::variant<bool, std::string>;

class AppInfo {
public:
    virtual ~AppInfo() = default;
    virtual std::optional<std::string> identifier() const = 0;     // e.g. "com.example.app"
    virtual std::optional<std::string> displayName() const = 0;
    virtual std::optional<std::string> shortVersion() const = 0;   // e.g. "2.3"
    virtual std::optional<std::string> buildNumber() const = 0;    // e.g. "417"
    // The localisation the application runs in (e.g. "en").
    virtual std::optional<std::string> preferredLocalization() const = 0;
    // Any other information key, such as "HLVAutostart".
    virtual std::optional<InfoValue> infoValue(const std::string& key) const = 0;
};

// Identity supplied by the host in code. Unset fields read as none. The preferred localisation
// defaults to the language of the process locale (LC_ALL, LC_MESSAGES, LANG), "en" for C/POSIX.
struct StaticAppInfo final : AppInfo {
    std::optional<std::string> id;
    std::optional<std::string> name;
    std::optional<std::string> version;
    std::optional<std::string> build;
    std::optional<std::string> localization;
    std::map<std::string, InfoValue> info;

    std::optional<std::string> identifier() const override { return id; }
    std::optional<std::string> displayName() const override { return name; }
    std::optional<std::string> shortVersion() const override { return version; }
    std::optional<std::string> buildNumber() const override { return build; }
    std::optional<std::string> preferredLocalization() const override;
    std::optional<InfoValue> infoValue(const std::string& key) const override;
};

// The language part of a POSIX locale name: "de_DE.UTF-8" -> "de"; "C"/"POSIX"/empty -> "en".
std::string languageOfLocale(const std::string& localeName);

}  // namespace halvora::platform
