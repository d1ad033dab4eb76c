#include "halvora/rest_resource.h"

#include "rest/transport.h"

namespace halvora {

HLVRESTResource::HLVRESTResource(std::shared_ptr<const ServiceContext> context) : context_(std::move(context)) {}

HLVRESTResource::~HLVRESTResource() = default;

std::optional<Json> HLVRESTResource::field(const std::string& key) const {
    if (!resource_ || !resource_->is_object()) return std::nullopt;
    auto it = resource_->find(key);
    if (it == resource_->end()) return std::nullopt;
    return *it;
}

OptionalError HLVRESTResource::updateResource(std::optional<Json> value) {
    resource_ = std::move(value);
    return std::nullopt;
}

void HLVRESTResource::fetch(Completion completion) { send("GET", std::nullopt, std::move(completion)); }

void HLVRESTResource::update(const Json& body, Completion completion) {
    send("PUT", body, std::move(completion));
}

void HLVRESTResource::deleteResource(Completion completion) {
    send("DELETE", std::nullopt, std::move(completion));
}

void HLVRESTResource::send(const std::string& method, std::optional<Json> body, Completion completion) {
    RequestOptions options;
    if (method != "GET") options.method = method;
    options.body = std::move(body);
    // The request holds the resource until it completes, as the caller expects its answer adopted.
    auto self = shared_from_this();
    RequestCallback adopt = [self, completion = std::move(completion)](
                                OptionalError error, std::optional<Json> answer,
                                std::optional<platform::HttpResponse>) {
        if (!error) error = self->updateResource(std::move(answer));
        if (completion) completion(std::move(error), self);
    };
    sendRequest(*context_, url(), options, onMainQueue(std::move(adopt)));
}

}  // namespace halvora
