#pragma once
// Integrations with other SDKs the application embeds. An integration is registered once and set
// up on every start of the library; payloads of pushes that are not Halvora's reach it.
//
//   halvora::HLVIntercom::install({
//       .setCustomAttributes = [](const halvora::Json& attributes) { /* Intercom: custom attributes */ },
//       .updateUser = [] { /* Intercom: update the user with those attributes */ },
//   });

#include <functional>
#include <memory>
#include <string>

#include "halvora/json.h"

namespace halvora {

class HLVIntegration {
public:
    virtual ~HLVIntegration() = default;
    // Whether the other SDK is present; an integration checks it itself before registering.
    virtual bool isAvailable() const = 0;
    // For the log.
    virtual std::string name() const = 0;
    // Runs on every start of the library.
    virtual void configure() = 0;
    // A push payload that is not Halvora's.
    virtual void onPushNotification(const Json& payload) = 0;
};

// The two Intercom operations the host provides (no class can be looked up by name here). An
// empty operation stands for an Intercom SDK that lacks it.
struct HLVIntercomHooks {
    // Puts custom attributes on the user attributes about to be sent.
    std::function<void(const Json& attributes)> setCustomAttributes;
    // Sends those user attributes to Intercom.
    std::function<void()> updateUser;
};

// Writes this installation's identifier into the Intercom user's custom attributes as
// "HalvoraID", so that an Intercom conversation can be matched to the device at the service.
class HLVIntercom final : public HLVIntegration {
public:
    explicit HLVIntercom(HLVIntercomHooks hooks) : hooks_(std::move(hooks)) {}
    // Registers the integration when both hooks are given; returns it, or none.
    static std::shared_ptr<HLVIntercom> install(HLVIntercomHooks hooks);

    // True when the host gave both operations: one alone cannot put the identifier on the user.
    bool isAvailable() const override;
    std::string name() const override { return "Intercom"; }
    void configure() override { updateUser(); }
    // Intercom's own pushes are Intercom's business.
    void onPushNotification(const Json&) override {}
    // {"HalvoraID": <installation identifier>} as custom attributes, then the user update; a
    // missing operation is reported in the log and the other still runs. Without an identifier
    // nothing is sent (a null would erase the one Intercom has), and the log says so.
    void updateUser();

private:
    HLVIntercomHooks hooks_;
};

}  // namespace halvora
