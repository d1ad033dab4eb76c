#pragma once
// A private directory per test, and an environment variable set for one test.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace halvora::platform::testing {

class ScratchDir {
public:
    ScratchDir() {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        path_ = std::filesystem::temp_directory_path() / ("halvora-platform-test-" + std::to_string(::getpid()) + "-" +
                                                          info->test_suite_name() + "-" + info->name());
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~ScratchDir() { std::filesystem::remove_all(path_, ignored_); }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    std::error_code ignored_;
};

// Puts the old value back when it goes; a null value unsets the variable.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        set(value);
    }
    ~ScopedEnv() { set(old_ ? old_->c_str() : nullptr); }

private:
    void set(const char* value) { value ? ::setenv(name_.c_str(), value, 1) : ::unsetenv(name_.c_str()); }
    std::string name_;
    std::optional<std::string> old_;
};

}  // namespace halvora::platform::testing
