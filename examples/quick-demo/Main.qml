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
