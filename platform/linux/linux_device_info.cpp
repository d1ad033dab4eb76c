#include "platform/linux/linux_device_info.h"

#include "base/uuid.h"

#include <sys/utsname.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <utility>

namespace halvora::platform {
namespace {

constexpr const char* kInstallationIdKey = "halvora_installation_id";

std::optional<utsname> systemName() {
    utsname name{};
    if (::uname(&name) != 0) return std::nullopt;
    return name;
}

std::optional<std::string> nonEmpty(std::optional<std::string> value) {
    if (value && value->empty()) return std::nullopt;
    return value;
}

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

// os-release values are shell-style: quoted with ' or ", and inside double quotes a backslash
// escapes the next character.
std::string unquote(const std::string& value) {
    if (value.size() < 2 || value.front() != value.back()) return value;
    const char quote = value.front();
    if (quote == '\'') return value.substr(1, value.size() - 2);
    if (quote != '"') return value;
    std::string out;
    for (std::size_t i = 1; i + 1 < value.size(); ++i) {
        if (value[i] == '\\' && i + 2 < value.size()) ++i;
        out.push_back(value[i]);
    }
    return out;
}

// Identifiers generated while their store could not keep them, so that the process keeps
// reporting one identifier per store. Keyed by the store's identity; never destroyed, as device
// information may be asked for during static destruction.
struct UnsavedIds {
    std::mutex mutex;
    std::map<std::weak_ptr<KeyValueStore>, std::string, std::owner_less<>> ids;
};

UnsavedIds& unsavedIds() {
    static UnsavedIds* const instance = new UnsavedIds;
    return *instance;
}

// The firmware's product name, unless it is one of the placeholders boards ship with or not
// printable text.
std::optional<std::string> firmwareProductName(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line)) return std::nullopt;
    line = trim(line);
    if (line.empty() || line.size() > 100) return std::nullopt;
    for (const char c : line) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return std::nullopt;
    }
    std::string lower;
    for (const char c : line) lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    for (const char* placeholder : {"to be filled by o.e.m.", "system product name", "default string", "not specified",
                                    "none", "0123456789", "type1productconfigid"}) {
        if (lower == placeholder) return std::nullopt;
    }
    return line;
}

}  // namespace

LinuxDeviceInfo::LinuxDeviceInfo(std::shared_ptr<KeyValueStore> vendorStore, std::string osReleasePath,
                                 std::string dmiDirectory)
    : vendorStore_(std::move(vendorStore)), osReleasePath_(std::move(osReleasePath)),
      dmiDirectory_(std::move(dmiDirectory)) {}

std::optional<std::string> LinuxDeviceInfo::hardwareModel() const {
    if (auto product = firmwareProductName(dmiDirectory_ + "/product_name")) return product;
    const auto name = systemName();
    if (!name) return std::nullopt;
    return nonEmpty(std::string(name->machine));
}

std::optional<std::string> LinuxDeviceInfo::timeZoneAbbreviation() const {
    ::tzset();  // pick up a TZ changed since the last call
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&now, &local) == nullptr || local.tm_zone == nullptr) return std::nullopt;
    return nonEmpty(std::string(local.tm_zone));
}

std::optional<std::string> LinuxDeviceInfo::osName() const {
    if (auto name = nonEmpty(osReleaseValue(osReleasePath_, "NAME"))) return name;
    const auto name = systemName();
    if (!name) return std::nullopt;
    return nonEmpty(std::string(name->sysname));
}

std::optional<std::string> LinuxDeviceInfo::osVersion() const {
    if (auto version = nonEmpty(osReleaseValue(osReleasePath_, "VERSION_ID"))) return version;
    if (auto version = nonEmpty(osReleaseValue(osReleasePath_, "VERSION"))) return version;
    const auto name = systemName();
    if (!name) return std::nullopt;
    return nonEmpty(std::string(name->release));
}

std::optional<std::string> LinuxDeviceInfo::installationId() const {
    if (!vendorStore_) return std::nullopt;
    // One lock for every store: two threads asking at first use must not mint two identifiers.
    UnsavedIds& unsaved = unsavedIds();
    std::lock_guard lock(unsaved.mutex);
    if (auto stored = nonEmpty(vendorStore_->get(kInstallationIdKey))) return stored;
    const std::weak_ptr<KeyValueStore> key = vendorStore_;
    if (const auto it = unsaved.ids.find(key); it != unsaved.ids.end()) return it->second;
    std::string id = makeUuidString();
    if (!vendorStore_->set(kInstallationIdKey, id)) unsaved.ids.emplace(key, id);
    return id;
}

std::optional<std::string> osReleaseValue(const std::string& path, const std::string& key) {
    std::ifstream in(path);
    if (!in) return std::nullopt;
    std::optional<std::string> found;
    std::string line;
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || line.front() == '#') continue;
        const auto equals = line.find('=');
        if (equals == std::string::npos || trim(line.substr(0, equals)) != key) continue;
        found = unquote(trim(line.substr(equals + 1)));  // the last assignment wins, as in a shell
    }
    return found;
}

}  // namespace halvora::platform
