#pragma once
// Command line of the demo application.

#include <optional>
#include <string>

#include <QStringList>

namespace halvora::demo {

struct DemoOptions {
    std::string api = "http://127.0.0.1:4000";
    // Where the demo keeps its settings (device identifier, registration); none: the default place.
    std::optional<std::string> dataDir;
    // Walks through the screens on its own every `tourSeconds` (0: stays put), so an agent sees the
    // screens change without anyone at the device.
    double tourSeconds = 0;
    // Joins this session at start, as if the user had typed the agent's code.
    std::optional<std::string> joinCode;
    // Plays the person at the device (see demo_user.h), ending the session after this many seconds
    // of sharing; none: nobody plays the user.
    std::optional<double> playUserSeconds;
    // Changes the latency probe's colour every this many milliseconds (0: no probe).
    int probeMs = 0;
    // Where the played user keeps screenshots of the shop's window, or without a played user, where
    // the window is saved on request from standard input (see window_shots.h); none: no screenshots.
    std::optional<std::string> screenshotDir;
};

// The options, or a message for the user when the command line is wrong.
struct ParsedOptions {
    DemoOptions options;
    std::optional<std::string> error;
};

ParsedOptions parseDemoOptions(const QStringList& arguments);

}  // namespace halvora::demo
