#pragma once
// Everything the tool installs before touching the library: the main queue, stores, identity,
// device information, HTTP client and log sink; then the facade's API and custom data.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "tools/cli/cli_options.h"
#include "tools/cli/log_relay.h"
#include "halvora/platform/run_loop.h"

namespace halvora::cli {

inline constexpr const char* kAppId = "io.halvora.cli";
inline constexpr const char* kAppName = "halvora-cli";

struct Host {
    std::shared_ptr<platform::RunLoop> loop;
    std::shared_ptr<LogRelay> log;
};

// The settings and vendor store files under --data; none without it (platform defaults apply).
struct DataFiles {
    std::filesystem::path settings;
    std::filesystem::path vendor;
};
std::optional<DataFiles> dataFilesFor(const CliOptions& options);

// Installs the platform services for `options`. Returns an error message instead when --data
// names something that cannot hold the stores.
std::variant<Host, std::string> installHost(const CliOptions& options);

// Points the facade at the API and hands it the custom data. Does not start it.
void configureLibrary(const CliOptions& options);

}  // namespace halvora::cli
