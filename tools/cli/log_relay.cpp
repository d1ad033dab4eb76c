#include "tools/cli/log_relay.h"

#include <unistd.h>

#include <cerrno>

#include "halvora/platform/log.h"

namespace halvora::cli {
namespace {

// One write() per line, so lines from the network thread and the main thread never interleave.
void writeToStderr(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace

LogRelay::LogRelay(bool echo, Writer writer)
    : echo_(echo), writer_(writer ? std::move(writer) : Writer(writeToStderr)) {}

void LogRelay::install() {
    platform::setLogSink([self = shared_from_this()](std::string_view line) { self->deliver(line); });
}

void LogRelay::watch(Watcher watcher) {
    auto replacement = watcher ? std::make_shared<const Watcher>(std::move(watcher)) : nullptr;
    std::lock_guard lock(mutex_);
    watcher_ = std::move(replacement);
}

void LogRelay::deliver(std::string_view line) {
    if (echo_) {
        std::string text = "halvora: ";
        text.append(line);
        text.push_back('\n');
        writer_(text);
    }
    std::shared_ptr<const Watcher> watcher;
    {
        std::lock_guard lock(mutex_);
        watcher = watcher_;
    }
    // Called outside the lock: a watcher may log, or stop watching, from inside.
    if (watcher) (*watcher)(line);
}

}  // namespace halvora::cli
