import QtQuick
import QtQuick.Controls

// The orders, a row each: number, customer, date, status and total, under a fixed header.
Rectangle {
    id: table
    color: "white"
    signal picked(var order)

    readonly property var columns: [
        { title: "Order", width: 90 }, { title: "Customer", width: 200 }, { title: "Date", width: 110 },
        { title: "Status", width: 110 }, { title: "Total", width: 100 }
    ]
    readonly property var customers: ["Ada Lovelace", "Grace Hopper", "Alan Turing", "Edsger Dijkstra",
        "Barbara Liskov", "Donald Knuth", "Frances Allen", "Ken Thompson", "Margaret Hamilton", "John Backus"]
    readonly property var statuses: ["Paid", "Shipped", "Pending", "Refunded"]
    function order(index) {
        return {
            number: "#" + (10400 + index),
            customer: customers[(index * 7) % customers.length],
            date: "2026-" + String(1 + index % 12).padStart(2, "0") + "-" + String(1 + (index * 3) % 28).padStart(2, "0"),
            status: statuses[(index * 5) % statuses.length],
            total: "€" + ((index * 37) % 500 + 9) + "." + String((index * 13) % 100).padStart(2, "0")
        }
    }

    Rectangle {
        width: parent.width
        height: heading.height
        color: "#e9ebef"
    }
    Row {
        id: heading
        width: parent.width
        height: 36
        Repeater {
            model: table.columns
            Rectangle {
                width: modelData.width
                height: heading.height
                color: "#e9ebef"
                Label { x: 12; anchors.verticalCenter: parent.verticalCenter; text: modelData.title; font.bold: true }
            }
        }
    }

    ListView {
        id: rows
        anchors { top: heading.bottom; left: parent.left; right: parent.right; bottom: parent.bottom }
        clip: true
        model: 400
        ScrollBar.vertical: ScrollBar {}
        delegate: ItemDelegate {
            id: row
            required property int index
            readonly property var entry: table.order(index)
            width: ListView.view.width
            height: 32
            highlighted: ListView.isCurrentItem
            background: Rectangle { color: row.highlighted ? "#dbe7fb" : (row.index % 2 ? "#f8f9fb" : "white") }
            contentItem: Row {
                Repeater {
                    model: [row.entry.number, row.entry.customer, row.entry.date, row.entry.status, row.entry.total]
                    Label {
                        required property int index
                        required property string modelData
                        width: table.columns[index].width
                        leftPadding: 0
                        verticalAlignment: Text.AlignVCenter
                        height: row.height - row.topPadding - row.bottomPadding
                        text: modelData
                        elide: Text.ElideRight
                    }
                }
            }
            onClicked: {
                // The table takes the keyboard, as a table does once a row is picked.
                rows.forceActiveFocus()
                rows.currentIndex = index
                table.picked(entry)
                desk.say("open order " + entry.number)
            }
        }
        // Reports where a scroll came to rest.
        onContentYChanged: settled.restart()
        Timer {
            id: settled
            interval: 200
            onTriggered: desk.say("table top row " + rows.indexAt(0, rows.contentY))
        }
    }
}
