#include "qt/halvora_attached.h"

#include <utility>

#include <algorithm>

#include <QCoreApplication>

#include "halvora/platform/log.h"
#include "qt/qml_type_name.h"

namespace halvora::qt {
namespace {

// Every attached object alive, on the GUI thread only (QML makes them there).
std::vector<HalvoraAttached*>& declarations() {
    static std::vector<HalvoraAttached*> all;
    return all;
}

std::function<void()>& onChange() {
    static std::function<void()> hook;
    return hook;
}
bool changePending = false;

}  // namespace

HalvoraAttached::HalvoraAttached(QObject* parent) : QObject(parent) { declarations().push_back(this); }

HalvoraAttached::~HalvoraAttached() { std::erase(declarations(), this); }

QQmlListProperty<QObject> HalvoraAttached::redactedItems() {
    return {this, nullptr, &HalvoraAttached::append, &HalvoraAttached::count, &HalvoraAttached::at,
            &HalvoraAttached::clear};
}

QQuickItem* HalvoraAttached::drawingItemOf(QObject* object) {
    if (auto* item = qobject_cast<QQuickItem*>(object)) return item;
    // A Popup draws through an item of its own, the parent of its content item.
    auto* content = object && object->inherits("QQuickPopup") ? object->property("contentItem").value<QQuickItem*>() : nullptr;
    return content ? content->parentItem() : nullptr;
}

std::vector<QQuickItem*> HalvoraAttached::liveRedactedItems() const {
    std::vector<QQuickItem*> live;
    for (const auto& object : items_) {
        if (QQuickItem* item = drawingItemOf(object.data())) live.push_back(item);
    }
    return live;
}

std::vector<QQuickItem*> HalvoraAttached::allRedactedItems() {
    std::vector<QQuickItem*> all;
    for (const HalvoraAttached* declaration : declarations()) {
        for (QQuickItem* item : declaration->liveRedactedItems()) {
            if (std::find(all.begin(), all.end(), item) == all.end()) all.push_back(item);
        }
    }
    return all;
}

void HalvoraAttached::setOnChange(std::function<void()> hook) { onChange() = std::move(hook); }

void HalvoraAttached::changed() {
    Q_EMIT redactedItemsChanged();
    if (!onChange() || changePending) return;
    // A binding clears the list and appends to it again: one call once it has done.
    changePending = true;
    QMetaObject::invokeMethod(QCoreApplication::instance(), [] { applyPendingChange(); }, Qt::QueuedConnection);
}

void HalvoraAttached::applyPendingChange() {
    if (!std::exchange(changePending, false)) return;
    if (onChange()) onChange()();
}

HalvoraAttached* HalvoraAttached::existingFor(const QObject* object) {
    return qobject_cast<HalvoraAttached*>(qmlAttachedPropertiesObject<HalvoraQmlType>(object, false));
}

void HalvoraAttached::append(QQmlListProperty<QObject>* list, QObject* object) {
    auto* self = static_cast<HalvoraAttached*>(list->object);
    if (object && !object->inherits("QQuickItem") && !object->inherits("QQuickPopup")) {
        // Kept in the list (QML reads back what it wrote), but nothing can be blanked for it.
        platform::log("Warning: Halvora.redactedItems lists a " + qmlTypeName(object) +
                      ", which is neither an Item nor a Popup; it cannot be kept out of frames");
    }
    self->items_.append(object);
    self->declared_ = true;
    self->changed();
}

qsizetype HalvoraAttached::count(QQmlListProperty<QObject>* list) {
    return static_cast<HalvoraAttached*>(list->object)->items_.size();
}

QObject* HalvoraAttached::at(QQmlListProperty<QObject>* list, qsizetype index) {
    return static_cast<HalvoraAttached*>(list->object)->items_.value(index).data();
}

void HalvoraAttached::clear(QQmlListProperty<QObject>* list) {
    auto* self = static_cast<HalvoraAttached*>(list->object);
    self->items_.clear();
    self->declared_ = true;
    self->changed();
}

}  // namespace halvora::qt
