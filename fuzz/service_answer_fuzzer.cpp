// Any bytes the service might answer with, at any status, through everything that reads them:
// the transport's interpretation, session validation, agent records of every kind, push payloads,
// the registration schedule, and every string in it as a URL (links, pages, socket endpoints).
// Socket pushes carry the same JSON, so they are covered here too.
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/url_parts.h"
#include "device/device.h"
#include "facade/facade_access.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "protocol/service_answer.h"
#include "protocol/web_url.h"

namespace {

// Sessions open their connections when they adopt a record; the fuzzer must not reach the network.
class NoSockets final : public halvora::platform::RealtimeSocketFactory {
    class Idle final : public halvora::platform::RealtimeSocket {
        void on(const std::string&, Handler) override {}
        void emitEvent(const std::string&, Items) override {}
        void connect() override {}
        void disconnect() override {}
        void setExtraHeaders(halvora::platform::HeaderList) override {}
        bool isConnected() const override { return false; }
    };

public:
    std::shared_ptr<halvora::platform::RealtimeSocket> make(const std::string&,
                                                             halvora::platform::RealtimeSocketConfig) override {
        return std::make_shared<Idle>();
    }
};

void parseAsAgentEvent(const halvora::Json& value) {
    using namespace halvora;
    for (const char* name : {"url", "touch", "keypress", "laser"}) (void)agentEventFrom(name, value);
    (void)HLVAgent::from(value);
    if (auto drawing = HLVDrawing::from(value)) (void)drawing->imageBytes();
    (void)Halvora::isHalvoraNotification(value);
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        (void)splitUrl(text);
        (void)isOpenableWebUrl(text);
        (void)isSocketUrl(text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    halvora::platform::Services services;
    services.sockets = std::make_shared<NoSockets>();
    halvora::platform::install(std::move(services));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace halvora;
    if (size < 2) return 0;
    long status = 100 + (data[0] | (data[1] << 8)) % 500;
    std::string body(reinterpret_cast<const char*>(data + 2), size - 2);

    auto answer = interpretAnswer(status, body);
    if (!answer.json) return 0;
    const Json& json = *answer.json;

    auto session = FacadeAccess::makeSession();
    if (!session->updateResource(json)) {
        (void)session->url();
        (void)session->agent();
        (void)session->isEnded();
    }
    parseAsAgentEvent(json);
    if (json.is_object()) {
        auto next = json.find("next_registration");
        if (next != json.end()) (void)HLVDevice::registrationDelay(std::nullopt, *next);
        for (const auto& [key, value] : json.items()) parseAsAgentEvent(value);
    }
    return 0;
}
