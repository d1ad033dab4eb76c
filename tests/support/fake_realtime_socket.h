#pragma once
// Realtime sockets the test drives: it fires server and client events at the library's handlers
// and reads back what the library emitted, connected and disconnected.

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "halvora/platform/realtime_socket.h"
#include "halvora/platform/url_opener.h"

namespace halvora::testing {

class FakeRealtimeSocket final : public platform::RealtimeSocket {
public:
    platform::RealtimeSocketConfig config;
    // Read directly once the sending queue has drained; while it runs, read through emittedSoFar().
    std::vector<std::pair<std::string, Items>> emitted;
    std::vector<std::chrono::steady_clock::time_point> emittedAt;  // when each was emitted
    int connects = 0;
    int disconnects = 0;
    std::atomic<bool> connected = false;  // the sending queue reads it

    void on(const std::string& event, Handler handler) override;
    void emitEvent(const std::string& event, Items items) override;
    std::vector<std::pair<std::string, Items>> emittedSoFar() const;
    // The events emitted from the `from`th on, each with when it was emitted.
    struct Emission {
        std::string event;
        Items items;
        std::chrono::steady_clock::time_point at;
    };
    std::vector<Emission> emittedSince(std::size_t from) const;
    void connect() override { ++connects; }
    void disconnect() override { ++disconnects; }
    void setExtraHeaders(platform::HeaderList headers) override { config.extraHeaders = std::move(headers); }
    bool isConnected() const override { return connected; }

    // Runs the handlers of `event` as the client would deliver it.
    void fire(const std::string& event, Items items = {});
    // The bearer token of the headers the next attempt would present.
    std::string bearer() const;

private:
    std::multimap<std::string, Handler> handlers_;
    mutable std::mutex emittedMutex_;
};

class FakeSocketFactory final : public platform::RealtimeSocketFactory {
public:
    std::vector<std::shared_ptr<FakeRealtimeSocket>> made;

    std::shared_ptr<platform::RealtimeSocket> make(const std::string& url,
                                                   platform::RealtimeSocketConfig config) override;
    // The latest socket made whose token is `token`, or null.
    std::shared_ptr<FakeRealtimeSocket> latestWithToken(const std::string& token) const;
};

class RecordingUrlOpener final : public platform::UrlOpener {
public:
    std::vector<std::string> opened;
    platform::PageShown shownAs = platform::PageShown::unknown;
    void open(const std::string& url) override { opened.push_back(url); }
    platform::PageShown openPage(const std::string& url) override {
        open(url);
        return shownAs;
    }
};

}  // namespace halvora::testing
