#pragma once
// A service record held on the device: the last JSON value the service returned for it, read
// field by field, and fetched, updated and deleted over the REST transport.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "halvora/error.h"
#include "halvora/json.h"

namespace halvora {

struct ServiceContext;

class HLVRESTResource : public std::enable_shared_from_this<HLVRESTResource> {
public:
    // The error or none, and the resource itself (also on failure).
    using Completion = std::function<void(OptionalError, std::shared_ptr<HLVRESTResource>)>;

    virtual ~HLVRESTResource();
    HLVRESTResource(const HLVRESTResource&) = delete;
    HLVRESTResource& operator=(const HLVRESTResource&) = delete;

    // The value of `key` in the record; none when absent or when there is no record.
    std::optional<Json> field(const std::string& key) const;
    // The record as last adopted; none before the first adoption and after cleanup().
    const std::optional<Json>& resource() const { return resource_; }
    // The record's "id" field.
    std::optional<Json> id() const { return field("id"); }

    // The record's absolute URL; empty for the base class.
    virtual std::string url() const { return {}; }
    // Drops the record.
    virtual void cleanup() { resource_.reset(); }
    // Adopts `value` as the record. The base accepts anything (a 204 adopts none); subclasses
    // validate first and return an error instead of adopting.
    virtual OptionalError updateResource(std::optional<Json> value);

    // GET url(), PUT `body` to url(), DELETE url(). On a transport error the completion gets that
    // error; otherwise the answer goes through updateResource() and the completion gets what it
    // returned. Completions run on the main queue and may be empty.
    virtual void fetch(Completion completion);
    virtual void update(const Json& body, Completion completion);
    void deleteResource(Completion completion);

protected:
    // Requests go to the service `context` names, while it says the library is started.
    explicit HLVRESTResource(std::shared_ptr<const ServiceContext> context);
    const std::shared_ptr<const ServiceContext>& context() const { return context_; }

private:
    void send(const std::string& method, std::optional<Json> body, Completion completion);

    std::shared_ptr<const ServiceContext> context_;
    std::optional<Json> resource_;
};

}  // namespace halvora
