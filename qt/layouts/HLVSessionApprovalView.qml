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
        spacing: 16

        Label {
            objectName: "agentLabel"
            Layout.fillWidth: true
            // The agent's name comes from the service: never read as markup.
            textFormat: Text.PlainText
            text: qsTr("A support agent has joined")
            font.pixelSize: 24
            font.bold: true
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            Accessible.role: Accessible.Heading
        }

        Label {
            Layout.fillWidth: true
            Layout.bottomMargin: 12
            text: qsTr("Allow them to see this application's screen? Views marked private are hidden from them. You can end sharing at any time from the red banner.")
            font.pixelSize: 16
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            lineHeight: 1.15
        }

        // Stacked full-width buttons read the same on phones and desktops and
        // put the choice that starts sharing first.
        Button {
            id: approve
            objectName: "approve"

            Layout.fillWidth: true
            Layout.maximumWidth: 320
            Layout.alignment: Qt.AlignHCenter
            highlighted: true
            text: qsTr("Allow")
            font.pixelSize: 16
            Accessible.name: qsTr("Allow the support agent to see the screen")
        }

        Button {
            id: decline
            objectName: "decline"

            Layout.fillWidth: true
            Layout.maximumWidth: 320
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("Decline")
            font.pixelSize: 16
            Accessible.name: qsTr("Decline screen sharing")
        }
    }
}
