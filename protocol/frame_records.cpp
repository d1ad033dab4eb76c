#include "protocol/frame_records.h"

#include <utility>

#include "protocol/iso_string.h"

namespace halvora {

Json frameRecord(std::uint64_t id, std::vector<std::uint8_t> jpeg, std::chrono::system_clock::time_point when) {
    Json record = Json::object();
    record["type"] = "Frame";
    record["id"] = id;
    record["image"] = Json::binary(std::move(jpeg));
    record["timestamp"] = hlv_ISOString(when);
    record["mime_type"] = "image/jpeg";
    return record;
}

Json screenRecord(const std::string& className, const std::optional<std::string>& title,
                  std::chrono::system_clock::time_point when) {
    Json record = Json::object();
    record["type"] = "Screen";
    record["class"] = className;
    record["title"] = NotNil(title);
    record["timestamp"] = hlv_ISOString(when);
    return record;
}

}  // namespace halvora
