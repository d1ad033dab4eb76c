import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Opaque on purpose: it is laid over the whole session flow.
Pane {
    id: root

    implicitWidth: 390
    implicitHeight: 640
    padding: 0

    readonly property color warning: "#c62828"

    ColumnLayout {
        width: Math.max(0, Math.min(parent.width - 48, 420))
        anchors.horizontalCenter: parent.horizontalCenter
        y: Math.max(0, (parent.height - implicitHeight) * 0.4)
        spacing: 20

        // Drawn, not loaded, so no image files ship with the library.
        Item {
            id: image
            objectName: "image"

            Layout.alignment: Qt.AlignHCenter
            implicitWidth: 72
            implicitHeight: 72
            Accessible.role: Accessible.Graphic
            Accessible.name: qsTr("Error")

            Rectangle {
                anchors.fill: parent
                radius: width / 2
                color: root.warning
            }
            Rectangle {
                width: 8
                height: parent.height * 0.38
                radius: 4
                color: "white"
                anchors.horizontalCenter: parent.horizontalCenter
                y: parent.height * 0.18
            }
            Rectangle {
                width: 9
                height: 9
                radius: 4.5
                color: "white"
                anchors.horizontalCenter: parent.horizontalCenter
                y: parent.height * 0.66
            }
        }

        Label {
            id: message
            objectName: "message"

            Layout.fillWidth: true
            text: qsTr("Something went wrong. Close this screen and try again.")
            font.pixelSize: 18
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
        }
    }
}
