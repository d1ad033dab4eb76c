#pragma once
// Small persistent settings (the device identifier). Values are strings.

#include <optional>
#include <string>

namespace halvora::platform {

class KeyValueStore {
public:
    virtual ~KeyValueStore() = default;
    virtual std::optional<std::string> get(const std::string& key) const = 0;
    // Persists before returning. Returns false when the value could not be made durable;
    // the value still reads back for the life of the process.
    virtual bool set(const std::string& key, const std::string& value) = 0;
    virtual bool remove(const std::string& key) = 0;
};

}  // namespace halvora::platform
