import QtQuick
import QtQuick.Controls

// Frame shared by every session screen. C++ swaps the current screen in and
// out of `subview`; the badge, close button and footer stay put.
Item {
    id: root

    implicitWidth: 390
    implicitHeight: 640

    // The style's window background. The root stays a plain Item so that the screens C++ lays
    // over the frame are siblings of the close button, which is raised above them.
    Pane {
        id: background
        anchors.fill: parent
        padding: 0
    }

    // highlightedText is not always light (Basic pairs its blue highlight with
    // near-black text), so the badge picks whichever of white or near-black
    // stands out from the highlight colour.
    readonly property color badgeGlyph: contrastWithWhite(background.palette.highlight) >= 3 ? "white" : "#202020"

    function contrastWithWhite(c) {
        function channel(v) { return v <= 0.03928 ? v / 12.92 : Math.pow((v + 0.055) / 1.055, 2.4) }
        const l = 0.2126 * channel(c.r) + 0.7152 * channel(c.g) + 0.0722 * channel(c.b)
        return 1.05 / (l + 0.05)
    }

    // The badge is drawn rather than loaded so the library ships no image files
    // and the colours follow whatever style the host application uses.
    Item {
        id: agentIcon
        objectName: "agentIcon"

        readonly property real size: 64

        width: size
        height: size
        anchors.top: parent.top
        anchors.topMargin: 28
        anchors.horizontalCenter: parent.horizontalCenter

        Accessible.role: Accessible.Graphic
        Accessible.name: qsTr("Support agent")

        Rectangle {
            anchors.fill: parent
            radius: width / 2
            color: background.palette.highlight
        }

        // Headset: an arc for the band, two ear cups and a microphone boom.
        Item {
            id: band
            width: agentIcon.size * 0.56
            height: width / 2 + 2
            anchors.horizontalCenter: parent.horizontalCenter
            y: agentIcon.size * 0.20
            clip: true

            Rectangle {
                width: parent.width
                height: width
                radius: width / 2
                color: "transparent"
                border.width: 4
                border.color: root.badgeGlyph
            }
        }

        Rectangle {
            width: agentIcon.size * 0.15
            height: agentIcon.size * 0.26
            radius: width / 3
            color: root.badgeGlyph
            x: band.x - width / 2 + 2
            y: band.y + band.height - height / 3
        }

        Rectangle {
            width: agentIcon.size * 0.15
            height: agentIcon.size * 0.26
            radius: width / 3
            color: root.badgeGlyph
            x: band.x + band.width - width / 2 - 2
            y: band.y + band.height - height / 3
        }

        Rectangle {
            id: boom
            width: agentIcon.size * 0.22
            height: 3
            radius: 1.5
            color: root.badgeGlyph
            x: band.x + band.width - width - 1
            y: band.y + band.height + agentIcon.size * 0.15
        }

        Rectangle {
            width: 7
            height: 7
            radius: 3.5
            color: root.badgeGlyph
            x: boom.x - width / 2
            y: boom.y + boom.height / 2 - height / 2
        }
    }

    Item {
        id: subview
        objectName: "subview"

        anchors.top: agentIcon.bottom
        anchors.topMargin: 8
        anchors.bottom: poweredBy.top
        anchors.bottomMargin: 8
        anchors.left: parent.left
        anchors.right: parent.right
    }

    Button {
        id: poweredBy
        objectName: "poweredBy"

        flat: true
        text: qsTr("Powered by Halvora")
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 12
        anchors.horizontalCenter: parent.horizontalCenter

        Accessible.name: text
    }

    // Kept above whatever C++ lays over the frame (an error screen, for one),
    // so the user can always leave.
    ToolButton {
        id: close
        objectName: "close"

        z: 100
        text: "\u2715"
        font.pixelSize: 20
        anchors.top: parent.top
        anchors.right: parent.right
        anchors.margins: 8

        Accessible.name: qsTr("Close")
        ToolTip.visible: hovered
        ToolTip.delay: 600
        ToolTip.text: qsTr("Close")
    }
}
