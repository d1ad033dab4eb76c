#pragma once
// The Qt Quick scene the frame benchmarks capture: an application screen at any size (a header,
// rows of text in columns as far as the window goes, a text field with a caret, a badge), and the
// capture as the frame loop makes it.

#include <QByteArray>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QString>

#include <array>
#include <cstdio>

#include "capture/screen_capture.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"

namespace halvora::bench {

struct WindowSize {
    int width, height;
};
inline constexpr std::array<WindowSize, 3> kSizes{{{390, 844}, {1280, 800}, {1920, 1080}}};

// The caret (objectName "caret") and the badge ("badge") are what the benchmarks change; the
// field's text is "name".
inline constexpr const char* kScene = R"(
import QtQuick
Window {
    width: %1; height: %2; visible: true; color: "white"
    Rectangle { width: parent.width; height: 56; color: "#f6f6f8"
        Text { x: 16; anchors.verticalCenter: parent.verticalCenter; text: "Orders"; font.bold: true; font.pixelSize: 18 } }
    Rectangle { x: 16; y: 64; width: Math.min(360, parent.width - 32); height: 32; border.color: "#9a9aa0"; radius: 4
        Text { objectName: "name"; x: 8; anchors.verticalCenter: parent.verticalCenter; text: "Ada Lovelace"; font.pixelSize: 14 }
        Rectangle { objectName: "caret"; x: 100; y: 7; width: 2; height: 18; color: "black" } }
    Column { y: 108; x: 16; width: parent.width - 32
        Repeater { model: Math.floor((%2 - 120) / 28)
            Rectangle { width: parent.width; height: 28; color: index % 2 ? "#f8f9fb" : "white"
                Row { x: 8; spacing: 24; anchors.verticalCenter: parent.verticalCenter
                    Repeater { model: Math.max(1, Math.floor((%1 - 32) / 180))
                        Text { width: 156; elide: Text.ElideRight; font.pixelSize: 13
                               text: ["#" + (10400 + index), "Grace Hopper", "2026-11-" + (10 + index), "Shipped", "€" + (index * 37 % 500) + ".90"][index % 5] } } } } } }
    Rectangle { objectName: "badge"; x: parent.width - 40; y: 16; width: 24; height: 24; radius: 12; color: "#2a6fdb" }
}
)";

inline QByteArray sceneQml(int width, int height) { return QString::fromUtf8(kScene).arg(width).arg(height).toUtf8(); }

inline QQuickWindow* loadWindow(const QByteArray& qml) {
    auto* engine = new QQmlEngine();
    QQmlComponent component(engine);
    component.setData(qml, QUrl());
    auto* created = qobject_cast<QQuickWindow*>(component.create());
    if (!created) std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
    return created;
}

// The key window, one pixel per point up to the default longest side, as a session captures it.
inline bool capture(platform::RgbaFrame& frame) {
    auto& application = platform::application();
    const auto key = application.keyWindow();
    if (!key) return false;
    return captureWindows(
        application, captureScale(key->bounds()),
        [](const platform::Window& window) { return Halvora::instance().shouldCaptureWindow(window); },
        application.sensitiveViews(), frame);
}

}  // namespace halvora::bench
