#include "rest/transport.h"

#include <memory>

#include "halvora/platform.h"
#include "protocol/service_answer.h"
#include "protocol/wire_headers.h"

namespace halvora {
namespace {

struct Outcome {
    OptionalError error;
    std::optional<Json> answer;
    std::optional<platform::HttpResponse> response;
};

// Whether `url` is the service's own. Halvora::request goes wherever the application points it,
// and the device credential must not leave for another host.
bool isServiceUrl(const ServiceContext& context, const std::string& url) {
    const std::string& api = context.api;
    if (api.empty() || !url.starts_with(api)) return false;
    return api.ends_with('/') || url.size() == api.size() || url[api.size()] == '/' || url[api.size()] == '?';
}

// Runs on the network thread so that parsing large answers never holds the main queue.
Outcome interpret(platform::HttpResult result) {
    Outcome outcome;
    outcome.response = std::move(result.response);
    auto read = interpretAnswer(outcome.response ? outcome.response->status : 0, result.body);
    outcome.error = std::move(read.error);
    outcome.answer = std::move(read.json);
    return outcome;
}

}  // namespace

void sendRequest(const ServiceContext& context, const std::string& url, const RequestOptions& options,
                 RequestCallback callback) {
    if (!context.started) {
        callback(HLVError("Halvora not started", 0), std::nullopt, std::nullopt);
        return;
    }

    platform::HttpRequest request;
    request.url = url;
    request.headers = requestHeaders(isServiceUrl(context, url) ? storedDeviceCredential() : std::nullopt);
    request.method = options.method.value_or("GET");
    if (options.body) {
        try {
            request.body = options.body->dump();
        } catch (const Json::exception& e) {
            auto error = HLVError::inDomain("json", e.id, e.what());
            platform::mainQueue().post(
                [callback = std::move(callback), error] { callback(error, std::nullopt, std::nullopt); });
            return;
        }
    }

    auto shared = std::make_shared<RequestCallback>(std::move(callback));
    platform::http().send(std::move(request), [shared](platform::HttpResult result) {
        if (result.error) {
            const auto& failure = *result.error;
            (*shared)(HLVError::inDomain(failure.domain, failure.code, failure.message), std::nullopt,
                      std::move(result.response));
            return;
        }
        platform::mainQueue().post([shared, outcome = interpret(std::move(result))]() mutable {
            (*shared)(std::move(outcome.error), std::move(outcome.answer), std::move(outcome.response));
        });
    });
}

}  // namespace halvora
