#pragma once
// The QML side of the module "Halvora": the attached property by which any object lists the items
// that must never reach the agent readable.
//
//   import Halvora
//   Page {
//       Halvora.redactedItems: [cardNumber, balance]
//   }
//
// Pages, Dialogs, Popups and plain Items may all declare; a Popup or Dialog may itself be listed
// (its whole visual item is then sensitive). Anything else listed is refused with a warning in the
// log. A Page that never sets it declares nothing (its screen's redactedViews() is none); an empty
// list declares that the screen has no sensitive items.

#include <QList>
#include <QObject>
#include <QPointer>
#include <QQmlListProperty>
#include <QQuickItem>
#include <QtQml/qqml.h>

#include <functional>
#include <vector>

namespace halvora::qt {

class HalvoraAttached : public QObject {
    Q_OBJECT
    Q_PROPERTY(QQmlListProperty<QObject> redactedItems READ redactedItems NOTIFY redactedItemsChanged)
    QML_ANONYMOUS

public:
    explicit HalvoraAttached(QObject* parent);
    ~HalvoraAttached() override;

    QQmlListProperty<QObject> redactedItems();
    // Whether the list was ever set (even to nothing).
    bool declaresRedactedItems() const { return declared_; }
    // The items the listed objects draw with, for those still alive.
    std::vector<QQuickItem*> liveRedactedItems() const;

    // The attached object of `object` when QML set one; null otherwise.
    static HalvoraAttached* existingFor(const QObject* object);
    // Every item declared sensitive by any live attached object, each once.
    static std::vector<QQuickItem*> allRedactedItems();
    // The item that draws `object`: itself for an Item, the popup's own item for a Popup or
    // Dialog; null for anything else.
    static QQuickItem* drawingItemOf(QObject* object);
    // Called once on the next turn of the event loop after any list changed, however many did.
    static void setOnChange(std::function<void()> hook);
    // Runs the hook now for declarations changed since it last ran (it runs on the next turn of
    // the event loop otherwise): a capture must not see the masks of a moment before, as when a
    // reused list row stopped declaring its field but still wears its mask.
    static void applyPendingChange();

Q_SIGNALS:
    void redactedItemsChanged();

private:
    static void append(QQmlListProperty<QObject>* list, QObject* object);
    static qsizetype count(QQmlListProperty<QObject>* list);
    static QObject* at(QQmlListProperty<QObject>* list, qsizetype index);
    static void clear(QQmlListProperty<QObject>* list);
    void changed();

    QList<QPointer<QObject>> items_;
    bool declared_ = false;
};

// The type QML reads the attached property through; it has no instances.
class HalvoraQmlType : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(Halvora)
    QML_UNCREATABLE("Halvora only provides attached properties")
    QML_ATTACHED(halvora::qt::HalvoraAttached)

public:
    static HalvoraAttached* qmlAttachedProperties(QObject* object) { return new HalvoraAttached(object); }
};

}  // namespace halvora::qt
