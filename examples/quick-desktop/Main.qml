import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvora

// An order desk at a desktop size: a sidebar of sections, the orders table, the selected order's
// form with the caret in its first field, and a "New order" dialog.
ApplicationWindow {
    id: window
    width: 1280
    height: 800
    visible: true
    title: "Halvora Desk"

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            spacing: 12
            Label { text: "Halvora Desk"; font.bold: true; font.pixelSize: 16 }
            Label { text: "Orders"; color: "#555555" }
            Item { Layout.fillWidth: true }
            TextField {
                objectName: "search"
                placeholderText: "Search orders"
                Layout.preferredWidth: 260
                onTextEdited: desk.say("search " + text)
            }
            Button {
                id: newOrderButton
                objectName: "newOrder"
                text: "New order"
                onClicked: newOrder.open()
            }
            Button {
                objectName: "getHelp"
                text: "Get help"
                onClicked: help.open()
            }
        }
    }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        // Sections; only "Orders" has a page in this demo.
        Rectangle {
            Layout.preferredWidth: 200
            Layout.fillHeight: true
            color: "#f3f4f6"
            ListView {
                id: sections
                anchors.fill: parent
                anchors.topMargin: 8
                model: ["Dashboard", "Orders", "Customers", "Products", "Reports", "Settings"]
                currentIndex: 1
                delegate: ItemDelegate {
                    width: ListView.view.width
                    text: modelData
                    highlighted: ListView.isCurrentItem
                    onClicked: {
                        sections.currentIndex = index
                        desk.say("section " + modelData)
                    }
                }
            }
        }
        Rectangle { Layout.preferredWidth: 1; Layout.fillHeight: true; color: "#d0d3d8" }

        OrdersTable {
            id: table
            objectName: "orders"
            Layout.fillWidth: true
            Layout.fillHeight: true
            onPicked: (order) => form.show(order)
        }
        Rectangle { Layout.preferredWidth: 1; Layout.fillHeight: true; color: "#d0d3d8" }

        OrderForm {
            id: form
            Layout.preferredWidth: 420
            Layout.fillHeight: true
        }
    }

    Dialog {
        id: newOrder
        objectName: "newOrderDialog"
        title: "New order"
        modal: true
        anchors.centerIn: Overlay.overlay
        width: 480
        standardButtons: Dialog.Ok | Dialog.Cancel
        onOpened: desk.say("dialog opened")
        onClosed: desk.say("dialog closed")
        GridLayout {
            anchors.fill: parent
            columns: 2
            columnSpacing: 12
            rowSpacing: 8
            Label { text: "Customer" }
            TextField { Layout.fillWidth: true; placeholderText: "Name or e-mail" }
            Label { text: "Product" }
            ComboBox { Layout.fillWidth: true; model: ["Wool socks", "Blue mug", "Desk lamp", "Notebook"] }
            Label { text: "Quantity" }
            SpinBox { from: 1; to: 99; value: 1 }
            Label { text: "Deliver by" }
            TextField { Layout.fillWidth: true; text: "2026-12-04" }
        }
    }

    // Halvora's session flow in a popup: a code to read to the agent, the approval, the countdown,
    // then the management screen; a fresh flow each time the popup opens.
    Popup {
        id: help
        modal: true
        anchors.centerIn: Overlay.overlay
        width: 420
        height: 560
        Loader {
            anchors.fill: parent
            active: help.visible
            sourceComponent: SessionFlow {}
        }
    }

    // Where the scripts that drive the desk find its controls, in window points.
    function announce(name, item) {
        const centre = item.mapToItem(null, item.width / 2, item.height / 2)
        desk.say("place " + name + " " + Math.round(centre.x) + " " + Math.round(centre.y))
    }
    Component.onCompleted: Qt.callLater(() => {
        form.focusFirstField()
        announce("newOrder", newOrderButton)
        announce("table", table)
        announce("notes", form.notes)
        announce("customer", form.customer)
    })
}
