#pragma once
// The server address of a SocketManager: scheme, host and port from ws://, wss://, http:// or
// https:// URLs. The URL's path, query and fragment are not used (Config::path names the endpoint).

#include <optional>
#include <string>
#include <string_view>

namespace halvora::sio::detail {

struct ServerAddress {
    bool secure = false;
    // Host name or IP address, without the brackets of an IPv6 literal.
    std::string host;
    std::string port;
    bool hostIsIpAddress = false;
};

// The address, or none with the reason in *error.
std::optional<ServerAddress> parseServerUrl(std::string_view url, std::string* error);

// Request target of the websocket upgrade: `path` with one trailing slash and the Engine.IO query;
// none when the path has characters a request line cannot carry (or a query or fragment).
std::optional<std::string> websocketTarget(std::string_view path);

}  // namespace halvora::sio::detail
