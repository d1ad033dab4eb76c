import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Item {
    id: root

    implicitWidth: 390
    implicitHeight: 400

    // The one colour not taken from the style: ending a session must read as
    // destructive whatever the host application's theme is.
    readonly property color destructive: "#c62828"

    ColumnLayout {
        width: Math.max(0, Math.min(root.width - 48, 420))
        anchors.horizontalCenter: root.horizontalCenter
        y: Math.max(0, (root.height - implicitHeight) * 0.4)
        spacing: 24

        Label {
            id: statusText
            objectName: "text"

            Layout.fillWidth: true
            text: qsTr("Your screen is being shared with a support agent.")
            font.pixelSize: 20
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
        }

        // Background and text are replaced, not just recoloured through the
        // palette: Material and Universal ignore palette.button.
        Button {
            id: end
            objectName: "end"

            Layout.fillWidth: true
            Layout.maximumWidth: 320
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("End session")
            font.pixelSize: 16
            font.bold: true
            Accessible.name: qsTr("End screen sharing session")

            contentItem: Label {
                text: end.text
                font: end.font
                color: "white"
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
                elide: Text.ElideRight
            }

            background: Rectangle {
                implicitWidth: 120
                implicitHeight: 44
                radius: 6
                color: end.down ? Qt.darker(root.destructive, 1.25)
                     : end.hovered ? Qt.lighter(root.destructive, 1.1)
                     : root.destructive
                opacity: end.enabled ? 1 : 0.4
                border.width: end.visualFocus ? 2 : 0
                border.color: end.palette.windowText
            }
        }
    }
}
