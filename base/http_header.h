#pragma once
// The one rule for header names and values the library puts on the wire (HTTP requests and the
// websocket upgrade). Both clients send what they are given byte for byte, so a CR or LF in a
// value would let a caller forge extra headers or a second request.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvora {

// An RFC 9110 token: what a header name or a method may be.
bool isHttpToken(std::string_view text);
// No control character but horizontal tab, and no DEL.
bool isHttpHeaderValue(std::string_view value);

// Why the headers cannot be sent ("invalid header name \"X Y\""); empty when they can.
std::string invalidHeader(const std::vector<std::pair<std::string, std::string>>& headers);

}  // namespace halvora
