import QtQuick
import QtQuick.Controls

// One product: how many, and into the cart.
Page {
    id: page
    property var product: ({ name: "", colour: "#cccccc", price: "0" })
    title: product.name
    header: ShopHeader { title: page.product.name }

    Rectangle { x: 16; y: 16; width: 200; height: 200; radius: 12; color: page.product.colour }
    Label { x: 232; y: 16; text: "€" + page.product.price; font.pixelSize: 22 * textScale }
    SpinBox {
        id: quantity
        x: 16; y: 232; width: 160; height: 48
        from: 1; to: 9; value: 1
        onValueModified: shop.say("quantity " + value)
    }
    Button {
        x: 16; y: 296; width: parent.width - 32; height: 48
        text: "Add to cart"
        onClicked: {
            cartCount += quantity.value
            shop.say("added " + quantity.value + " x " + page.product.name + ", cart " + cartCount)
        }
    }
}
