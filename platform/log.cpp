#include "halvora/platform/log.h"

#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace halvora::platform {
namespace {

// The sink is called outside the lock, through a shared copy: a sink may itself log or replace
// the sink without deadlocking, and a sink being replaced stays alive until its last call returns.
struct LogState {
    std::mutex mutex;
    std::shared_ptr<const LogSink> sink;
};

// Never destroyed: threads still running during static destruction (the background worker,
// the network thread) may log.
LogState& state() {
    static LogState* const instance = new LogState;
    return *instance;
}

void writeToStderr(std::string_view line) {
    // One write() per line so that lines from several threads or processes do not interleave.
    std::string text;
    text.reserve(line.size() + 1);
    text.append(line);
    text.push_back('\n');
    const char* data = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            return;  // Nowhere left to report a failing stderr.
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace

void setLogSink(LogSink sink) {
    auto replacement = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
    LogState& s = state();
    std::shared_ptr<const LogSink> previous;
    {
        std::lock_guard lock(s.mutex);
        previous = std::exchange(s.sink, std::move(replacement));
    }
    // `previous` is released here, outside the lock, in case its captures log when destroyed.
}

void log(std::string_view line) {
    std::string folded(line);
    for (char& c : folded) {
        if (c == '\n' || c == '\r') c = ' ';
    }
    std::shared_ptr<const LogSink> sink;
    {
        LogState& s = state();
        std::lock_guard lock(s.mutex);
        sink = s.sink;
    }
    if (sink) {
        (*sink)(folded);
    } else {
        writeToStderr(folded);
    }
}

}  // namespace halvora::platform
