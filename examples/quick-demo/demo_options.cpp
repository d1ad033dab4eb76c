#include "demo_options.h"

#include <QCommandLineParser>
#include <QStringList>

namespace halvora::demo {

ParsedOptions parseDemoOptions(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription("A small shop that shares its screen with a Halvora support agent.");
    parser.addHelpOption();
    const QCommandLineOption api("api", "Base URL of the Halvora service.", "URL", "http://127.0.0.1:4000");
    const QCommandLineOption data("data", "Keep the demo's settings in DIR.", "DIR");
    const QCommandLineOption tour("tour", "Walk through the screens every SECONDS.", "SECONDS", "0");
    const QCommandLineOption join("join", "Join the session with this six-digit code at start.", "CODE");
    const QCommandLineOption playUser("play-user",
                                      "Play the user: ask for help, approve, end from the banner after SECONDS.",
                                      "SECONDS");
    const QCommandLineOption screenshots(
        "screenshots",
        "Keep screenshots of the played user's screens in DIR; without --play-user, save the window as "
        "DIR/NAME.png on each line \"screenshot NAME\" on standard input.",
        "DIR");
    const QCommandLineOption probe("latency-probe", "Change a coloured strip every MS milliseconds, printing each change.",
                                   "MS", "0");
    parser.addOptions({api, data, tour, join, playUser, screenshots, probe});
    parser.addPositionalArgument("link", "A session link, as the desktop passes it when one is opened.", "[link]");

    ParsedOptions parsed;
    if (!parser.parse(arguments)) {
        parsed.error = parser.errorText().toStdString();
        return parsed;
    }
    if (parser.isSet("help")) {
        parsed.error = parser.helpText().toStdString();
        return parsed;
    }
    parsed.options.api = parser.value(api).toStdString();
    if (!parsed.options.api.starts_with("http://") && !parsed.options.api.starts_with("https://")) {
        parsed.error = "--api needs an http or https URL";
        return parsed;
    }
    if (parser.isSet(data)) parsed.options.dataDir = parser.value(data).toStdString();
    bool ok = false;
    parsed.options.tourSeconds = parser.value(tour).toDouble(&ok);
    if (!ok || parsed.options.tourSeconds < 0) {
        parsed.error = "--tour needs a number of seconds, 0 or more";
        return parsed;
    }
    if (parser.isSet(join)) parsed.options.joinCode = parser.value(join).toStdString();
    if (parser.isSet(playUser)) {
        parsed.options.playUserSeconds = parser.value(playUser).toDouble(&ok);
        if (!ok || *parsed.options.playUserSeconds < 0) {
            parsed.error = "--play-user needs a number of seconds, 0 or more";
            return parsed;
        }
    }
    parsed.options.probeMs = parser.value(probe).toInt(&ok);
    if (!ok || parsed.options.probeMs < 0) {
        parsed.error = "--latency-probe needs a number of milliseconds, 0 or more";
        return parsed;
    }
    if (parser.isSet(screenshots)) parsed.options.screenshotDir = parser.value(screenshots).toStdString();
    return parsed;
}

}  // namespace halvora::demo
