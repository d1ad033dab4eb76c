// Config from the dictionary form, and the process-wide default executor.
#include "sio/config.h"

#include <cmath>
#include <limits>
#include <mutex>
#include <string_view>

#include "base/http_header.h"
#include "sio/detail/default_executor.h"

namespace halvora::sio {
namespace {

// Longer waits are surely a mistake, and would overflow the timers' integer durations.
constexpr double kMaxSeconds = 24 * 60 * 60;

// It goes into the request line as it is.
bool validPath(std::string_view path) {
    if (path.empty() || path.front() != '/') return false;
    for (char c : path) {
        auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte == 0x7f) return false;
    }
    return true;
}

class Reader {
public:
    Reader(const Value& options, std::string* error) : options_(options), error_(error) {}

    bool failed() const { return failed_; }

    // Each read leaves `out` untouched when the key is absent, and fails on a wrong type.
    void string(const char* key, std::string& out) {
        if (const Value* value = find(key)) {
            if (!value->is_string()) return fail(key, "must be a string");
            out = value->get<std::string>();
        }
    }
    void boolean(const char* key, bool& out) {
        if (const Value* value = find(key)) {
            if (!value->is_boolean()) return fail(key, "must be a boolean");
            out = value->get<bool>();
        }
    }
    void integer(const char* key, int& out) {
        if (const Value* value = find(key)) {
            bool fits = false;
            if (value->is_number_unsigned()) {
                fits = value->get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<int>::max());
            } else if (value->is_number_integer()) {
                auto number = value->get<std::int64_t>();
                fits = number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
            }
            if (!fits) return fail(key, "must be an integer");
            out = value->get<int>();
        }
    }
    void number(const char* key, double min, double max, double& out) {
        if (const Value* value = find(key)) {
            if (!value->is_number()) return fail(key, "must be a number");
            double number = value->get<double>();
            if (!std::isfinite(number) || number < min || number > max) {
                return fail(key, "must be between " + format(min) + " and " + format(max));
            }
            out = number;
        }
    }
    void seconds(const char* key, Seconds& out) {
        double value = out.count();
        number(key, 0, kMaxSeconds, value);
        out = Seconds(value);
    }
    void headers(const char* key, Headers& out) {
        const Value* value = find(key);
        if (!value) return;
        if (!value->is_object()) return fail(key, "must be an object of strings");
        Headers headers;
        for (const auto& [name, field] : value->items()) {
            if (!field.is_string()) return fail(key, "value of '" + name + "' must be a string");
            if (!isHttpToken(name)) return fail(key, "'" + name + "' is not a valid header name");
            if (!isHttpHeaderValue(field.get_ref<const std::string&>())) {
                return fail(key, "value of '" + name + "' contains control characters");
            }
            headers.emplace_back(name, field.get<std::string>());
        }
        out = std::move(headers);
    }
    void fail(std::string_view key, const std::string& reason) {
        if (failed_) return;  // the first problem is the one reported
        failed_ = true;
        if (error_) *error_ = std::string(key) + ": " + reason;
    }

private:
    const Value* find(const char* key) const {
        auto it = options_.find(key);
        return it == options_.end() ? nullptr : &*it;
    }
    static std::string format(double value) {
        std::string text = std::to_string(value);
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.') text.pop_back();
        return text;
    }

    const Value& options_;
    std::string* error_;
    bool failed_ = false;
};

struct DefaultExecutor {
    std::mutex mutex;
    Executor executor;
};

DefaultExecutor& defaultExecutorSlot() {
    static DefaultExecutor slot;
    return slot;
}

}  // namespace

std::optional<Config> Config::fromJson(const Value& options, std::string* error) {
    Config config;
    if (options.is_null()) return config;
    if (!options.is_object()) {
        if (error) *error = "options must be an object";
        return std::nullopt;
    }
    Reader read(options, error);
    read.string("path", config.path);
    if (!read.failed() && !validPath(config.path)) read.fail("path", "must start with '/' and contain no spaces");
    read.headers("extraHeaders", config.extraHeaders);
    read.boolean("reconnects", config.reconnects);
    read.integer("reconnectAttempts", config.reconnectAttempts);
    read.seconds("reconnectWait", config.reconnectWait);
    read.seconds("reconnectWaitMax", config.reconnectWaitMax);
    read.number("randomizationFactor", 0, 1, config.randomizationFactor);
    if (read.failed()) return std::nullopt;
    return config;
}

void setDefaultExecutor(Executor executor) {
    auto& slot = defaultExecutorSlot();
    {
        std::lock_guard lock(slot.mutex);
        std::swap(slot.executor, executor);
    }
    // The replaced executor is destroyed here, outside the lock.
}

namespace detail {

Executor defaultExecutor() {
    auto& slot = defaultExecutorSlot();
    std::lock_guard lock(slot.mutex);
    return slot.executor;
}

}  // namespace detail
}  // namespace halvora::sio
