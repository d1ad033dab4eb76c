#pragma once
// The agent's touches over the screen: one translucent circle per touch the agent holds down. This
// holds the circles' state; a renderer draws dots() whenever the change callback fires.

#include <functional>
#include <vector>

#include "protocol/record_fields.h"
#include "base/json_fields.h"
#include "overlay/color.h"

namespace halvora {

struct HLVTouchDot {
    // The touch identifier as the agent gave it (null when it gave none).
    Json id;
    HLVRect frame;
    HLVColor color;
    HLVColor borderColor;
    double borderWidth = 1.0;
    // Half the width: the square is drawn as a circle.
    double cornerRadius = 0;
    // False once a second start for the same identifier took over: the circle stays on screen but
    // no longer moves or ends.
    bool tracked = true;
};

class HLVAgentTouchView {
public:
    static constexpr int kDefaultDotSize = 30;
    static constexpr HLVColor kDefaultColor{0.19607843f, 0.19607843f, 0.19607843f, 0.25f};
    static constexpr HLVColor kDefaultBorderColor{0.19607843f, 0.19607843f, 0.19607843f, 0.2f};

    explicit HLVAgentTouchView(HLVRect frame = {}) : frame_(frame) {}

    // The circle's square for a touch at `point`, centred with the size halved in whole points.
    HLVRect dotFrame(HLVPoint point) const;
    void start(HLVPoint point, const Json& id);
    // Moves the identifier's circle; nothing for an identifier without one.
    void move(HLVPoint point, const Json& id);
    // Removes the identifier's circle, if any.
    void end(HLVPoint point, const Json& id);

    HLVRect frame() const { return frame_; }
    // Every circle on screen, in drawing order (oldest at the bottom), untracked ones included.
    const std::vector<HLVTouchDot>& dots() const { return dots_; }
    // The circle that events for `id` move and end; none when the identifier is not down.
    const HLVTouchDot* dotFor(const Json& id) const;

    // Size and colours apply to circles created afterwards.
    int dotSize() const { return dotSize_; }
    void setDotSize(int size) { dotSize_ = size; }
    HLVColor color() const { return color_; }
    void setColor(HLVColor color) { color_ = color; }
    HLVColor borderColor() const { return borderColor_; }
    void setBorderColor(HLVColor color) { borderColor_ = color; }

    // Called whenever the circles change.
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

private:
    std::vector<HLVTouchDot>::iterator trackedDot(const Json& id);
    void changed();

    HLVRect frame_;
    std::vector<HLVTouchDot> dots_;
    int dotSize_ = kDefaultDotSize;
    HLVColor color_ = kDefaultColor;
    HLVColor borderColor_ = kDefaultBorderColor;
    std::function<void()> onChange_;
};

}  // namespace halvora
