#include "tools/cli/event_trace.h"

#include <ctime>
#include <iomanip>
#include <sstream>

namespace halvora::cli {
namespace {

bool isTokenKey(const std::string& key) { return key.ends_with("_token") || key == "token"; }

Json forDisplay(const Json& value) {
    if (value.is_binary()) return "<" + std::to_string(value.get_binary().size()) + " bytes>";
    if (value.is_object()) {
        Json copy = Json::object();
        for (const auto& [key, member] : value.items()) {
            copy[key] = isTokenKey(key) && member.is_string() ? Json("<hidden>") : forDisplay(member);
        }
        return copy;
    }
    if (value.is_array()) {
        Json copy = Json::array();
        for (const auto& member : value) copy.push_back(forDisplay(member));
        return copy;
    }
    return value;
}

class TracingSocket final : public platform::RealtimeSocket {
public:
    TracingSocket(std::shared_ptr<platform::RealtimeSocket> inner, TracingSocketFactory::Printer print)
        : inner_(std::move(inner)), print_(std::move(print)) {}

    void on(const std::string& event, Handler handler) override {
        inner_->on(event, [event, print = print_, handler = std::move(handler)](const Items& items) {
            std::string line = event;
            if (!items.empty()) line += " " + traceValue(items[0]);
            print(line);
            handler(items);
        });
    }
    void emitEvent(const std::string& event, Items items) override { inner_->emitEvent(event, std::move(items)); }
    void connect() override { inner_->connect(); }
    void disconnect() override { inner_->disconnect(); }
    void setExtraHeaders(platform::HeaderList headers) override { inner_->setExtraHeaders(std::move(headers)); }
    bool isConnected() const override { return inner_->isConnected(); }

private:
    std::shared_ptr<platform::RealtimeSocket> inner_;
    TracingSocketFactory::Printer print_;
};

}  // namespace

TracingSocketFactory::TracingSocketFactory(std::shared_ptr<platform::RealtimeSocketFactory> inner, Printer print)
    : inner_(std::move(inner)), print_(std::move(print)) {}

std::shared_ptr<platform::RealtimeSocket> TracingSocketFactory::make(const std::string& url,
                                                                     platform::RealtimeSocketConfig config) {
    return std::make_shared<TracingSocket>(inner_->make(url, std::move(config)), print_);
}

std::string clockTime(std::chrono::system_clock::time_point when) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%H:%M:%S") << '.' << std::setw(3) << std::setfill('0') << millis;
    return text.str();
}

std::string traceValue(const Json& value) {
    return forDisplay(value).dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace halvora::cli
