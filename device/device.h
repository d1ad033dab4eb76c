#pragma once
// This installation of the host application at the service. While the library is started it keeps
// the device registered: it sends the device's description, push token and custom data, reads back
// when to register next, and repeats.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "halvora/rest_resource.h"
#include "rest/service_context.h"
#include "halvora/platform/http_client.h"
#include "halvora/platform/main_queue.h"
#include "halvora/platform/realtime_socket.h"

namespace halvora {

class HLVDevice final : public HLVRESTResource {
public:
    using DeviceCompletion = std::function<void(OptionalError, std::shared_ptr<HLVDevice>)>;

    // User-defaults key of the persistent identifier.
    static constexpr const char* kDeviceIdKey = "halvora_device_id";

    static std::shared_ptr<HLVDevice> create(ServiceContextPtr context);

    // "<api>/api/1/devices/<id>".
    std::string url() const override;
    // The installation's identifier, made once (a new upper-case UUID) and kept in the store.
    // Not the record's "id" field.
    std::string id() const;

    // One registration: PUTs push token, provider, description and custom data; logs an error,
    // then opens the notification socket when it can, then calls `completion` (may be empty).
    // Answered 401 (the service refuses the stored credential, as after restoring a backup),
    // it starts over once: logs "Halvora device credential refused; registering as a new
    // device", removes the credential and the identifier from the store, drops the record and
    // the notification socket, and registers as a new device; `completion` hears of that one.
    // A 401 before the device registered successfully again (or was stopped) does not start over.
    void registerDevice(DeviceCompletion completion);
    // Runs `then` once the device may ask for sessions: at once while stopped, while a credential
    // is stored, or once a registration was answered since the start; otherwise after the answer
    // to the registration in flight, or to one made now. On a first launch this lets the
    // credential the first answer brings go with the session request.
    void whenRegistered(std::function<void()> then);
    // Keeps a credential the record carries (see kDeviceCredentialKey) in the store, never in
    // the record, then adopts the record.
    OptionalError updateResource(std::optional<Json> value) override;
    // Drops custom data, closes the notification socket, cancels the loop's timer, sends a DELETE
    // (its outcome goes to `completion`) and, without waiting, drops the record.
    void deregister(Completion completion);

    // Lower-case hex, two digits a byte: {0x0A, 0xFF} -> "0aff".
    static std::string stringWithDeviceToken(const std::vector<std::uint8_t>& token);
    // The push token as the platform delivered it; setting it does not register.
    void setToken(std::optional<std::vector<std::uint8_t>> token) { token_ = std::move(token); }
    const std::optional<std::vector<std::uint8_t>>& token() const { return token_; }

    // Merges `data` (an object) into the custom data: keys are added or replaced, never removed;
    // null values are skipped. Does not register.
    void setCustomData(const Json& data);
    // A copy of the merged custom data, none until first set.
    std::optional<Json> customData() const { return customData_; }

    // Restarts the registration loop: cancels a pending timer and registers now.
    void runRegistrationLoop();
    // True while a next registration is scheduled.
    bool hasPendingRegistration() const { return static_cast<bool>(nextRegistration_); }

    // Opens the notification connection, over which the agent starts sessions, when the record
    // carries "notification_url" and no connection was made before. Called after every
    // registration attempt. Once the connection is lost it is stopped, not retried, until the
    // device deregisters: pushes remain the way in meanwhile.
    void openNotificationSocket();
    // Where the notification connection's messages go (the facade joins the session they name).
    void setNotificationHandler(std::function<void(const Json&)> handler) { onNotification_ = std::move(handler); }
    // The notification connection, or null.
    std::shared_ptr<platform::RealtimeSocket> notificationSocket() const { return notificationSocket_; }

    // Endpoint path and reconnection wait (seconds) of the notification connection.
    static constexpr const char* kNotificationPath = "/sockets/1/events";
    static constexpr double kNotificationReconnectWait = 2;
    // Delay before the headers are rebuilt from the current token after an "error".
    static constexpr double kHeaderRefreshDelaySeconds = 0.5;

    // The device description sent with registrations and activations.
    static Json info();

    // Delay before the next registration, from the service's "next_registration": 60 s after an
    // error, else the value clamped to 60..3600 s (missing, negative or non-numeric reads as 0).
    static std::chrono::seconds registrationDelay(const OptionalError& error,
                                                  const std::optional<Json>& nextRegistration);

private:
    explicit HLVDevice(ServiceContextPtr context) : HLVRESTResource(std::move(context)) {}
    void loop();
    std::shared_ptr<HLVDevice> self();
    void startOver(DeviceCompletion completion);
    void closeNotificationSocket();

    std::optional<Json> customData_;
    std::optional<std::vector<std::uint8_t>> token_;
    platform::TimerHandle nextRegistration_;
    std::shared_ptr<platform::RealtimeSocket> notificationSocket_;
    std::function<void(const Json&)> onNotification_;
    int registrationsInFlight_ = 0;
    bool answeredSinceStart_ = false;
    bool startedOver_ = false;  // until a registration succeeds or the device deregisters
    std::vector<std::function<void()>> waitingForRegistration_;
};

}  // namespace halvora
