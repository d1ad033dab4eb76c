#include "qt/halvora_attached.h"

namespace halvora::qt {

QQmlListProperty<QQuickItem> HalvoraAttached::redactedItems() {
    return {this, nullptr, &HalvoraAttached::append, &HalvoraAttached::count, &HalvoraAttached::at,
            &HalvoraAttached::clear};
}

std::vector<QQuickItem*> HalvoraAttached::liveRedactedItems() const {
    std::vector<QQuickItem*> live;
    for (const auto& item : items_)
        if (item) live.push_back(item.data());
    return live;
}

HalvoraAttached* HalvoraAttached::existingFor(const QObject* object) {
    return qobject_cast<HalvoraAttached*>(qmlAttachedPropertiesObject<HalvoraQmlType>(object, false));
}

void HalvoraAttached::append(QQmlListProperty<QQuickItem>* list, QQuickItem* item) {
    auto* self = static_cast<HalvoraAttached*>(list->object);
    self->items_.append(item);
    self->declared_ = true;
    Q_EMIT self->redactedItemsChanged();
}

qsizetype HalvoraAttached::count(QQmlListProperty<QQuickItem>* list) {
    return static_cast<HalvoraAttached*>(list->object)->items_.size();
}

QQuickItem* HalvoraAttached::at(QQmlListProperty<QQuickItem>* list, qsizetype index) {
    return static_cast<HalvoraAttached*>(list->object)->items_.value(index).data();
}

void HalvoraAttached::clear(QQmlListProperty<QQuickItem>* list) {
    auto* self = static_cast<HalvoraAttached*>(list->object);
    self->items_.clear();
    self->declared_ = true;
    Q_EMIT self->redactedItemsChanged();
}

}  // namespace halvora::qt
