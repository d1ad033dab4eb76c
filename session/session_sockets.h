#pragma once
// The two realtime connections of a live session. The control connection brings the service's
// pushes of the session record; the stream connection brings the agent's events (drawings, laser,
// URLs, touches, key presses, resend requests, liveness probes) and carries the device's frames and
// screen descriptions back.

#include <memory>
#include <string>

#include "base/backoff.h"
#include "halvora/error.h"
#include "halvora/platform/http_client.h"
#include "halvora/platform/realtime_socket.h"

namespace halvora {

class HLVSession;

class HLVSessionSockets : public std::enable_shared_from_this<HLVSessionSockets> {
public:
    // Endpoint path of both connections on the service.
    static constexpr const char* kPath = "/sockets/1/events";
    // Wait between a connection's "error" and its rebuild with fresh tokens.
    static constexpr double kRebuildDelaySeconds = 2.0;
    // Errors in a row on one connection: the first rebuild waits kRebuildDelaySeconds, later ones
    // the shared backoff (growing 1.5x, +/- half, at most this), so devices that lost one service
    // do not come back in step.
    static constexpr double kRebuildDelayCapSeconds = 60.0;

    // Made for `session` (held weakly): opens the connections on every update of the session and
    // closes them when it ends.
    static std::shared_ptr<HLVSessionSockets> create(const std::shared_ptr<HLVSession>& session);

    // Opens whichever connection is missing, unless the session has ended. Idempotent.
    void open();
    // Disconnects and drops both connections. Harmless when there are none.
    void close();
    // Re-fetches the session and installs its tokens on both connections' next attempts. The
    // completion runs once, whether the fetch succeeded or not.
    void updateSocketTokens(std::function<void()> completion);
    void openControlSocket();
    void openStreamSocket();

    // The connections, or null. The stream is read by the frame pipeline.
    std::shared_ptr<platform::RealtimeSocket> control() const { return control_; }
    std::shared_ptr<platform::RealtimeSocket> stream() const { return stream_; }

private:
    enum class Channel { control, stream };

    explicit HLVSessionSockets(std::weak_ptr<HLVSession> session) : session_(std::move(session)) {}
    std::shared_ptr<platform::RealtimeSocket> makeSocket(const char* urlField, const char* tokenField) const;
    void registerControlHandlers(platform::RealtimeSocket& socket);
    void registerStreamHandlers(platform::RealtimeSocket& socket);
    void onError(Channel channel, const platform::RealtimeSocket::Items& items);
    void rebuild(Channel channel);
    void connected(Channel channel);

    std::weak_ptr<HLVSession> session_;
    std::shared_ptr<platform::RealtimeSocket> control_;
    std::shared_ptr<platform::RealtimeSocket> stream_;
    Backoff rebuildBackoff_{Backoff::Seconds(kRebuildDelaySeconds), Backoff::Seconds(kRebuildDelayCapSeconds), 0.5};
    int failures_[2] = {0, 0};     // errors in a row, by channel; logged only on the first
    bool rebuildPending_[2] = {false, false};
    bool refreshFailing_ = false;  // logged once until a refresh succeeds again
};

}  // namespace halvora
