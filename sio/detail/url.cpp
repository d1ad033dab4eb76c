#include "sio/detail/url.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include <boost/asio/ip/address.hpp>

#include "base/url_parts.h"

namespace halvora::sio::detail {
namespace {

bool fail(std::string* error, std::string message) {
    if (error) *error = std::move(message);
    return false;
}

std::string lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool validHostName(std::string_view host) {
    return !host.empty() && std::all_of(host.begin(), host.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '-' || c == '.' || c == '_';
    });
}

bool parsePort(std::string_view text, std::string& port) {
    unsigned value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size() || value == 0 ||
        value > 65535)
        return false;
    port = std::to_string(value);
    return true;
}

}  // namespace

std::optional<ServerAddress> parseServerUrl(std::string_view url, std::string* error) {
    const auto invalid = [&](const char* why) -> std::optional<ServerAddress> {
        fail(error, "invalid URL \"" + std::string(url) + "\": " + why);
        return std::nullopt;
    };
    const auto parts = splitUrl(url);
    if (!parts) return invalid(url.find("://") == std::string_view::npos ? "no scheme" : "unterminated IPv6 address");
    ServerAddress address;
    if (parts->scheme == "ws" || parts->scheme == "http") {
        address.port = "80";
    } else if (parts->scheme == "wss" || parts->scheme == "https") {
        address.secure = true;
        address.port = "443";
    } else {
        return invalid("scheme must be ws, wss, http or https");
    }
    if (parts->userinfo) return invalid("credentials are not supported");
    boost::system::error_code ec;
    if (parts->bracketedHost) {
        const auto parsed = boost::asio::ip::make_address(parts->host, ec);
        if (ec || !parsed.is_v6()) return invalid("bad IPv6 address");
        address.hostIsIpAddress = true;
    } else {
        if (!validHostName(parts->host)) return invalid("bad host");
        boost::asio::ip::make_address_v4(parts->host, ec);
        address.hostIsIpAddress = !ec;
    }
    if (parts->port && !parsePort(*parts->port, address.port)) return invalid("bad port");
    address.host = lower(parts->host);
    return address;
}

std::optional<std::string> websocketTarget(std::string_view path) {
    const bool printable = std::all_of(path.begin(), path.end(), [](unsigned char c) {
        return c > 0x20 && c < 0x7f && c != '?' && c != '#';
    });
    if (!printable) return std::nullopt;
    std::string target(path);
    while (!target.empty() && target.back() == '/') target.pop_back();
    if (target.empty() || target.front() != '/') target.insert(target.begin(), '/');
    if (target.size() > 1) target += '/';
    return target + "?EIO=4&transport=websocket";
}

}  // namespace halvora::sio::detail
