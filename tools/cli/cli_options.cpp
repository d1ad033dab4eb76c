#include "tools/cli/cli_options.h"

#include <cmath>
#include <cstdlib>

#include "halvora/halvora.h"

namespace halvora::cli {
namespace {

UsageError usage(std::string message) { return UsageError{std::move(message)}; }

bool startsWith(const std::string& text, std::string_view prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// An http(s) base URL with a host, without trailing slashes, since the library appends its paths
// to it as they are ("http://host/" would request "http://host//api/1/...").
std::variant<std::string, UsageError> normalizeApi(std::string url, const std::string& source) {
    std::size_t hostStart = 0;
    if (startsWith(url, "http://")) {
        hostStart = 7;
    } else if (startsWith(url, "https://")) {
        hostStart = 8;
    } else {
        return usage(source + " must be an http:// or https:// URL, got \"" + url + "\"");
    }
    for (char c : url) {
        if (static_cast<unsigned char>(c) <= ' ' || c == '\x7f') {
            return usage(source + " must not contain spaces or control characters");
        }
    }
    while (url.size() > hostStart && url.back() == '/') url.pop_back();
    if (url.size() == hostStart || url[hostStart] == '/') {
        return usage(source + " has no host: \"" + url + "\"");
    }
    return url;
}

// Plain decimal seconds ("30", "2.5"); no signs, exponents or hex, so typos are not reinterpreted.
std::variant<std::chrono::milliseconds, UsageError> parseTimeout(const std::string& text, const std::string& option) {
    const auto invalid = usage(option + " needs a positive number of seconds, got \"" + text + "\"");
    bool digit = false;
    bool dot = false;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            digit = true;
        } else if (c == '.' && !dot) {
            dot = true;
        } else {
            return invalid;
        }
    }
    if (!digit) return invalid;
    const double seconds = std::strtod(text.c_str(), nullptr);
    if (!(seconds > 0)) return invalid;
    const double limit = std::chrono::duration<double>(kLongestTimeout).count();
    if (seconds > limit) {
        return usage(option + " is at most " + std::to_string(kLongestTimeout.count() / 1000) + " seconds");
    }
    const auto millis = static_cast<std::chrono::milliseconds::rep>(std::llround(seconds * 1000));
    if (millis < 1) return usage(option + " must be at least 0.001 seconds");
    return std::chrono::milliseconds(millis);
}

std::optional<UsageError> addCustom(const std::string& pair, Json& customData) {
    const auto equals = pair.find('=');
    if (equals == std::string::npos) return usage("--custom needs KEY=VALUE, got \"" + pair + "\"");
    if (equals == 0) return usage("--custom needs a KEY before '=', got \"" + pair + "\"");
    std::string key = pair.substr(0, equals);
    Json value = customValue(pair.substr(equals + 1));
    try {
        // Text that is not UTF-8 cannot be sent; better said now than as a failed registration.
        (void)Json{{key, value}}.dump();
    } catch (const Json::exception&) {
        return usage("--custom " + key + ": the key and value must be UTF-8 text");
    }
    customData[key] = std::move(value);
    return std::nullopt;
}

struct CommandSpec {
    std::string_view name;
    Command command;
    bool takesCode;
};

constexpr CommandSpec kCommands[] = {
    {"doctor", Command::Doctor, false},
    {"register", Command::Register, false},
    {"create", Command::Create, false},
    {"get", Command::Get, true},
    {"join", Command::Join, true},
    {"listen", Command::Listen, false},
};

std::optional<UsageError> setCommand(const std::vector<std::string>& positional, CliOptions& options) {
    if (positional.empty()) return usage("no command given");
    const std::string& name = positional.front();
    for (const auto& entry : kCommands) {
        if (entry.name != name) continue;
        options.command = entry.command;
        if (!entry.takesCode) {
            if (positional.size() > 1) return usage(name + " takes no arguments, got \"" + positional[1] + "\"");
            return std::nullopt;
        }
        if (positional.size() < 2) return usage(name + " needs a session CODE");
        if (positional.size() > 2) return usage(name + " takes one CODE, got also \"" + positional[2] + "\"");
        if (positional[1].empty()) return usage(name + " needs a non-empty session CODE");
        options.code = positional[1];
        return std::nullopt;
    }
    return usage("unknown command: " + name);
}

}  // namespace

Json customValue(const std::string& text) {
    Json parsed = Json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded()) return Json(text);
    return parsed;
}

