#include "platform/linux/sio_socket_factory.h"

#include <utility>

#include "halvora/platform.h"
#include "sio/socket_manager.h"

namespace halvora::platform {
namespace {

class SioSocket final : public RealtimeSocket {
public:
    SioSocket(const std::string& url, sio::Config config) : manager_(url, std::move(config)) {}

    void on(const std::string& event, Handler handler) override {
        manager_.defaultSocket().on(event, [handler = std::move(handler)](const sio::Items& items, sio::Ack) {
            handler(items);
        });
    }
    void emitEvent(const std::string& event, Items items) override {
        manager_.defaultSocket().emit(event, std::move(items));
    }
    void connect() override { manager_.connect(); }
    void disconnect() override { manager_.disconnect(); }
    void setExtraHeaders(HeaderList headers) override { manager_.engine().setExtraHeaders(std::move(headers)); }
    bool isConnected() const override { return manager_.engine().connected(); }

private:
    sio::SocketManager manager_;
};

}  // namespace

std::shared_ptr<RealtimeSocket> SioSocketFactory::make(const std::string& url, RealtimeSocketConfig config) {
    sio::Config sioConfig;
    sioConfig.path = std::move(config.path);
    sioConfig.extraHeaders = std::move(config.extraHeaders);
    if (config.reconnectWait) sioConfig.reconnectWait = sio::Seconds(*config.reconnectWait);
    // The queue is looked up per task so that a host installing its own queue later is honoured.
    sioConfig.handleQueue = [](std::function<void()> task) { platform::mainQueue().post(std::move(task)); };
    return std::make_shared<SioSocket>(url, std::move(sioConfig));
}

}  // namespace halvora::platform
