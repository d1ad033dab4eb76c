import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvora

// The selected order: who ordered, where to, the card it was paid with (never readable by the
// agent) and notes. The caret waits in the customer field.
Pane {
    id: form
    property alias customer: customer
    property alias notes: notes
    Halvora.redactedItems: [card]

    function show(order) {
        customer.text = order.customer
        status.text = order.status + ", " + order.total
    }
    function focusFirstField() { customer.forceActiveFocus() }

    ColumnLayout {
        anchors.fill: parent
        spacing: 8
        Label { text: "Order details"; font.bold: true; font.pixelSize: 18 }
        Label { id: status; text: "No order selected"; color: "#555555" }
        Label { text: "Customer" }
        TextField { id: customer; Layout.fillWidth: true; text: "Ada Lovelace" }
        Label { text: "E-mail" }
        TextField { Layout.fillWidth: true; text: "ada@example.com" }
        Label { text: "Card" }
        TextField { id: card; Layout.fillWidth: true; text: "4242 4242 4242 4242"; readOnly: true }
        Label { text: "Notes" }
        TextArea {
            id: notes
            Layout.fillWidth: true
            Layout.preferredHeight: 160
            wrapMode: TextEdit.Wrap
            placeholderText: "Notes for the warehouse"
            onTextChanged: if (activeFocus) desk.say("notes " + text.length + " characters")
        }
        Button { text: "Save"; onClicked: desk.say("saved " + customer.text) }
        Item { Layout.fillHeight: true }
    }
}
