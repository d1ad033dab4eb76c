#include "device/device.h"

#include <cmath>
#include <cstdio>
#include <utility>

#include "base/uuid.h"
#include "protocol/wire_headers.h"
#include "halvora/platform/log.h"
#include "halvora/platform.h"

namespace halvora {

std::shared_ptr<HLVDevice> HLVDevice::create(ServiceContextPtr context) {
    return std::shared_ptr<HLVDevice>(new HLVDevice(std::move(context)));
}

std::shared_ptr<HLVDevice> HLVDevice::self() {
    return std::static_pointer_cast<HLVDevice>(shared_from_this());
}

std::string HLVDevice::url() const { return context()->api + "/api/1/devices/" + id(); }

std::string HLVDevice::id() const {
    auto& store = platform::store();
    if (auto stored = store.get(kDeviceIdKey)) return *stored;
    std::string fresh = makeUuidString();
    if (!store.set(kDeviceIdKey, fresh)) {
        platform::log("Halvora could not save the device identifier; it will change at the next launch");
    }
    return fresh;
}

std::string HLVDevice::stringWithDeviceToken(const std::vector<std::uint8_t>& token) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(token.size() * 2);
    for (std::uint8_t byte : token) {
        hex.push_back(kDigits[byte >> 4]);
        hex.push_back(kDigits[byte & 0x0f]);
    }
    return hex;
}

void HLVDevice::setCustomData(const Json& data) {
    if (!customData_) customData_ = Json::object();
    if (!data.is_object()) return;
    for (const auto& [key, value] : data.items()) {
        if (!value.is_null()) (*customData_)[key] = value;
    }
}

void HLVDevice::registerDevice(DeviceCompletion completion) {
    Json body = Json::object();
    body["push_token"] = token_ ? stringWithDeviceToken(*token_) : std::string();
    body["push_provider"] = "APNS";
    body["device"] = info();
    if (customData_) body["custom_data"] = *customData_;

    auto device = self();
    ++registrationsInFlight_;
    update(body, [device, completion = std::move(completion)](OptionalError error,
                                                               const std::shared_ptr<HLVRESTResource>&) mutable {
        --device->registrationsInFlight_;
        const bool started = device->context()->started;
        const bool refused = error && error->domain() == HLVError::kDomain && error->code() == 401;
        if (refused && started && !device->startedOver_) {
            device->startOver(std::move(completion));
            return;
        }
        if (!error) device->startedOver_ = false;
        if (error) platform::log("Halvora registration error: " + error->description());
        // A registration answered after stop() opens nothing: stopping ends everything locally.
        if (started) {
            device->openNotificationSocket();
            device->answeredSinceStart_ = true;
        }
        for (auto& waiting : std::exchange(device->waitingForRegistration_, {})) waiting();
        if (completion) completion(std::move(error), device);
    });
}

void HLVDevice::startOver(DeviceCompletion completion) {
    platform::log("Halvora device credential refused; registering as a new device");
    startedOver_ = true;
    auto& store = platform::store();
    store.remove(kDeviceCredentialKey);
    store.remove(kDeviceIdKey);  // id() makes a new one
    closeNotificationSocket();
    cleanup();
    registerDevice(std::move(completion));
}

void HLVDevice::whenRegistered(std::function<void()> then) {
    if (!context()->started || answeredSinceStart_ || storedDeviceCredential()) {
        then();
        return;
    }
    waitingForRegistration_.push_back(std::move(then));
    if (registrationsInFlight_ == 0) registerDevice(nullptr);
}

OptionalError HLVDevice::updateResource(std::optional<Json> value) {
    if (value && value->is_object()) {
        if (auto it = value->find("credential"); it != value->end()) {
            // Kept out of the record, so that nothing printing or forwarding it carries the secret.
            if (it->is_string() && isDeviceCredential(it->get_ref<const std::string&>()) &&
                !platform::store().set(kDeviceCredentialKey, it->get<std::string>())) {
                platform::log("Halvora could not save the device credential");
            }
            value->erase(it);
        }
    }
    return HLVRESTResource::updateResource(std::move(value));
}

std::chrono::seconds HLVDevice::registrationDelay(const OptionalError& error,
                                                  const std::optional<Json>& nextRegistration) {
    using std::chrono::seconds;
    if (error) return seconds(60);
    double requested = 0;
    if (nextRegistration && nextRegistration->is_number()) requested = nextRegistration->get<double>();
    if (!(requested >= 61)) return seconds(60);  // also catches NaN
    if (requested > 3599) return seconds(3600);
    return seconds(static_cast<long>(std::floor(requested)));
}

void HLVDevice::runRegistrationLoop() {
    if (nextRegistration_) {
        nextRegistration_.cancel();
        nextRegistration_ = {};
    }
    loop();
}

void HLVDevice::loop() {
    if (nextRegistration_) return;  // at most one timer
    registerDevice([](OptionalError error, const std::shared_ptr<HLVDevice>& device) {
        if (!device->context()->started) return;  // stopped while in flight
        auto delay = registrationDelay(error, device->field("next_registration"));
        // Replaces whatever was pending without cancelling it: a loop restarted while this
        // registration was in flight keeps running alongside, by design.
        device->nextRegistration_ = platform::mainQueue().postAfter(delay, [device] {
            device->nextRegistration_ = {};
            device->loop();
        });
    });
}

void HLVDevice::deregister(Completion completion) {
    customData_.reset();
    closeNotificationSocket();
    answeredSinceStart_ = false;
    startedOver_ = false;
    if (nextRegistration_) {
        nextRegistration_.cancel();
        nextRegistration_ = {};
    }
    deleteResource(std::move(completion));
    // The DELETE has taken the credential with it (headers are built when a request is issued).
    // A removed device's credential opens nothing any more: the next start registers afresh and
    // is given a new one, instead of presenting a dead one first.
    platform::store().remove(kDeviceCredentialKey);
    cleanup();
}

void HLVDevice::closeNotificationSocket() {
    if (!notificationSocket_) return;
    notificationSocket_->disconnect();
    notificationSocket_.reset();
}

}  // namespace halvora
