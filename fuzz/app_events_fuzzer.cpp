// What reaches the library from outside the service: links the application was opened with (to
// any host, and to the link host with any path) and push payloads. Joining needs a started library,
// so every join ends at once with "Halvora not started"; what is exercised is the reading.
#include <cstddef>
#include <cstdint>
#include <string>

#include "halvora/app_events.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "halvora/platform/log.h"
#include "halvora/platform/run_loop.h"

namespace {
std::shared_ptr<halvora::platform::RunLoop> loop;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    halvora::platform::setLogSink([](std::string_view) {});  // every invalid link logs a line
    loop = std::make_shared<halvora::platform::RunLoop>();
    halvora::platform::install({.mainQueue = loop});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace halvora;
    const std::string text(reinterpret_cast<const char*>(data), size);
    HalvoraAppEvents::didOpenUrl(text);
    HalvoraAppEvents::didOpenUrl("https://" + Halvora::instance().linkHost() + "/" + text);
    const Json payload = Json::parse(text, nullptr, false);
    if (!payload.is_discarded()) HalvoraAppEvents::didReceiveRemoteNotification(payload);
    loop->runPending();  // what the joins posted
    return 0;
}
