#include "qt/screen_presentation.h"

#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlExpression>
#include <QQuickWindow>

#include "halvora/platform/log.h"
#include "qt/quick_view.h"

namespace halvora::qt {
namespace {

// Runs a std::function when a signal of another object fires (signals found by name).
class SignalAction final : public QObject {
    Q_OBJECT
public:
    SignalAction(QObject* sender, const char* signature, std::function<void()> action)
        : QObject(sender), action_(std::move(action)) {
        const int signal = sender->metaObject()->indexOfSignal(signature);
        if (signal < 0) return;
        QObject::connect(sender, sender->metaObject()->method(signal), this,
                         metaObject()->method(metaObject()->indexOfSlot("run()")));
    }

public Q_SLOTS:
    void run() {
        // A copy: the action may destroy its sender, and with it this object.
        auto action = action_;
        if (action) action();
    }

private:
    std::function<void()> action_;
};

// Keeps an item the size of whatever item it is a child of. Found again by its object name: the
// class has no meta-object of its own for findChild to tell it by.
class FillParent final : public QObject {
public:
    static constexpr const char* kName = "halvora-fill-parent";
    explicit FillParent(QQuickItem* item) : QObject(item), item_(item) {
        setObjectName(QLatin1String(kName));
        QObject::connect(item, &QQuickItem::parentChanged, this, [this] { follow(); });
        follow();
    }

private:
    void follow() {
        QObject::disconnect(width_);
        QObject::disconnect(height_);
        QQuickItem* parent = item_ ? item_->parentItem() : nullptr;
        if (!parent) return;
        width_ = QObject::connect(parent, &QQuickItem::widthChanged, this, [this] { fit(); });
        height_ = QObject::connect(parent, &QQuickItem::heightChanged, this, [this] { fit(); });
        fit();
    }
    void fit() {
        QQuickItem* parent = item_ ? item_->parentItem() : nullptr;
        if (!parent) return;
        item_->setPosition({0, 0});
        item_->setSize(parent->size());
    }

