#pragma once
// A colour for the overlay's renderer: RGBA components in 0...1, single precision.

namespace halvora {

struct HLVColor {
    float red = 0;
    float green = 0;
    float blue = 0;
    float alpha = 1;
    bool operator==(const HLVColor&) const = default;
};

}  // namespace halvora
