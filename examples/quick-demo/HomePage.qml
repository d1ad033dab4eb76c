import QtQuick
import QtQuick.Controls

// The product list with a search field; a row opens its product.
Page {
    id: page
    title: "Shop"
    header: ShopHeader {
        title: "Halvora Shop"
        canGoBack: false
        onSettingsRequested: stack.push("SettingsPage.qml")
    }

    readonly property var products: {
        const names = ["Blue mug", "Green plant", "Orange lamp", "Grey scarf", "Red kettle", "Oak stool",
                       "Wool socks", "Tea tin", "Desk clock", "Glass jar", "Linen towel", "Copper pan",
                       "Paper kite", "Felt hat", "Brass key", "Clay bowl", "Silk tie", "Cork board",
                       "Steel bottle", "Cotton bag"];
        const colours = ["#2a6fdb", "#2e9d57", "#e8891c", "#7d7d85", "#d23c3c"];
        return names.map((name, i) => ({ name: name, colour: colours[i % colours.length],
                                         price: (8 + i * 3.5).toFixed(2) }));
    }

    TextField {
        id: search
        x: 16; y: 12; width: parent.width - 32; height: 44
        placeholderText: "Search products"
        onTextChanged: shop.say("search " + text)
        // Enter opens the first match, as a shop's search does.
        onAccepted: if (list.count > 0) list.itemAtIndex(0).clicked()
    }

    ListView {
        id: list
        objectName: "products"
        y: 68; width: parent.width; height: parent.height - 68 - 60
        clip: true
        model: page.products.filter(p => p.name.toLowerCase().includes(search.text.toLowerCase()))
        delegate: ItemDelegate {
            width: ListView.view.width; height: 64
            contentItem: Row {
                spacing: 12
                Rectangle { width: 40; height: 40; radius: 6; color: modelData.colour; anchors.verticalCenter: parent.verticalCenter }
                Label { text: modelData.name; font.pixelSize: 16 * textScale; anchors.verticalCenter: parent.verticalCenter }
                Label { text: "€" + modelData.price; color: "#666666"; anchors.verticalCenter: parent.verticalCenter }
            }
            onClicked: {
                shop.say("open " + modelData.name)
                stack.push("ProductPage.qml", { product: modelData })
            }
        }
    }

    Row {
        x: 16; y: parent.height - 52; spacing: 18
        Button { width: 170; height: 44; text: "Checkout"; onClicked: stack.push("CheckoutPage.qml") }
        Button { width: 170; height: 44; text: "Profile"; onClicked: stack.push("ProfilePage.qml") }
    }
}
