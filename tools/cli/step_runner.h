#pragma once
// Runs one asynchronous step of the tool on the main queue: the step starts its work and calls
// `finish` once; the loop runs until then or until the deadline. The doctor prints each outcome
// as a line with its duration.

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "halvora/error.h"
#include "base/json_fields.h"
#include "halvora/platform/run_loop.h"

namespace halvora::cli {

struct StepResult {
    bool ok = false;
    // Printed under the step's line: what was found on success, what went wrong on failure.
    std::vector<std::string> details;

    static StepResult passed(std::vector<std::string> details = {});
    static StepResult failed(std::string message);
    static StepResult failed(const HLVError& error);
};

// Thread-safe; only the first call counts, so late or repeated callbacks are harmless.
using Finish = std::function<void(StepResult)>;
using StepBody = std::function<void(const Finish& finish)>;

// Starts `body` and runs `loop` until it finishes; after `timeout` (on the loop's clock) the step
// fails with "timed out after N s".
StepResult awaitStep(const std::shared_ptr<platform::RunLoop>& loop, std::chrono::milliseconds timeout,
                     const StepBody& body);

// "Session not found (code 404)"; other domains are named: "... (domain curl, code 7)".
std::string describeError(const HLVError& error);
// Whole seconds as "30", fractions as "2.5".
std::string formatSeconds(std::chrono::milliseconds duration);
// A JSON value for a human: strings without quotes, anything else as compact JSON.
std::string displayValue(const Json& value);
// "[ OK ] start                      3 ms" / "[FAIL] register ...".
std::string stepLine(bool ok, std::string_view name, std::chrono::milliseconds elapsed);

class StepRunner {
public:
    StepRunner(std::shared_ptr<platform::RunLoop> loop, std::chrono::milliseconds timeout, std::ostream& out);

    // Runs one step, timed on the loop's clock, and prints its line and details. Returns whether
    // it passed.
    bool run(std::string_view name, const StepBody& body);

private:
    std::shared_ptr<platform::RunLoop> loop_;
    std::chrono::milliseconds timeout_;
    std::ostream& out_;
};

}  // namespace halvora::cli
