#pragma once
// Real Qt Quick windows made from QML text, and the pixels the library's canvas holds.

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>

#include "halvora/platform/rgba_frame.h"

namespace halvora::qt::test {

// Creates the Window the QML describes, shows it and waits until it is drawn.
inline std::unique_ptr<QQuickWindow> showWindow(const QByteArray& qml) {
    static QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData(qml, QUrl("qrc:/test.qml"));
    std::unique_ptr<QObject> object(component.create());
    if (!object) ADD_FAILURE() << component.errorString().toStdString();
    auto* window = qobject_cast<QQuickWindow*>(object.get());
    if (!window) return nullptr;
    object.release();
    window->show();
    window->requestActivate();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window));
    return std::unique_ptr<QQuickWindow>(window);
}

// Searches the item tree, so delegates that views made are found too.
inline QQuickItem* findItem(QQuickItem* root, const QString& name) {
    if (root->objectName() == name) return root;
    for (QQuickItem* item : root->childItems())
        if (QQuickItem* found = findItem(item, name)) return found;
    return nullptr;
}

inline QQuickItem* child(QQuickWindow* window, const char* name) {
    QQuickItem* item = findItem(window->contentItem(), QString::fromLatin1(name));
    if (!item) item = window->findChild<QQuickItem*>(name);  // items that are not shown
    if (!item) ADD_FAILURE() << "no item named " << name;
    return item;
}

// Red, green, blue, alpha at one pixel of the canvas.
inline std::array<int, 4> pixel(const platform::RgbaFrame& canvas, int x, int y) {
    const std::uint8_t* p = canvas.row(y) + x * platform::RgbaFrame::kBytesPerPixel;
    return {p[0], p[1], p[2], p[3]};
}

// Waits for `condition` while the event loop runs; the deadline only stops a broken test.
template <typename Condition>
bool eventually(Condition condition) {
    return QTest::qWaitFor(condition, 10000);
}

}  // namespace halvora::qt::test
