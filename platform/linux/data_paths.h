#pragma once
// Where the portable defaults keep their files. Internal to the platform layer.

#include <filesystem>
#include <string>
#include <string_view>

namespace halvora::platform {

// $XDG_DATA_HOME when set to an absolute path, else $HOME/.local/share (the password database's
// home when $HOME is unusable).
std::filesystem::path dataHome();

// `name` made into one safe file name: characters other than letters, digits, '.', '-' and '_'
// become '_'; an empty result, "." or ".." becomes "default".
std::string safePathComponent(std::string_view name);

}  // namespace halvora::platform
