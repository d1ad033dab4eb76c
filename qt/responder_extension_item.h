#pragma once
// Remote-control extensions written in QML: handles the agent's touches and keys for items whose
// QML type name is `viewClass`, before the library's own behaviour.
//
//   import Halvora
//   ResponderExtension {
//       viewClass: "CartCard"
//       // Each function is optional; returning true means handled: the call goes no further.
//       function touchEnded(item, x, y, touchCount) { item.open(); return true }
//       function keyDown(item, key, code) { return false }
//   }
//
// touchBegan, touchMoved and touchEnded take the item, the touch's point in the item's own
// coordinates and how many agent pointers are down. Registering replaces any earlier extension
// for the same type name; one that is destroyed stops handling anything.

#include <QObject>
#include <QPointer>
#include <QString>
#include <QtQml/qqml.h>

namespace halvora::qt {

class ResponderExtensionItem : public QObject, public QQmlParserStatus {
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    Q_PROPERTY(QString viewClass READ viewClass WRITE setViewClass NOTIFY viewClassChanged)
    QML_NAMED_ELEMENT(ResponderExtension)

public:
    using QObject::QObject;

    QString viewClass() const { return viewClass_; }
    void setViewClass(const QString& viewClass);

    void classBegin() override {}
    void componentComplete() override;

Q_SIGNALS:
    void viewClassChanged();

private:
    void registerNow();

    QString viewClass_;
    bool complete_ = false;
};

}  // namespace halvora::qt
