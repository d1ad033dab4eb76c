#pragma once
// The mask the library lays over a sensitive item while a session is active: opaque dark grey with
// "REDACTED" in light grey. Opaque rather than blurred: the software scene graph has no blur, and an
// opaque fill guarantees that nothing of the item beneath can be read in a frame.

#include <QQuickPaintedItem>
#include <QRectF>

namespace halvora::qt {

class RedactionMaskItem final : public QQuickPaintedItem {
    Q_OBJECT

public:
    static constexpr const char* kLabel = "REDACTED";
    static constexpr int kLabelPixelSize = 14;
    static const QColor kFillColor;
    static const QColor kLabelColor;

    // `frame` in the coordinates of the item it will be added to. The label stays centred in this
    // first rectangle (in the mask's own coordinates) whatever later happens to the mask's frame.
    explicit RedactionMaskItem(QRectF frame, QObject* owner = nullptr);

    QRectF labelRect() const { return labelRect_; }
    void paint(QPainter* painter) override;

private:
    QRectF labelRect_;
};

}  // namespace halvora::qt
