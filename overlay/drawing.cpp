#include "overlay/drawing.h"

namespace halvora {

std::shared_ptr<HLVDrawing> HLVDrawing::from(const Json& value) {
    if (!hasRecordType(value, "Drawing")) return nullptr;
    auto drawing = std::make_shared<HLVDrawing>();
    drawing->id = rawField(value, "id");
    drawing->image = rawField(value, "image");
    drawing->mime_type = rawField(value, "mime_type");
    auto x = floatField(value, "x");
    auto y = floatField(value, "y");
    auto height = floatField(value, "height");
    auto width = floatField(value, "width");
    if (x && y && height && width) drawing->bounds = {*x, *y, *width, *height};
    return drawing;
}

std::optional<std::vector<std::uint8_t>> HLVDrawing::imageBytes() const {
    if (!image || !image->is_binary()) return std::nullopt;
    const auto& bytes = image->get_binary();
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

}  // namespace halvora
