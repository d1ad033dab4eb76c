#include "tools/cli/session_watch.h"

#include <chrono>
#include <memory>

#include "halvora/halvora.h"
#include "halvora/delegate.h"
#include "device/device.h"
#include "tools/cli/event_trace.h"
#include "tools/cli/step_runner.h"
#include "halvora/platform.h"
#include "halvora/session.h"

namespace halvora::cli {
namespace {

using Clock = std::chrono::steady_clock;

// Prints session changes and remembers whether a joined session has ended.
class WatchingDelegate final : public HalvoraDelegate {
public:
    explicit WatchingDelegate(std::ostream& out) : out_(out) {}

    void halvoraSessionDidUpdate(const std::shared_ptr<HLVSession>& session) override {
        auto state = session->state().value_or("?");
        if (state == lastState_) return;
        lastState_ = state;
        print("session " + session->code().value_or("?") + " is " + state);
    }
    void halvoraSessionDidEnd(const std::shared_ptr<HLVSession>&) override { ended = true; }

    void print(const std::string& line) {
        out_ << clockTime(std::chrono::system_clock::now()) << "  " << line << '\n';
        out_.flush();
    }

    bool ended = false;

private:
    std::ostream& out_;
    std::string lastState_;
};

struct Watch {
    std::shared_ptr<WatchingDelegate> delegate;
    Clock::time_point deadline;

    // Runs the loop until `done` or the deadline; false when the deadline came first.
    bool runUntil(const Host& host, const std::function<bool()>& done) const {
        auto left = deadline - Clock::now();
        if (left < Clock::duration::zero()) left = Clock::duration::zero();
        return host.loop->runUntil(done, std::chrono::duration_cast<platform::Duration>(left)) || done();
    }
};

Watch beginWatch(const CliOptions& options, std::ostream& out) {
    Watch watch;
    watch.delegate = std::make_shared<WatchingDelegate>(out);
    // A day stands for "until the session ends"; longer waits are not useful for a check.
    watch.deadline = Clock::now() + options.duration.value_or(kLongestTimeout);

    auto delegate = watch.delegate;
    platform::Services services;
    services.sockets = std::make_shared<TracingSocketFactory>(
        platform::services().sockets, [delegate](const std::string& line) { delegate->print(line); });
    platform::install(std::move(services));
    Halvora::instance().setDelegate(watch.delegate);
    Halvora::instance().start();
    return watch;
}

int stayUntilTheEnd(const Watch& watch, const Host& host) {
    if (!watch.runUntil(host, [&] { return watch.delegate->ended; })) return kExitDurationElapsed;
    watch.delegate->print("session ended");
    return kExitOk;
}

}  // namespace

int runJoin(const CliOptions& options, const Host& host, std::ostream& out, std::ostream& err) {
    Watch watch = beginWatch(options, out);
    auto join = [code = options.code](const Finish& finish) {
        Halvora::instance().joinSession(code, [finish](OptionalError error, const std::shared_ptr<HLVSession>&) {
            finish(error ? StepResult::failed(*error) : StepResult::passed());
        });
    };
    StepResult joined = awaitStep(host.loop, options.timeout, join);
    if (!joined.ok) {
        for (const auto& detail : joined.details) err << "halvora-cli: join failed: " << detail << '\n';
        return kExitFailure;
    }
    return stayUntilTheEnd(watch, host);
}

int runListen(const CliOptions& options, const Host& host, std::ostream& out, std::ostream& err) {
    Watch watch = beginWatch(options, out);
    auto device = Halvora::instance().device();
    // start() registers at once; the first answer tells whether the service knows us.
    auto registered = [&] { return device->resource().has_value(); };
    if (!host.loop->runUntil(registered, options.timeout) && !registered()) {
        err << "halvora-cli: listen failed: the device did not register within " << formatSeconds(options.timeout)
            << " s\n";
        return kExitFailure;
    }
    watch.delegate->print("registered as " + device->id() + "; waiting for the agent to start a session");
    auto joined = [] {
        auto session = Halvora::instance().currentSession();
        return session && session->isActive();
    };
    if (!watch.runUntil(host, joined)) return kExitDurationElapsed;
    return stayUntilTheEnd(watch, host);
}

}  // namespace halvora::cli
