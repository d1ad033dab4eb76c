#include "qt/redaction_mask_item.h"

#include <QFont>
#include <QGuiApplication>
#include <QPainter>

namespace halvora::qt {

const QColor RedactionMaskItem::kFillColor{0x26, 0x26, 0x28};
const QColor RedactionMaskItem::kLabelColor{Qt::lightGray};

RedactionMaskItem::RedactionMaskItem(QRectF frame, QObject* owner) : labelRect_(0, 0, frame.width(), frame.height()) {
    setParent(owner);
    setPosition(frame.topLeft());
    setSize(frame.size());
    setOpaquePainting(true);
    setFillColor(kFillColor);
    // Masks only hide: touches reach the application's item beneath as before.
    setAcceptedMouseButtons(Qt::NoButton);
    connect(this, &QQuickItem::widthChanged, this, [this] { update(); });
    connect(this, &QQuickItem::heightChanged, this, [this] { update(); });
}

void RedactionMaskItem::paint(QPainter* painter) {
    QFont font = QGuiApplication::font();
    font.setPixelSize(kLabelPixelSize);
    painter->setFont(font);
    painter->setPen(kLabelColor);
    painter->drawText(labelRect_, Qt::AlignCenter, QString::fromLatin1(kLabel));
}

}  // namespace halvora::qt
