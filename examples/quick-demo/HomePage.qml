import QtQuick
import QtQuick.Controls

Page {
    id: page
    title: "Shop"

    header: ToolBar {
        Label { anchors.centerIn: parent; text: "Halvora Shop"; font.bold: true }
    }

    Column {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        Label {
            id: clock
            text: Qt.formatTime(new Date(), "hh:mm:ss")
            Timer { interval: 1000; running: true; repeat: true; onTriggered: clock.text = Qt.formatTime(new Date(), "hh:mm:ss") }
        }

        Repeater {
            model: [["Blue mug", "#2a6fdb", "12.00"], ["Green plant", "#2e9d57", "24.50"], ["Orange lamp", "#e8891c", "48.00"]]
            delegate: Rectangle {
                width: parent.width
                height: 72
                radius: 8
                color: "#f2f2f4"
                Row {
                    anchors.fill: parent
                    anchors.margins: 12
                    spacing: 12
                    Rectangle { width: 48; height: 48; radius: 6; color: modelData[1] }
                    Column {
                        Label { text: modelData[0]; font.pixelSize: 16 }
                        Label { text: "€" + modelData[2]; color: "#666666" }
                    }
                }
            }
        }

        Button {
            text: "Checkout"
            onClicked: page.StackView.view.push("CheckoutPage.qml")
        }
        Button {
            text: "Profile"
            onClicked: page.StackView.view.push("ProfilePage.qml")
        }
    }
}
