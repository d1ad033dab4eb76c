import QtQuick
import QtQuick.Controls
import Halvora

ApplicationWindow {
    width: 390
    height: 844
    visible: true
    title: "Minimal"

    StackView {
        anchors.fill: parent
        initialItem: Page {
            title: "Account"
            // Masked on the device while a session is active; the agent never sees it.
            Halvora.redactedItems: [secret]

            Column {
                anchors.centerIn: parent
                spacing: 12
                Label { text: "Support can see this screen when you share it." }
                TextField { id: secret; placeholderText: "Card number" }
            }
        }
    }
}
