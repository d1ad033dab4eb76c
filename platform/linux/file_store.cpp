#include "platform/linux/file_store.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/data_paths.h"
#include "halvora/platform/log.h"

namespace halvora::platform {
namespace {

namespace fs = std::filesystem;

std::optional<fs::path> absoluteFromEnv(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    fs::path path(value);
    if (!path.is_absolute()) return std::nullopt;
    return path;
}

std::optional<fs::path> homeFromPasswd() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* result = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) != 0 || result == nullptr ||
        result->pw_dir == nullptr || result->pw_dir[0] != '/') {
        return std::nullopt;
    }
    return fs::path(result->pw_dir);
}

// Why a store could not be read or written, without ever naming a value.
std::string describe(const fs::path& file, const std::string& what) {
    return "settings file " + file.string() + ": " + what;
}

// Closes a descriptor on every path out of persist().
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int close() {
        const int result = ::close(fd_);
        fd_ = -1;
        return result;
    }

private:
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }
    int fd_;
};

bool writeAll(int fd, const std::string& text) {
    const char* data = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
    return true;
}

// True when nlohmann can write the string out (it refuses invalid UTF-8).
bool serializable(const std::string& text) {
    try {
        (void)nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

// Reads the store; anything but a JSON object is treated as no store at all. Members that are not
// strings are skipped. Returns a problem description for the log, or none.
std::optional<std::string> load(const fs::path& file, std::map<std::string, std::string>& values) {
    std::error_code ec;
    if (!fs::exists(fs::symlink_status(file, ec))) return std::nullopt;  // first use: nothing to say
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    if (!in || !(text << in.rdbuf())) {
        return describe(file, "unreadable, it will be replaced at the next save");
    }
    const nlohmann::json json = nlohmann::json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
    if (!json.is_object()) {
        return describe(file, "not a JSON object, it will be replaced at the next save");
    }
    for (const auto& [key, value] : json.items()) {
        if (value.is_string()) values.emplace(key, value.get<std::string>());
    }
    return std::nullopt;
}

}  // namespace

fs::path dataHome() {
    if (auto xdg = absoluteFromEnv("XDG_DATA_HOME")) return *xdg;
    if (auto home = absoluteFromEnv("HOME")) return *home / ".local" / "share";
    if (auto home = homeFromPasswd()) return *home / ".local" / "share";
    // No home at all (a stripped-down service account): settings last until the next reboot.
    std::error_code ec;
    return fs::temp_directory_path(ec) / ("halvora-" + std::to_string(getuid()));
}

std::string safePathComponent(std::string_view name) {
    std::string safe;
    safe.reserve(name.size());
    for (const char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '.' || c == '-' || c == '_';
        safe.push_back(plain ? c : '_');
    }
    if (safe.size() > 200) safe.resize(200);  // well inside NAME_MAX, leaving room for suffixes
    if (safe.empty() || safe == "." || safe == "..") return "default";
    return safe;
}

FileStore::FileStore(fs::path file) : file_(std::move(file)) {
    if (auto problem = load(file_, values_)) log(*problem);
}

fs::path FileStore::defaultPath(const std::string& appId) {
    return dataHome() / "halvora" / safePathComponent(appId) / "settings.json";
}

std::optional<std::string> FileStore::get(const std::string& key) const {
    std::lock_guard lock(mutex_);
    const auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

bool FileStore::set(const std::string& key, const std::string& value) {
    std::lock_guard lock(mutex_);
    values_[key] = value;
    // An entry the file format cannot hold stays in memory only.
    const bool writable = serializable(key) && serializable(value);
    return persist() && writable;
}

bool FileStore::remove(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (values_.erase(key) == 0) return true;
    return persist();
}

// Called with mutex_ held. Writes the whole store to a fresh temporary file beside the target and
// renames it into place, then syncs the directory so the rename itself survives a crash.
bool FileStore::persist() {
    nlohmann::json json = nlohmann::json::object();
    for (const auto& [key, value] : values_) {
        if (serializable(key) && serializable(value)) json[key] = value;
    }
    const std::string text = json.dump(2) + "\n";

    const fs::path directory = file_.has_parent_path() ? file_.parent_path() : fs::path(".");
    const auto fail = [this](const std::string& what) {
        // Logged under the store's lock; the sink must not use this store.
        log(describe(file_, "could not be saved (" + what + ")"));
        return false;
    };

    std::error_code ec;
    fs::create_directories(directory, ec);
    if (ec) return fail("creating its directory: " + ec.message());

    std::string tempName = (directory / (file_.filename().string() + ".tmp-XXXXXX")).string();
    FileDescriptor temp(::mkostemp(tempName.data(), O_CLOEXEC));
    if (!temp.valid()) return fail(std::string("creating a temporary file: ") + std::strerror(errno));
    const auto failAndUnlink = [&](const char* step) {
        const int error = errno;
        ::unlink(tempName.c_str());
        return fail(std::string(step) + ": " + std::strerror(error));
    };
    if (::fchmod(temp.get(), S_IRUSR | S_IWUSR) != 0) return failAndUnlink("setting its mode");
    if (!writeAll(temp.get(), text)) return failAndUnlink("writing");
    if (::fsync(temp.get()) != 0) return failAndUnlink("flushing");
    if (temp.close() != 0) return failAndUnlink("closing");
    if (::rename(tempName.c_str(), file_.c_str()) != 0) return failAndUnlink("replacing the old file");

    FileDescriptor dir(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.valid()) ::fsync(dir.get());  // best effort: the data itself is already durable
    return true;
}

}  // namespace halvora::platform
