#include "tools/cli/step_runner.h"

#include <iomanip>
#include <mutex>
#include <optional>
#include <sstream>

namespace halvora::cli {
namespace {

constexpr int kNameWidth = 20;
constexpr int kMillisWidth = 8;
constexpr const char* kDetailIndent = "       ";

struct PendingResult {
    std::mutex mutex;
    std::optional<StepResult> result;
};

}  // namespace

StepResult StepResult::passed(std::vector<std::string> details) { return {true, std::move(details)}; }

StepResult StepResult::failed(std::string message) { return {false, {std::move(message)}}; }

StepResult StepResult::failed(const HLVError& error) { return failed(describeError(error)); }

std::string describeError(const HLVError& error) {
    std::string text = error.localizedDescription() + " (";
    if (error.domain() != HLVError::kDomain) text += "domain " + error.domain() + ", ";
    return text + "code " + std::to_string(error.code()) + ")";
}

std::string formatSeconds(std::chrono::milliseconds duration) {
    const auto millis = duration.count();
    std::string text = std::to_string(millis / 1000);
    if (auto fraction = millis % 1000; fraction != 0) {
        std::string digits = std::to_string(fraction);
        digits.insert(0, 3 - digits.size(), '0');
        while (digits.back() == '0') digits.pop_back();
        text += "." + digits;
    }
    return text;
}

std::string displayValue(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string stepLine(bool ok, std::string_view name, std::chrono::milliseconds elapsed) {
    std::ostringstream line;
    line << (ok ? "[ OK ] " : "[FAIL] ") << std::left << std::setw(kNameWidth) << name << std::right
         << std::setw(kMillisWidth) << elapsed.count() << " ms";
    return line.str();
}

StepResult awaitStep(const std::shared_ptr<platform::RunLoop>& loop, std::chrono::milliseconds timeout,
                     const StepBody& body) {
    auto pending = std::make_shared<PendingResult>();
    // Holds the loop weakly: a callback arriving after the tool has finished must not keep it alive.
    Finish finish = [pending, weakLoop = std::weak_ptr<platform::RunLoop>(loop)](StepResult result) {
        {
            std::lock_guard lock(pending->mutex);
            if (pending->result) return;
            pending->result = std::move(result);
        }
        // From another thread, wake the loop so that it sees the result now.
        if (auto strong = weakLoop.lock(); strong && !strong->isCurrentThread()) strong->post([] {});
    };
    const auto finished = [&pending] {
        std::lock_guard lock(pending->mutex);
        return pending->result.has_value();
    };

    body(finish);
    if (!loop->runUntil(finished, timeout)) {
        // Whatever the step still delivers is dropped from now on.
        finish(StepResult::failed("timed out after " + formatSeconds(timeout) + " s"));
    }
    std::lock_guard lock(pending->mutex);
    return std::move(*pending->result);
}

StepRunner::StepRunner(std::shared_ptr<platform::RunLoop> loop, std::chrono::milliseconds timeout,
                       std::ostream& out)
    : loop_(std::move(loop)), timeout_(timeout), out_(out) {}

bool StepRunner::run(std::string_view name, const StepBody& body) {
    const auto started = loop_->clock().now();
    StepResult result = awaitStep(loop_, timeout_, body);
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(loop_->clock().now() - started);
    out_ << stepLine(result.ok, name, elapsed) << '\n';
    for (const auto& detail : result.details) out_ << kDetailIndent << detail << '\n';
    out_.flush();
    return result.ok;
}

}  // namespace halvora::cli
