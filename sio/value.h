#pragma once
// Values carried by Socket.IO events: JSON with key order kept and binary attachments as JSON
// binary values (nlohmann::ordered_json::binary_t). A binary value anywhere in an event's items is
// sent as a binary attachment, never as text.

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace halvora::sio {

using Value = nlohmann::ordered_json;
using Binary = Value::binary_t;
// The argument list of one event.
using Items = std::vector<Value>;
// Header name and value, sent in this order on the websocket upgrade request.
using Headers = std::vector<std::pair<std::string, std::string>>;
// Runs a task somewhere (a UI thread's queue, a thread pool). Must not run it re-entrantly
// before returning if the caller holds locks; sio never calls it with a lock held.
using Executor = std::function<void(std::function<void()>)>;
using Seconds = std::chrono::duration<double>;

// Makes a binary value from bytes.
inline Value binary(std::vector<std::uint8_t> bytes) { return Value::binary(std::move(bytes)); }

}  // namespace halvora::sio
