import QtQuick
import QtQuick.Controls
import Halvora

// The card number and the balance never reach the agent: the screen lists them as sensitive, and
// while a session is active they are covered on the device itself.
Page {
    id: page
    title: "Checkout"
    Halvora.redactedItems: [cardNumber, balance]

    Column {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        Label { text: "Card number" }
        TextField {
            id: cardNumber
            width: parent.width
            text: "4242 4242 4242 4242"
            background: Rectangle { color: "#ff00cc" }
        }
        Rectangle {
            id: balance
            width: parent.width
            height: 64
            color: "#ff00cc"
            Label { anchors.centerIn: parent; text: "Balance €1,234.56"; font.pixelSize: 18 }
        }
        Button {
            text: "Back"
            onClicked: page.StackView.view.pop()
        }
    }
}
