import QtQuick
import QtQuick.Controls

// No title on purpose: the agent's console shows this screen by its type name only.
Page {
    id: page
    Column {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12
        Label { text: "Profile"; font.pixelSize: 22 }
        Label { text: "Signed in as demo@halvora.io" }
        Button {
            text: "Back"
            onClicked: page.StackView.view.pop()
        }
    }
}