ParseResult parseArguments(const std::vector<std::string>& args,
                           const std::optional<std::string>& environmentApi) {
    CliOptions options;
    std::optional<std::string> api;
    std::vector<std::string> positional;
    bool optionsEnded = false;

    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }

        // "--name=value" carries its value inline; otherwise a value option takes the next argument.
        std::string name = arg;
        std::optional<std::string> inlineValue;
        if (startsWith(arg, "--")) {
            if (auto equals = arg.find('='); equals != std::string::npos) {
                name = arg.substr(0, equals);
                inlineValue = arg.substr(equals + 1);
            }
        }
        const auto flag = [&]() -> std::optional<UsageError> {
            if (inlineValue) return usage("option " + name + " takes no value");
            return std::nullopt;
        };
        const auto value = [&](const char* what) -> std::variant<std::string, UsageError> {
            if (inlineValue) return *inlineValue;
            if (i + 1 >= args.size()) return usage("option " + name + " needs " + what);
            return args[++i];
        };

        if (name == "-h" || name == "--help") {
            if (auto error = flag()) return *error;
            return ShowHelp{};
        }
        if (name == "--version") {
            if (auto error = flag()) return *error;
            return ShowVersion{};
        }
        if (name == "--quiet") {
            if (auto error = flag()) return *error;
            options.quiet = true;
            continue;
        }

        std::variant<std::string, UsageError> given;
        if (name == "--api") {
            given = value("a URL");
        } else if (name == "--data") {
            given = value("a directory");
        } else if (name == "--custom") {
            given = value("KEY=VALUE");
        } else if (name == "--timeout" || name == "--duration") {
            given = value("a number of seconds");
        } else {
            return usage("unknown option: " + arg);
        }
        if (auto* error = std::get_if<UsageError>(&given)) return *error;
        std::string text = std::get<std::string>(std::move(given));

        if (name == "--api") {
            api = std::move(text);
        } else if (name == "--data") {
            if (text.empty()) return usage("option --data needs a non-empty directory");
            options.dataDir = std::filesystem::path(text);
        } else if (name == "--custom") {
            if (auto error = addCustom(text, options.customData)) return *error;
        } else {
            auto seconds = parseTimeout(text, name);
            if (auto* error = std::get_if<UsageError>(&seconds)) return *error;
            (name == "--timeout" ? options.timeout : options.duration.emplace()) =
                std::get<std::chrono::milliseconds>(seconds);
        }
    }

    if (auto error = setCommand(positional, options)) return *error;
    if (options.duration && options.command != Command::Join && options.command != Command::Listen) {
        return usage("--duration only applies to join and listen");
    }

    // An empty HALVORA_API is treated as unset, as shells make it easy to export one by accident.
    std::variant<std::string, UsageError> resolved = std::string(Halvora::kDefaultApi);
    if (api) {
        resolved = normalizeApi(*api, "--api");
    } else if (environmentApi && !environmentApi->empty()) {
        resolved = normalizeApi(*environmentApi, "HALVORA_API");
    }
    if (auto* error = std::get_if<UsageError>(&resolved)) return *error;
    options.api = std::get<std::string>(std::move(resolved));
    return options;
}

std::string usageText() {
    return std::string(
               "Usage: halvora-cli [options] COMMAND [arguments]\n"
               "\n"
               "Checks a Halvora service endpoint with the Halvora SDK.\n"
               "\n"
               "Commands:\n"
               "  doctor         start, register, create a session, fetch it by code, end it,\n"
               "                 deregister and stop; one line per step\n"
               "  register       register this device once and print the service's device record\n"
               "  create         create a session and print its record\n"
               "  get CODE       fetch a session by code or id and print its record\n"
               "  join CODE      join a session as if the agent had started it, answer the agent's\n"
               "                 probes and print every event with its time until the session ends\n"
               "  listen         register and wait for the agent to start a session for this device\n"
               "                 (notification socket or push), then behave like join\n"
               "\n"
               "Options:\n"
               "  --api URL          service base URL (default: $HALVORA_API, else ") +
           Halvora::kDefaultApi +
           ")\n"
           "  --data DIR         keep the tool's settings in DIR/settings.json and DIR/vendor.json\n"
           "                     (default: the platform's data directory)\n"
           "  --custom KEY=VALUE custom data sent with registrations; VALUE is JSON when valid,\n"
           "                     else a string (repeatable)\n"
           "  --timeout SECONDS  deadline for each step (default 30)\n"
           "  --duration SECONDS join/listen: give up after this long (default: no limit)\n"
           "  --quiet            hide the library's log lines (otherwise on stderr as \"halvora: ...\")\n"
           "  -h, --help         show this help\n"
           "  --version          print the library version\n"
           "\n"
           "Exit status: 0 success (join/listen: a joined session ended), 1 a check or request\n"
           "failed, 2 join/listen: --duration ran out first, 64 usage error.\n";
}

}  // namespace halvora::cli
