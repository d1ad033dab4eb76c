#pragma once
// What the agent reads as a Qt Quick object's class: its QML type name.

#include <string>

class QMetaObject;
class QObject;

namespace halvora::qt {

// "Rectangle" for a QQuickRectangle, "CheckoutPage" for an instance of CheckoutPage.qml (the
// engine's "_QMLTYPE_n" suffix stripped); an inline extension of a type ("Rectangle { property
// int n }", class "QQuickRectangle_QML_n") reads as the type it extends. A C++ class that QML does
// not name keeps its C++ class name.
std::string qmlTypeName(const QMetaObject* metaObject);
std::string qmlTypeName(const QObject* object);

}  // namespace halvora::qt
