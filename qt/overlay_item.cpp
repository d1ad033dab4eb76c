#include "qt/overlay_item.h"

#include <QFont>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QRadialGradient>
#include <QQuickWindow>
#include <QSGOpacityNode>
#include <QTouchEvent>

#include <atomic>

#include "overlay/halvora_window.h"
#include "qt/input_delivery.h"
#include "qt/sharing_badge.h"

namespace halvora::qt {
namespace {

QColor toQColor(HLVColor c) { return QColor::fromRgbF(c.red, c.green, c.blue, c.alpha); }
QRectF toQRect(HLVRect r) { return {r.x, r.y, r.width, r.height}; }
QPointF toQPoint(HLVPoint p) { return {p.x, p.y}; }

}  // namespace

struct OverlayItem::RenderState {
    std::atomic<bool> leftOut{false};  // set on the GUI thread
    // The rest is the render thread's alone (the sync, the render signals and node deletion all
    // run there). Read at the sync, while the GUI thread waits, so that a frame synced before the
    // capture asked is still drawn with the overlay.
    bool leftOutOfThisRender = false;
    QSGOpacityNode* root = nullptr;
};

namespace {

// The overlay's own root node, above the painted texture: it forgets itself when the scene graph
// deletes it, which may happen after the item is gone.
class OverlayRootNode final : public QSGOpacityNode {
public:
    explicit OverlayRootNode(std::shared_ptr<OverlayItem::RenderState> state) : state_(std::move(state)) {}
    ~OverlayRootNode() override;

private:
    std::shared_ptr<OverlayItem::RenderState> state_;
};

}  // namespace

OverlayRootNode::~OverlayRootNode() {
    if (state_->root == this) state_->root = nullptr;
}

OverlayItem::OverlayItem(QQuickItem* parent) : QQuickPaintedItem(parent), render_(std::make_shared<RenderState>()) {
    setZ(kZ);
    setAcceptedMouseButtons(Qt::LeftButton);
    setAcceptTouchEvents(true);
    setAntialiasing(true);
    watchRenders(window());  // a parent given here set the window before itemChange() was ours
}

OverlayItem::~OverlayItem() {
    disconnect(beforeSynchronizing_);
    disconnect(beforeRendering_);
    disconnect(afterRendering_);
    releaseModel();
}

void OverlayItem::setLeftOutOfRenders(bool leftOut) { render_->leftOut = leftOut; }

QSGNode* OverlayItem::updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* data) {
    auto* root = static_cast<OverlayRootNode*>(oldNode);
    QSGNode* oldPainted = root ? root->firstChild() : nullptr;
    if (oldPainted) root->removeChildNode(oldPainted);
    QSGNode* painted = QQuickPaintedItem::updatePaintNode(oldPainted, data);
    if (!painted) {
        delete root;
        return nullptr;
    }
    if (!root) {
        root = new OverlayRootNode(render_);
        render_->root = root;
    }
    root->appendChildNode(painted);
    return root;
}

void OverlayItem::itemChange(ItemChange change, const ItemChangeData& value) {
    QQuickPaintedItem::itemChange(change, value);
    if (change == ItemSceneChange) watchRenders(value.window);
}

void OverlayItem::watchRenders(QQuickWindow* window) {
    disconnect(beforeSynchronizing_);
    disconnect(beforeRendering_);
    disconnect(afterRendering_);
    if (!window) return;
    // All three run on the render thread, for every frame and every grab.
    std::shared_ptr<RenderState> state = render_;
    beforeSynchronizing_ = connect(window, &QQuickWindow::beforeSynchronizing, window, [state] {
        state->leftOutOfThisRender = state->leftOut;
    }, Qt::DirectConnection);
    beforeRendering_ = connect(window, &QQuickWindow::beforeRendering, window, [state] {
        if (state->leftOutOfThisRender && state->root) state->root->setOpacity(0);
    }, Qt::DirectConnection);
    afterRendering_ = connect(window, &QQuickWindow::afterRendering, window, [state] {
        if (state->root && state->root->opacity() < 1) state->root->setOpacity(1);
    }, Qt::DirectConnection);
}

void OverlayItem::setModel(HLVHalvoraWindow* model) {
    releaseModel();
    model_ = model;
    if (!model_) return;
    QPointer<OverlayItem> self(this);
    auto repaint = [self] {
        if (self) self->update();
    };
    model_->setOnChange(repaint);
    model_->laserPointer().setOnChange(repaint);
    model_->agentTouches().setOnChange(repaint);
    update();
}

void OverlayItem::releaseModel() {
    if (!model_) return;
    model_->setOnChange(nullptr);
    model_->laserPointer().setOnChange(nullptr);
    model_->agentTouches().setOnChange(nullptr);
    model_ = nullptr;
}

bool OverlayItem::contains(const QPointF& point) const {
    return model_ && !model_->isHidden() && model_->hitTest({point.x(), point.y()});
}

