#include "qt/qml_type_name.h"

#include <QMetaClassInfo>
#include <QMetaObject>
#include <QObject>

#include <cstring>
#include <string_view>

namespace halvora::qt {
namespace {

constexpr std::string_view kComposite = "_QMLTYPE_";
constexpr std::string_view kExtension = "_QML_";

// The "QML.Element" class info of this very class (not one it inherits).
const char* ownElementName(const QMetaObject* metaObject) {
    const int index = metaObject->indexOfClassInfo("QML.Element");
    if (index < metaObject->classInfoOffset()) return nullptr;
    return metaObject->classInfo(index).value();
}

}  // namespace

std::string qmlTypeName(const QMetaObject* metaObject) {
    for (const QMetaObject* type = metaObject; type; type = type->superClass()) {
        const std::string_view name = type->className();
        if (const auto at = name.rfind(kComposite); at != std::string_view::npos) return std::string(name.substr(0, at));
        if (name.rfind(kExtension) != std::string_view::npos) continue;  // described by the type it extends
        const char* element = ownElementName(type);
        if (element && std::strcmp(element, "auto") != 0 && std::strcmp(element, "anonymous") != 0) return element;
        return std::string(name);
    }
    return {};
}

std::string qmlTypeName(const QObject* object) { return object ? qmlTypeName(object->metaObject()) : std::string(); }

}  // namespace halvora::qt
