// halvora-cli: checks a Halvora service endpoint through the SDK. See usageText() for the commands.
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "halvora/halvora.h"
#include "tools/cli/cli_options.h"
#include "tools/cli/commands.h"
#include "tools/cli/host_setup.h"

int main(int argc, char** argv) {
    using namespace halvora::cli;

    std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
    std::optional<std::string> environmentApi;
    if (const char* api = std::getenv("HALVORA_API")) environmentApi = api;

    ParseResult parsed = parseArguments(args, environmentApi);
    if (auto* error = std::get_if<UsageError>(&parsed)) {
        std::cerr << "halvora-cli: " << error->message << "\n\n" << usageText();
        return kExitUsage;
    }
    if (std::holds_alternative<ShowHelp>(parsed)) {
        std::cout << usageText();
        return kExitOk;
    }
    if (std::holds_alternative<ShowVersion>(parsed)) {
        std::cout << halvora::Halvora::version() << '\n';
        return kExitOk;
    }

    const auto& options = std::get<CliOptions>(parsed);
    auto host = installHost(options);
    if (auto* problem = std::get_if<std::string>(&host)) {
        std::cerr << "halvora-cli: " << *problem << '\n';
        return kExitFailure;
    }
    return runCommand(options, std::get<Host>(host), std::cout, std::cerr);
}
