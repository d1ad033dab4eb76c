#pragma once
// Settings of one SocketManager.

#include <optional>
#include <string>

#include "sio/value.h"

namespace halvora::sio {

struct Config {
    // Path of the Engine.IO endpoint on the server; "/socket.io" is the servers' default.
    // The URL's own path is ignored, as the Socket.IO clients do.
    std::string path = "/socket.io";
    // Headers sent with the websocket upgrade request (each connection attempt reads the
    // engine's current headers, see Engine::setExtraHeaders).
    Headers extraHeaders;

    // Reconnection after a lost transport (never after the server's DISCONNECT or disconnect()).
    bool reconnects = true;
    // Attempts before giving up; negative means without limit.
    int reconnectAttempts = -1;
    // The first retry runs at once; later ones wait reconnectWait, growing 1.5x per attempt up
    // to reconnectWaitMax, each randomised by +/- randomizationFactor.
    Seconds reconnectWait{10};
    Seconds reconnectWaitMax{30};
    double randomizationFactor = 0.5;

    // Time allowed to open the transport and receive the Engine.IO open packet.
    Seconds connectTimeout{20};

    // Where event handlers run. Empty: the process-wide default executor (see setDefaultExecutor),
    // or, when none was set, the network thread.
    Executor handleQueue;

    // TLS (wss://): the peer's certificate is verified against the system store, or against
    // caFile when set. Turning verification off is meant for tests only.
    bool verifyPeer = true;
    std::string caFile;

    // Reads the dictionary form used by the other Socket.IO clients: "path" (string),
    // "extraHeaders" (object of strings), "reconnects" (bool), "reconnectAttempts" (integer),
    // "reconnectWait" and "reconnectWaitMax" (seconds), "randomizationFactor" (number).
    // Unknown keys are ignored; a key with the wrong type is an error (returned as none, with
    // the reason in *error when given).
    static std::optional<Config> fromJson(const Value& options, std::string* error = nullptr);
};

// The executor handlers run on when a manager's config names none. Set it once, before creating
// managers (an application sets its UI thread's queue here).
void setDefaultExecutor(Executor executor);

}  // namespace halvora::sio
