#pragma once
// The QML side of the module "Halvora": the attached property by which a screen lists its
// sensitive items.
//
//   import Halvora
//   Page {
//       Halvora.redactedItems: [cardNumber, balance]
//   }
//
// A Page that never sets it declares nothing (its screen's redactedViews() is none); an empty list
// declares that the screen has no sensitive items.

#include <QList>
#include <QObject>
#include <QPointer>
#include <QQmlListProperty>
#include <QQuickItem>
#include <QtQml/qqml.h>

#include <vector>

namespace halvora::qt {

class HalvoraAttached : public QObject {
    Q_OBJECT
    Q_PROPERTY(QQmlListProperty<QQuickItem> redactedItems READ redactedItems NOTIFY redactedItemsChanged)
    QML_ANONYMOUS

public:
    explicit HalvoraAttached(QObject* parent) : QObject(parent) {}

    QQmlListProperty<QQuickItem> redactedItems();
    // Whether the list was ever set (even to nothing).
    bool declaresRedactedItems() const { return declared_; }
    // The listed items still alive.
    std::vector<QQuickItem*> liveRedactedItems() const;

    // The attached object of `object` when QML set one; null otherwise.
    static HalvoraAttached* existingFor(const QObject* object);

Q_SIGNALS:
    void redactedItemsChanged();

private:
    static void append(QQmlListProperty<QQuickItem>* list, QQuickItem* item);
    static qsizetype count(QQmlListProperty<QQuickItem>* list);
    static QQuickItem* at(QQmlListProperty<QQuickItem>* list, qsizetype index);
    static void clear(QQmlListProperty<QQuickItem>* list);

    QList<QPointer<QQuickItem>> items_;
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
