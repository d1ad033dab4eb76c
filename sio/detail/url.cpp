#include "sio/detail/url.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include <boost/asio/ip/address.hpp>

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
    const auto schemeEnd = url.find("://");
    if (schemeEnd == std::string_view::npos) {
        fail(error, "invalid URL \"" + std::string(url) + "\": no scheme");
        return std::nullopt;
    }
    ServerAddress address;
    const std::string scheme = lower(url.substr(0, schemeEnd));
    if (scheme == "ws" || scheme == "http") {
        address.port = "80";
    } else if (scheme == "wss" || scheme == "https") {
        address.secure = true;
        address.port = "443";
    } else {
        fail(error, "invalid URL \"" + std::string(url) + "\": scheme must be ws, wss, http or https");
        return std::nullopt;
    }

    std::string_view authority = url.substr(schemeEnd + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (authority.find('@') != std::string_view::npos) {
        fail(error, "invalid URL \"" + std::string(url) + "\": credentials are not supported");
        return std::nullopt;
    }

    std::string_view host;
    std::string_view rest;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string_view::npos) {
            fail(error, "invalid URL \"" + std::string(url) + "\": unterminated IPv6 address");
            return std::nullopt;
        }
        host = authority.substr(1, close - 1);
        rest = authority.substr(close + 1);
        boost::system::error_code ec;
        const auto parsed = boost::asio::ip::make_address(std::string(host), ec);
        if (ec || !parsed.is_v6()) {
            fail(error, "invalid URL \"" + std::string(url) + "\": bad IPv6 address");
            return std::nullopt;
        }
        address.hostIsIpAddress = true;
    } else {
        const auto colon = authority.find(':');
        host = authority.substr(0, colon);
        rest = colon == std::string_view::npos ? std::string_view{} : authority.substr(colon);
        if (!validHostName(host)) {
            fail(error, "invalid URL \"" + std::string(url) + "\": bad host");
            return std::nullopt;
        }
        boost::system::error_code ec;
        boost::asio::ip::make_address_v4(std::string(host), ec);
        address.hostIsIpAddress = !ec;
    }
    if (!rest.empty()) {
        if (rest.front() != ':' || !parsePort(rest.substr(1), address.port)) {
            fail(error, "invalid URL \"" + std::string(url) + "\": bad port");
            return std::nullopt;
        }
    }
    address.host = lower(host);
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
