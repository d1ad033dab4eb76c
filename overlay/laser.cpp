#include "overlay/laser.h"

namespace halvora {

std::shared_ptr<HLVLaser> HLVLaser::from(const Json& value) {
    if (!hasRecordType(value, "Laser")) return nullptr;
    auto laser = std::make_shared<HLVLaser>();
    laser->id = rawField(value, "id");
    laser->state = rawField(value, "state");
    auto x = floatField(value, "x");
    auto y = floatField(value, "y");
    if (x && y) laser->position = {*x, *y};
    return laser;
}

}  // namespace halvora
