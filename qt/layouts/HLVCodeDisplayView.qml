import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Item {
    id: root

    implicitWidth: 390
    implicitHeight: 400

    ColumnLayout {
        id: column

        width: Math.max(0, Math.min(root.width - 48, 420))
        anchors.horizontalCenter: root.horizontalCenter
        // Slightly above centre, which reads as centred; pinned to the top when
        // the screen is too short.
        y: Math.max(0, (root.height - implicitHeight) * 0.4)
        spacing: 20

        Label {
            Layout.fillWidth: true
            text: qsTr("Get help")
            font.pixelSize: 26
            font.bold: true
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            Accessible.role: Accessible.Heading
        }

        Label {
            id: codeLabel
            objectName: "codeLabel"

            Layout.fillWidth: true
            Layout.topMargin: 4
            Layout.bottomMargin: 4
            text: "000-000"
            textFormat: Text.PlainText
            font.family: Qt.platform.os === "windows" ? "Consolas"
                       : Qt.platform.os === "osx" || Qt.platform.os === "ios" ? "Menlo"
                       : "monospace"
            font.pixelSize: 44
            font.letterSpacing: 4
            font.bold: true
            horizontalAlignment: Text.AlignHCenter
            // Shrinks instead of clipping on very narrow windows.
            fontSizeMode: Text.HorizontalFit
            minimumPixelSize: 24

            // Read digit by digit rather than as a large number.
            Accessible.name: qsTr("Code %1").arg(text.replace(/[^0-9A-Za-z]/g, "").split("").join(" "))
        }

        Label {
            id: instructionLabel
            objectName: "instructionLabel"

            Layout.fillWidth: true
            text: qsTr("Read this code to your support agent. They will use it to join.")
            font.pixelSize: 16
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
        }

        // Keeps its space when hidden so the code does not jump when C++
        // toggles it.
        Item {
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 8
            implicitWidth: 48
            implicitHeight: 48

            // One size for every style: their own defaults range from 20 to 64 px.
            BusyIndicator {
                id: working
                objectName: "working"

                anchors.fill: parent
                visible: true
                running: visible
                Accessible.name: qsTr("Waiting for your support agent")
            }
        }
    }
}
