#include "overlay/laser.h"

namespace halvora {

std::shared_ptr<HLVLaser> HLVLaser::from(const Json& value) {
    if (!hasRecordType(value, "Laser")) return nullptr;
    auto laser = std::make_shared<HLVLaser>();
    laser->id = rawField(value, "id");
    laser->state = rawField(value, "state");
    if (auto position = pointField(value)) laser->position = *position;
    return laser;
}

}  // namespace halvora
