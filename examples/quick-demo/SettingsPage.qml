import QtQuick
import QtQuick.Controls

Page {
    id: page
    title: "Settings"
    header: ShopHeader { title: "Settings" }

    Switch {
        x: 16; y: 16; width: 240; height: 40
        text: "Order notifications"
        onToggled: shop.say("notifications " + (checked ? "on" : "off"))
    }
    Label { x: 16; y: 72; text: "Text size " + Math.round(textScale * 100) + " %" }
    Slider {
        x: 16; y: 96; width: parent.width - 32; height: 40
        from: 0.8; to: 1.6; value: textScale
        onMoved: {
            textScale = value
            shop.say("text size " + Math.round(value * 100))
        }
    }
    TabBar {
        id: theme
        x: 16; y: 152; width: parent.width - 32; height: 48
        TabButton { text: "Light" }
        TabButton { text: "Dark" }
        TabButton { text: "Auto" }
        onCurrentIndexChanged: shop.say("theme " + itemAt(currentIndex).text)
    }
}