// The banner is left out of the frames: the agent never sees it, so its pointer goes to what lies
// under it.
void OverlayItem::mousePressEvent(QMouseEvent* event) {
    if (contains(event->position()) && !QuickInputDelivery::isAgentDevice(event->pointingDevice())) event->accept();
    else event->ignore();
}

void OverlayItem::mouseReleaseEvent(QMouseEvent* event) {
    if (model_ && contains(event->position())) model_->statusBarTapped();
}

void OverlayItem::touchEvent(QTouchEvent* event) {
    if (QuickInputDelivery::isAgentDevice(event->pointingDevice())) return event->ignore();
    if (event->type() == QEvent::TouchEnd && model_ && !event->points().isEmpty() &&
        contains(event->points().first().position()))
        model_->statusBarTapped();
    event->accept();
}

void OverlayItem::paint(QPainter* painter) {
    if (!model_ || model_->isHidden()) return;
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    paintDrawing(painter);
    paintLaser(painter);
    paintBanner(painter);
    paintTouches(painter);
}

void OverlayItem::paintDrawing(QPainter* painter) {
    const auto& bytes = model_->annotationImage();
    if (bytes.empty()) return;
    // Decoded once per drawing: the model replaces its bytes only when the drawing changes or is
    // laid out again.
    const void* source = model_->latestDrawing().get();
    if (source != drawingSource_ || bytes.data() != drawingBytes_ || bytes.size() != drawingSize_) {
        drawing_ = QImage::fromData(bytes.data(), static_cast<int>(bytes.size()));
        drawingSource_ = source;
        drawingBytes_ = bytes.data();
        drawingSize_ = bytes.size();
    }
    if (!drawing_.isNull()) painter->drawImage(toQRect(model_->annotationFrame()), drawing_);
}

void OverlayItem::paintLaser(QPainter* painter) const {
    const HLVLaserPointerView& laser = model_->laserPointer();
    const QColor color = toQColor(laser.color());
    // The dot first: the trail is drawn above it.
    if (laser.isEnabled()) {
        const QPointF centre = toQPoint(laser.laserPosition());
        const qreal radius = laser.dotRadius();
        // The glow: the shadow colour fading out over the shadow radius around the dot.
        const qreal outer = radius + HLVLaserPointerView::kShadowRadius;
        QColor glow = toQColor(HLVLaserPointerView::kShadowColor);
        glow.setAlphaF(HLVLaserPointerView::kShadowOpacity);
        QColor clear = glow;
        clear.setAlphaF(0);
        QRadialGradient gradient(centre, outer);
        gradient.setColorAt(radius / outer, glow);
        gradient.setColorAt(1, clear);
        painter->setPen(Qt::NoPen);
        painter->setBrush(gradient);
        painter->drawEllipse(centre, outer, outer);
        painter->setBrush(color);
        painter->drawEllipse(centre, radius, radius);
    }
    const auto& points = laser.points();
    if (points.size() > 1) {
        QPainterPath trail(toQPoint(points.front()));
        for (std::size_t i = 1; i < points.size(); ++i) trail.lineTo(toQPoint(points[i]));
        painter->save();
        painter->setOpacity(laser.trailOpacity());
        painter->setPen(QPen(color, HLVLaserPointerView::kTrailLineWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter->setBrush(Qt::NoBrush);
        painter->drawPath(trail);
        painter->restore();
    }
}

// A red frame inside the window's edges, which takes no input, and the badge with the text, which
// takes the tap (see sharing_badge.h).
void OverlayItem::paintBanner(QPainter* painter) const {
    const QColor red = toQColor(HLVHalvoraWindow::kBannerColor);
    const qreal half = kSharingFrameWidth / 2;
    painter->setPen(QPen(red, kSharingFrameWidth));
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(QRectF(half, half, width() - kSharingFrameWidth, height() - kSharingFrameWidth));
    const QRectF banner = toQRect(model_->bannerFrame());
    if (banner.isEmpty()) return;
    painter->setPen(Qt::NoPen);
    painter->setBrush(red);
    painter->drawRoundedRect(banner, 4, 4);
    QFont font = QGuiApplication::font();
    font.setPixelSize(static_cast<int>(HLVHalvoraWindow::kBannerFontSize));
    painter->setFont(font);
    painter->setPen(toQColor(HLVHalvoraWindow::kBannerTextColor));
    painter->drawText(banner, Qt::AlignCenter, QString::fromUtf8(HLVHalvoraWindow::kBannerText));
}

void OverlayItem::paintTouches(QPainter* painter) const {
    for (const HLVTouchDot& dot : model_->agentTouches().dots()) {
        painter->setPen(QPen(toQColor(dot.borderColor), dot.borderWidth));
        painter->setBrush(toQColor(dot.color));
        painter->drawRoundedRect(toQRect(dot.frame), dot.cornerRadius, dot.cornerRadius);
    }
}

}  // namespace halvora::qt
