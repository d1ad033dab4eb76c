#pragma once
// KeyValueStore kept in one JSON object file. Writes go to a temporary file that is flushed and
// renamed over the old one, so a crash never leaves a half-written store. A missing, unreadable or
// corrupt file reads as empty and is replaced whole at the next write.

#include <filesystem>
#include <map>
#include <mutex>

#include "halvora/platform/key_value_store.h"

namespace halvora::platform {

class FileStore final : public KeyValueStore {
public:
    explicit FileStore(std::filesystem::path file);

    std::optional<std::string> get(const std::string& key) const override;
    bool set(const std::string& key, const std::string& value) override;
    bool remove(const std::string& key) override;

    const std::filesystem::path& file() const { return file_; }

    // The default location: $XDG_DATA_HOME (else ~/.local/share) /halvora/<app id>/settings.json.
    static std::filesystem::path defaultPath(const std::string& appId);

private:
    bool persist();

    std::filesystem::path file_;
    mutable std::mutex mutex_;
    std::map<std::string, std::string> values_;
};

}  // namespace halvora::platform
