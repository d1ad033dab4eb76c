#pragma once
// HttpClient on libcurl's multi interface, driven by one network thread. Connections and TLS
// sessions are reused between requests; cookies, caches and credentials are not kept.

#include <chrono>
#include <memory>

#include "halvora/platform/http_client.h"

namespace halvora::platform {

class CurlHttpClient final : public HttpClient {
public:
    struct Options {
        // Give up when a request makes no progress for this long (as the platform's default
        // request timeout). Covers connecting, a silent server, and a stalled answer.
        std::chrono::milliseconds idleTimeout{60'000};
        // Verify the peer's certificate and name on https (never turned off in production).
        bool verifyPeer = true;
    };

    CurlHttpClient();
    explicit CurlHttpClient(Options options);
    // Stops the network thread; requests still in flight complete with a "cancelled" error.
    ~CurlHttpClient() override;

    void send(HttpRequest request, Completion completion) override;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvora::platform
