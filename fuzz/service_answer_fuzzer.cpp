// Any bytes the service might answer with, at any status, through everything that reads them:
// the transport's interpretation, session validation, agent and URL records, the registration
// schedule.
#include <cstddef>
#include <cstdint>
#include <string>

#include "core/agent.h"
#include "core/service_answer.h"
#include "core/url_record.h"
#include "device/device.h"
#include "session/session.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace halvora;
    if (size < 2) return 0;
    long status = 100 + (data[0] | (data[1] << 8)) % 500;
    std::string body(reinterpret_cast<const char*>(data + 2), size - 2);

    auto answer = interpretAnswer(status, body);
    if (!answer.json) return 0;
    const Json& json = *answer.json;

    auto session = HLVSession::create();
    if (!session->updateResource(json)) {
        (void)session->url();
        (void)session->agent();
        (void)session->isEnded();
    }
    (void)HLVURL::from(json);
    (void)HLVAgent::from(json);
    if (json.is_object()) {
        auto next = json.find("next_registration");
        if (next != json.end()) (void)HLVDevice::registrationDelay(std::nullopt, *next);
        for (const auto& [key, value] : json.items()) {
            (void)HLVURL::from(value);
            (void)HLVAgent::from(value);
        }
    }
    return 0;
}
