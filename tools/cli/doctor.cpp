#include "tools/cli/doctor.h"

#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "halvora/halvora.h"
#include "device/device.h"
#include "tools/cli/step_runner.h"
#include "halvora/session.h"

namespace halvora::cli {
namespace {

constexpr int kStepCount = 6;
constexpr std::string_view kStoppedLine = "Halvora Stopped";
constexpr std::string_view kStopErrorPrefix = "Error stopping Halvora: ";

// What later steps need from earlier ones. Shared with the callbacks, which may still arrive
// after their step timed out.
struct Findings {
    std::optional<Json> sessionId;
    std::string code;
    std::shared_ptr<HLVSession> session;
};

std::string orNone(const std::optional<Json>& value) { return value ? displayValue(*value) : "(none)"; }

void start(const Finish& finish) {
    auto& halvora = Halvora::instance();
    halvora.start();
    if (!halvora.isStarted()) return finish(StepResult::failed("the library did not start"));
    finish(StepResult::passed({"Halvora SDK " + Halvora::version() + ", api " + halvora.api()}));
}

void registerDevice(const Finish& finish) {
    Halvora::instance().device()->registerDevice(
        [finish](OptionalError error, const std::shared_ptr<HLVDevice>& device) {
            if (error) return finish(StepResult::failed(*error));
            finish(StepResult::passed({"device id: " + device->id(),
                                       "next_registration: " + orNone(device->field("next_registration"))}));
        });
}

StepBody createSession(const std::shared_ptr<Findings>& findings) {
    return [findings](const Finish& finish) {
        Halvora::instance().createSession([findings, finish](OptionalError error,
                                                             const std::shared_ptr<HLVSession>& session) {
            if (error) return finish(StepResult::failed(*error));
            auto code = session->code();
            if (!code || code->empty()) return finish(StepResult::failed("the new session has no code"));
            findings->code = *code;
            findings->sessionId = session->id();
            finish(StepResult::passed({"session code: " + *code, "session id: " + orNone(session->id())}));
        });
    };
}

StepBody getSessionByCode(const std::shared_ptr<Findings>& findings) {
    return [findings](const Finish& finish) {
        Halvora::instance().getSession(findings->code, [findings, finish](OptionalError error,
                                                                          const std::shared_ptr<HLVSession>& session) {
            if (error) return finish(StepResult::failed(*error));
            if (session->id() != findings->sessionId) {
                return finish(StepResult::failed("code " + findings->code + " found session " +
                                                 orNone(session->id()) + ", but the created session is " +
                                                 orNone(findings->sessionId)));
            }
            findings->session = session;
            finish(StepResult::passed({"session id: " + orNone(session->id()),
                                       "state: " + session->state().value_or("(none)")}));
        });
    };
}

StepBody endSession(const std::shared_ptr<Findings>& findings) {
    return [findings](const Finish& finish) {
        findings->session->end([finish](OptionalError error, const std::shared_ptr<HLVSession>& session) {
            if (error) return finish(StepResult::failed(*error));
            auto state = session ? session->state() : std::nullopt;
            if (state != "ended") {
                return finish(StepResult::failed("the session's state is " +
                                                 (state ? "\"" + *state + "\"" : std::string("missing")) +
                                                 " after ending it, expected \"ended\""));
            }
            finish(StepResult::passed({"state: ended"}));
        });
    };
}

// Halvora::stop() reports its outcome only as a log line, so the step watches the log for it.
StepBody stopLibrary(const std::shared_ptr<LogRelay>& log) {
    return [log](const Finish& finish) {
        log->watch([finish](std::string_view line) {
            if (line == kStoppedLine) {
                finish(StepResult::passed());
            } else if (line.starts_with(kStopErrorPrefix)) {
                line.remove_prefix(kStopErrorPrefix.size());
                finish(StepResult::failed(std::string(line)));
            }
        });
        Halvora::instance().stop();
    };
}

}  // namespace

int runDoctor(const Host& host, std::chrono::milliseconds timeout, std::ostream& out, std::ostream& err) {
    StepRunner runner(host.loop, timeout, out);
    auto findings = std::make_shared<Findings>();

    const std::pair<std::string_view, StepBody> steps[] = {
        {"start", start},
        {"register", registerDevice},
        {"create session", createSession(findings)},
        {"get session by code", getSessionByCode(findings)},
        {"end session", endSession(findings)},
    };
    static_assert(std::size(steps) + 1 == kStepCount);

    bool passed = true;
    for (const auto& [name, body] : steps) {
        if (!runner.run(name, body)) {
            passed = false;
            break;
        }
    }

    if (passed) {
        passed = runner.run("deregister and stop", stopLibrary(host.log));
        host.log->watch(nullptr);
        if (passed) out << "All " << kStepCount << " steps passed\n";
        out.flush();
        return passed ? kExitOk : kExitFailure;
    }

    // Still deregister, so that a failed check leaves no device record behind at the service.
    StepResult stopped = awaitStep(host.loop, timeout, stopLibrary(host.log));
    host.log->watch(nullptr);
    if (!stopped.ok) {
        for (const auto& detail : stopped.details) err << "halvora-cli: could not stop cleanly: " << detail << '\n';
    }
    out.flush();
    return kExitFailure;
}

}  // namespace halvora::cli
