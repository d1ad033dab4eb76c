import QtQuick
import QtQuick.Controls
import Halvora

ApplicationWindow {
    id: window
    width: 390
    height: 844
    visible: true
    title: "Halvora Shop"

    property int cartCount: 0
    property real textScale: 1.0

    StackView {
        id: stack
        anchors.fill: parent
        initialItem: HomePage {}
    }

    // Halvora's session flow under the shop's own bar (its Back leaves the flow): a code to read to
    // the agent, the approval, the countdown; it leaves the stack by itself once the session starts.
    Component {
        id: helpFlow
        Page {
            title: "Help"
            header: ShopHeader { title: "Help" }
            SessionFlow { anchors.fill: parent }
        }
    }

    // The latency probe (--latency-probe MS): a strip across the bottom that takes the next of eight
    // colours every MS milliseconds, each change announced on standard output (bench/latency.mjs).
    Rectangle {
        id: probe
        property int change: 0
        readonly property var colours: ["#ff0000", "#00ff00", "#0000ff", "#ffff00", "#00ffff", "#ff00ff", "#ffffff", "#000000"]
        visible: demoProbeMs > 0
        z: 1000
        anchors { left: parent.left; right: parent.right; bottom: parent.bottom }
        height: 80
        color: colours[change % colours.length]
        Timer {
            interval: Math.max(50, demoProbeMs)
            running: demoProbeMs > 0
            repeat: true
            onTriggered: {
                probe.change += 1
                shop.mark(probe.change)
            }
        }
    }

    // The tour: checkout, back, profile, back, and again.
    property int tourStep: 0
    Timer {
        interval: Math.max(100, demoTourSeconds * 1000)
        running: demoTourSeconds > 0
        repeat: true
        onTriggered: {
            switch (window.tourStep % 4) {
            case 0: stack.push("CheckoutPage.qml"); break
            case 2: stack.push("ProfilePage.qml"); break
            default: stack.pop(); break
            }
            window.tourStep += 1
        }
    }
}
