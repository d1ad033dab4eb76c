#include "qt/responder_extension_item.h"

#include <QQuickItem>

#include "halvora/halvora.h"
#include "qt/quick_view.h"

namespace halvora::qt {
namespace {

// Calls the QML object's function `name`, when it has one, and reads its answer as handled or not.
bool callIfDefined(QObject* object, const char* name, const QVariantList& arguments) {
    if (!object) return false;
    QByteArray signature = QByteArray(name) + "(";
    for (qsizetype i = 0; i < arguments.size(); ++i) signature += i ? ",QVariant" : "QVariant";
    signature += ")";
    const int index = object->metaObject()->indexOfMethod(signature.constData());
    if (index < 0) return false;
    QVariant answer;
    const QMetaMethod method = object->metaObject()->method(index);
    bool called = false;
    switch (arguments.size()) {
    case 3:
        called = method.invoke(object, Qt::DirectConnection, Q_RETURN_ARG(QVariant, answer), Q_ARG(QVariant, arguments[0]),
                               Q_ARG(QVariant, arguments[1]), Q_ARG(QVariant, arguments[2]));
        break;
    case 4:
        called = method.invoke(object, Qt::DirectConnection, Q_RETURN_ARG(QVariant, answer), Q_ARG(QVariant, arguments[0]),
                               Q_ARG(QVariant, arguments[1]), Q_ARG(QVariant, arguments[2]), Q_ARG(QVariant, arguments[3]));
        break;
    default:
        break;
    }
    return called && answer.toBool();
}

class QmlResponderExtension final : public HLVResponderExtension {
public:
    explicit QmlResponderExtension(QObject* handler) : handler_(handler) {}

    bool halvoraTouchesBegan(const HLVTouches& touches, const HLVTouchEvent&, const platform::ViewRef& view) override {
        return touch("touchBegan", touches, view);
    }
    bool halvoraTouchesMoved(const HLVTouches& touches, const HLVTouchEvent&, const platform::ViewRef& view) override {
        return touch("touchMoved", touches, view);
    }
    bool halvoraTouchesEnded(const HLVTouches& touches, const HLVTouchEvent&, const platform::ViewRef& view) override {
        return touch("touchEnded", touches, view);
    }
    bool halvoraKeyDown(const HLVKeyPress& keyPress, const platform::ViewRef& view) override {
        QQuickItem* item = itemOf(view);
        if (!item) return false;
        auto text = [](const std::optional<Json>& value) {
            return value && value->is_string() ? QString::fromStdString(value->get<std::string>()) : QString();
        };
        return callIfDefined(handler_, "keyDown",
                             {QVariant::fromValue(item), text(keyPress.key), text(keyPress.code)});
    }

private:
    bool touch(const char* name, const HLVTouches& touches, const platform::ViewRef& view) {
        QQuickItem* item = itemOf(view);
        if (!item || touches.empty()) return false;
        const platform::Point local = view->convertFromWindow(touches.front()->position());
        return callIfDefined(handler_, name,
                             {QVariant::fromValue(item), local.x, local.y, static_cast<int>(touches.size())});
    }

    QPointer<QObject> handler_;
};

}  // namespace

void ResponderExtensionItem::setViewClass(const QString& viewClass) {
    if (viewClass == viewClass_) return;
    viewClass_ = viewClass;
    Q_EMIT viewClassChanged();
    if (complete_) registerNow();
}

void ResponderExtensionItem::componentComplete() {
    complete_ = true;
    registerNow();
}

void ResponderExtensionItem::registerNow() {
    if (viewClass_.isEmpty()) return;
    Halvora::experimental_registerResponderExtension(viewClass_.toStdString(),
                                                     std::make_shared<QmlResponderExtension>(this));
}

}  // namespace halvora::qt