    QPointer<QQuickItem> item_;
    QMetaObject::Connection width_;
    QMetaObject::Connection height_;
};

// Keeps a C++ owner alive for as long as a QObject lives.
class OwnerHolder final : public QObject {
public:
    OwnerHolder(QObject* parent, std::shared_ptr<void> owner) : QObject(parent), owner_(std::move(owner)) {}

private:
    std::shared_ptr<void> owner_;
};

QObject* enclosingPopup(const QQuickItem* item) {
    for (const QQuickItem* at = item; at; at = at->parentItem()) {
        if (at->inherits("QQuickPopupItem") && at->parent() && at->parent()->inherits("QQuickPopup")) {
            return at->parent();
        }
    }
    return nullptr;
}

QQuickItem* enclosingStackView(QQuickItem* item) {
    for (QQuickItem* at = item ? item->parentItem() : nullptr; at; at = at->parentItem()) {
        if (at->inherits("QQuickStackView")) return at;
    }
    return nullptr;
}

// StackView's pop() takes JavaScript arguments, so it is called as script in the view's scope.
void evaluateOn(QQuickItem* item, const char* script) {
    QQmlContext* context = item ? qmlContext(item) : nullptr;
    if (!context) return;
    QQmlExpression expression(context, item, QString::fromLatin1(script));
    expression.evaluate();
    if (expression.hasError()) platform::log("Halvora: " + expression.error().toString().toStdString());
}

}  // namespace

// QuickView's presentation operations.

void QuickView::setHidden(bool hidden) {
    if (!item_) return;
    // Remembered, since an item's visibility also answers for its parents'.
    item_->setProperty("_halvoraHidden", hidden);
    item_->setVisible(!hidden);
}

bool QuickView::isHidden() const {
    if (!item_) return true;
    const QVariant hidden = item_->property("_halvoraHidden");
    return hidden.isValid() ? hidden.toBool() : !item_->isVisible();
}

void QuickView::setAlpha(double alpha) {
    if (item_) item_->setOpacity(alpha);
}

void QuickView::setText(const std::string& text) {
    if (item_) item_->setProperty("text", QString::fromStdString(text));
}

std::string QuickView::text() const { return item_ ? item_->property("text").toString().toStdString() : std::string(); }

void QuickView::setFillsSuperview() {
    if (item_ && !item_->findChild<QObject*>(QLatin1String(FillParent::kName), Qt::FindDirectChildrenOnly)) {
        new FillParent(item_.data());
    }
}

void QuickView::addTarget(platform::ControlEvent event, std::function<void()> action) {
    if (!item_) return;
    if (event == platform::ControlEvent::touchUpInside) {
        new SignalAction(item_.data(), "clicked()", std::move(action));
        return;
    }
    for (const char* signal : {"toggled()", "valueModified()", "moved()"}) {
        if (item_->metaObject()->indexOfSignal(signal) >= 0) {
            new SignalAction(item_.data(), signal, std::move(action));
            return;
        }
    }
}

QuickLayout::QuickLayout(QQuickItem* root) : root_(root) {}

QuickLayout::~QuickLayout() {
    if (root_) root_->deleteLater();
}

platform::ViewRef QuickLayout::view() const { return viewFor(root_.data()); }

platform::ViewRef QuickLayout::outlet(const std::string& name) const {
    if (!root_) return nullptr;
    const QString wanted = QString::fromStdString(name);
    if (root_->objectName() == wanted) return viewFor(root_.data());
    return viewFor(root_->findChild<QQuickItem*>(wanted));
}

bool QuickLayout::isBeingPresented() const { return enclosingPopup(root_.data()) != nullptr; }

void QuickLayout::dismiss(bool /*animated*/) {
    if (QObject* popup = enclosingPopup(root_.data())) QMetaObject::invokeMethod(popup, "close");
}

void QuickLayout::popNavigation(bool /*animated*/) { evaluateOn(enclosingStackView(root_.data()), "pop()"); }

void QuickLayout::popNavigationToRoot(bool /*animated*/) {
    evaluateOn(enclosingStackView(root_.data()), "pop(null)");
}

QQmlEngine* engineFor(QQuickWindow* window) {
    if (window) {
        if (QQmlEngine* engine = qmlEngine(window)) return engine;
        for (QQuickItem* child : window->contentItem()->childItems()) {
            if (QQmlEngine* engine = qmlEngine(child)) return engine;
        }
    }
    static QPointer<QQmlEngine> own;
    if (!own) own = new QQmlEngine(QCoreApplication::instance());
    return own.data();
}

std::shared_ptr<QuickLayout> loadQuickLayout(const std::string& name, QQuickWindow* window) {
    QQmlComponent component(engineFor(window), QUrl(QString::fromLatin1(kLayoutsUrl) + QString::fromStdString(name) + ".qml"));
    QObject* object = component.isReady() ? component.create() : nullptr;
    auto* item = qobject_cast<QQuickItem*>(object);
    if (!item) {
        delete object;
        platform::log("Halvora cannot build layout " + name + ": " + component.errorString().toStdString());
        return nullptr;
    }
    QQmlEngine::setObjectOwnership(item, QQmlEngine::CppOwnership);
    return std::make_shared<QuickLayout>(item);
}

bool presentInPopup(QQuickWindow* window, QQuickItem* content, std::shared_ptr<void> owner) {
    if (!window || !content) return false;
    QQmlComponent component(engineFor(window));
    // Phone-sized windows get the whole width; larger ones a phone-sized card in the middle. The
    // base URL is a local one: with any other the engine compiles asynchronously.
    component.setData(R"(import QtQuick
import QtQuick.Controls
Popup {
    modal: true
    focus: true
    padding: 0
    closePolicy: Popup.CloseOnEscape
    anchors.centerIn: parent
    width: parent ? Math.min(parent.width, 440) : 440
    height: parent ? Math.min(parent.height, 720) : 720
})",
                      QUrl(QStringLiteral("qrc:/halvora/SessionPopup.qml")));
    QObject* popup = component.create();
    if (!popup) {
        platform::log("Halvora cannot present: " + component.errorString().toStdString());
        return false;
    }
    QQmlEngine::setObjectOwnership(popup, QQmlEngine::CppOwnership);
    popup->setParent(window->contentItem());
    popup->setProperty("parent", QVariant::fromValue(window->contentItem()));
    auto* area = popup->property("contentItem").value<QQuickItem*>();
    if (!area) {
        delete popup;
        return false;
    }
    content->setParentItem(area);
    viewFor(content)->setFillsSuperview();
    new OwnerHolder(popup, std::move(owner));
    QPointer<QObject> guard(popup);
    new SignalAction(popup, "closed()", [guard] {
        if (guard) guard->deleteLater();
    });
    // Content that offers its own way out (a browser page's close button).
    new SignalAction(content, "closeRequested()", [guard] {
        if (guard) QMetaObject::invokeMethod(guard.data(), "close");
    });
    QMetaObject::invokeMethod(popup, "open");
    return true;
}

}  // namespace halvora::qt

#include "screen_presentation.moc"
