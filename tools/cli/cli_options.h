#pragma once
// The command line of halvora-cli, parsed into values. Parsing never prints or exits: a usage
// problem comes back as a UsageError so that main decides how to report it (and tests can see it).

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/json_fields.h"

namespace halvora::cli {

// Exit codes; 64 is EX_USAGE from sysexits.h.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 64;

// The longest --timeout accepted: a day is already far beyond any useful check.
inline constexpr std::chrono::milliseconds kLongestTimeout = std::chrono::hours(24);

enum class Command { Doctor, Register, Create, Get, Join, Listen };

// Exit code of join/listen when --duration ran out before a joined session ended.
inline constexpr int kExitDurationElapsed = 2;

struct CliOptions {
    Command command = Command::Doctor;
    // The session id or code of `get` and `join`; empty for the other commands.
    std::string code;
    // Resolved from --api, else HALVORA_API, else the library's default; no trailing slash.
    std::string api;
    // --data: where the stores live; none for the platform's default location.
    std::optional<std::filesystem::path> dataDir;
    // Every --custom pair merged in order (a repeated key keeps its last value).
    Json customData = Json::object();
    std::chrono::milliseconds timeout{30'000};
    // join/listen: how long to stay before giving up; none to stay until a session ends.
    std::optional<std::chrono::milliseconds> duration;
    bool quiet = false;
};

struct UsageError {
    std::string message;
};
struct ShowHelp {};
struct ShowVersion {};

using ParseResult = std::variant<CliOptions, ShowHelp, ShowVersion, UsageError>;

// Parses the arguments after the program name. `environmentApi` is the value of HALVORA_API
// (none when unset). Options may come before or after the command; "--" ends them.
ParseResult parseArguments(const std::vector<std::string>& args,
                           const std::optional<std::string>& environmentApi);

// A --custom VALUE: JSON when the text is valid JSON, else the text itself as a string.
Json customValue(const std::string& text);

// The full usage text, ending with a newline.
std::string usageText();

}  // namespace halvora::cli
