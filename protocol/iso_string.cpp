#include "protocol/iso_string.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace halvora {

std::string hlv_ISOString(std::chrono::system_clock::time_point when) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    tzset();  // pick up a changed TZ, as the platform's "current time zone" would
    std::tm local{};
    localtime_r(&seconds, &local);

    char text[40];
    std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    std::string result(text, length);

    long offset = local.tm_gmtoff;
    if (offset == 0) return result + "Z";
    char sign = offset < 0 ? '-' : '+';
    offset = std::labs(offset);
    char zone[24];
    std::snprintf(zone, sizeof zone, "%c%02ld:%02ld", sign, offset / 3600, (offset % 3600) / 60);
    return result + zone;
}

}  // namespace halvora
