#pragma once
// The library's log as the tool sees it: every line is echoed (unless quiet) and shown to one
// watcher, which is how the doctor learns the outcome of Halvora::stop() (it reports only by log).

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace halvora::cli {

class LogRelay : public std::enable_shared_from_this<LogRelay> {
public:
    using Writer = std::function<void(std::string_view text)>;
    using Watcher = std::function<void(std::string_view line)>;

    // Echoed lines go to `writer` as "halvora: <line>\n"; by default to stderr.
    explicit LogRelay(bool echo, Writer writer = nullptr);

    // Makes this relay the library's log sink.
    void install();
    // Called for every line, from whichever thread logs. Replaces any previous watcher; an empty
    // one stops watching.
    void watch(Watcher watcher);
    // Handles one line: the echo, then the watcher.
    void deliver(std::string_view line);

private:
    const bool echo_;
    const Writer writer_;
    std::mutex mutex_;
    std::shared_ptr<const Watcher> watcher_;
};

}  // namespace halvora::cli
