#pragma once
// Draws the library's overlay model (HLVHalvoraWindow) in a Qt Quick window: from bottom to top the
// agent's drawing, the laser dot and trail, the sharing banner and the agent's touch dots. It covers
// the window above everything else, yet takes only touches on the banner: contains() answers the
// model's hit test, and Qt Quick delivers pointer events only to items that contain the point.

#include <QImage>
#include <QQuickPaintedItem>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace halvora {
class HLVHalvoraWindow;
}

namespace halvora::qt {

class OverlayItem final : public QQuickPaintedItem {
    Q_OBJECT

public:
    // Above anything an application stacks (Qt Quick Controls' popup layer sits at about 1e6).
    static constexpr qreal kZ = 1e9;

    explicit OverlayItem(QQuickItem* parent = nullptr);
    ~OverlayItem() override;

    // The model to draw; its change callbacks are taken over (and released again on destruction).
    void setModel(HLVHalvoraWindow* model);
    HLVHalvoraWindow* model() const { return model_; }

    bool contains(const QPointF& point) const override;
    void paint(QPainter* painter) override;

    // Leaves the overlay out of its window's renders while set: the capture sets it around
    // QQuickWindow::grabWindow(), which renders without presenting. The overlay's scene-graph node
    // is made transparent on the render thread just for those renders and restored right after,
    // so the window on screen is neither rendered again nor ever shown without the banner.
    void setLeftOutOfRenders(bool leftOut);

    // Shared with the render thread and with the overlay's node, which may outlive the item.
    struct RenderState;

protected:
    QSGNode* updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* data) override;
    void itemChange(ItemChange change, const ItemChangeData& value) override;

    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void touchEvent(QTouchEvent* event) override;

private:
    void releaseModel();
    void watchRenders(QQuickWindow* window);
    void paintDrawing(QPainter* painter);
    void paintLaser(QPainter* painter) const;
    void paintBanner(QPainter* painter) const;
    void paintTouches(QPainter* painter) const;

    std::shared_ptr<RenderState> render_;
    QMetaObject::Connection beforeSynchronizing_;
    QMetaObject::Connection beforeRendering_;
    QMetaObject::Connection afterRendering_;

    HLVHalvoraWindow* model_ = nullptr;
    // The decoded drawing, kept until the model holds other bytes.
    QImage drawing_;
    const void* drawingSource_ = nullptr;
    const std::uint8_t* drawingBytes_ = nullptr;
    std::size_t drawingSize_ = 0;
};

}  // namespace halvora::qt
