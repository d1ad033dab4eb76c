#pragma once

#include <chrono>
#include <string>

namespace halvora {

// "yyyy-MM-ddTHH:mm:ss+hh:mm" in the device's current time zone (TZ), seconds precision,
// with "Z" instead of an offset at UTC. Example: 2019-03-07T14:05:09+02:00.
std::string hlv_ISOString(std::chrono::system_clock::time_point when);

}  // namespace halvora
