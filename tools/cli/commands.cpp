#include "tools/cli/commands.h"

#include <memory>
#include <optional>

#include "halvora/halvora.h"
#include "device/device.h"
#include "tools/cli/doctor.h"
#include "tools/cli/session_watch.h"
#include "tools/cli/step_runner.h"
#include "halvora/session.h"

namespace halvora::cli {
namespace {

// The record a command prints, filled in by its callback before it finishes.
using RecordSlot = std::shared_ptr<std::optional<Json>>;

// Keeps the record the resource adopted, or fails the step.
void finishWithRecord(const Finish& finish, const RecordSlot& slot, const OptionalError& error,
                      const std::optional<Json>& record, const char* what) {
    if (error) return finish(StepResult::failed(*error));
    if (!record) return finish(StepResult::failed(std::string("the service answered without a ") + what));
    *slot = *record;
    finish(StepResult::passed());
}

StepBody registerOnce(const RecordSlot& slot) {
    return [slot](const Finish& finish) {
        Halvora::instance().device()->registerDevice(
            [slot, finish](OptionalError error, const std::shared_ptr<HLVDevice>& device) {
                finishWithRecord(finish, slot, error, device ? device->resource() : std::nullopt, "device record");
            });
    };
}

Halvora::SessionCallback keepSession(const RecordSlot& slot, const Finish& finish) {
    return [slot, finish](OptionalError error, const std::shared_ptr<HLVSession>& session) {
        finishWithRecord(finish, slot, error, session ? session->resource() : std::nullopt, "session record");
    };
}

int printRecord(std::string_view command, const StepResult& result, const RecordSlot& slot, std::ostream& out,
                std::ostream& err) {
    if (!result.ok) {
        for (const auto& detail : result.details) err << "halvora-cli: " << command << " failed: " << detail << '\n';
        return kExitFailure;
    }
    // Replaces text that is not UTF-8 rather than failing to show the rest of the record.
    out << slot->value().dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    out.flush();
    return kExitOk;
}

}  // namespace

int runCommand(const CliOptions& options, const Host& host, std::ostream& out, std::ostream& err) {
    configureLibrary(options);
    if (options.command == Command::Doctor) return runDoctor(host, options.timeout, out, err);
    if (options.command == Command::Join) return runJoin(options, host, out, err);
    if (options.command == Command::Listen) return runListen(options, host, out, err);

    Halvora::instance().start();
    auto slot = std::make_shared<std::optional<Json>>();
    switch (options.command) {
        case Command::Register:
            return printRecord("register", awaitStep(host.loop, options.timeout, registerOnce(slot)), slot, out, err);
        case Command::Create: {
            auto create = [slot](const Finish& finish) { Halvora::instance().createSession(keepSession(slot, finish)); };
            return printRecord("create", awaitStep(host.loop, options.timeout, create), slot, out, err);
        }
        case Command::Get: {
            auto get = [slot, code = options.code](const Finish& finish) {
                Halvora::instance().getSession(code, keepSession(slot, finish));
            };
            return printRecord("get", awaitStep(host.loop, options.timeout, get), slot, out, err);
        }
        case Command::Doctor:
        case Command::Join:
        case Command::Listen:
            break;
    }
    return kExitFailure;
}

}  // namespace halvora::cli
