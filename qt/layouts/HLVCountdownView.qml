import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Item {
    id: root

    implicitWidth: 390
    implicitHeight: 400

    ColumnLayout {
        width: Math.max(0, Math.min(root.width - 48, 420))
        anchors.horizontalCenter: root.horizontalCenter
        y: Math.max(0, (root.height - implicitHeight) * 0.4)
        spacing: 8

        Label {
            Layout.fillWidth: true
            text: qsTr("Sharing starts in")
            font.pixelSize: 22
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
        }

        Label {
            id: coutdown
            objectName: "coutdown"

            Layout.fillWidth: true
            text: "3"
            textFormat: Text.PlainText
            font.pixelSize: 112
            font.bold: true
            color: palette.highlight
            horizontalAlignment: Text.AlignHCenter
            Accessible.name: qsTr("Sharing starts in %1").arg(text)
        }
    }
}
