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

Json regionsFrameRecord(std::uint64_t id, std::uint64_t base, int width, int height,
                        std::vector<EncodedRegion> regions, std::chrono::system_clock::time_point when) {
    Json record = Json::object();
    record["type"] = "Frame";
    record["id"] = id;
    record["timestamp"] = hlv_ISOString(when);
    record["mime_type"] = "image/jpeg";
    record["width"] = width;
    record["height"] = height;
    record["base"] = base;
    Json list = Json::array();
    for (EncodedRegion& region : regions) {
        Json entry = Json::object();
        entry["x"] = region.x;
        entry["y"] = region.y;
        entry["width"] = region.width;
        entry["height"] = region.height;
        entry["image"] = Json::binary(std::move(region.jpeg));
        list.push_back(std::move(entry));
    }
    record["regions"] = std::move(list);
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
