import QtQuick
import QtQuick.Controls

// The bar across every screen's top: a way back (at home: a way to ask for help, which opens
// Halvora's session flow), the screen's name, and the cart.
ToolBar {
    id: bar
    property string title
    property bool canGoBack: true
    signal settingsRequested()
    height: 56
    ToolButton {
        x: 0; width: 90; height: parent.height
        visible: bar.canGoBack
        text: "‹ Back"
        onClicked: stack.pop()
    }
    ToolButton {
        objectName: "getHelp"
        x: 0; width: 90; height: parent.height
        visible: !bar.canGoBack
        text: "Get help"
        onClicked: stack.push(helpFlow)
    }
    Label {
        x: 96; width: 130; height: parent.height
        verticalAlignment: Text.AlignVCenter
        text: bar.title
        font.bold: true
        elide: Text.ElideRight
    }
    Label {
        x: 230; width: 70; height: parent.height
        verticalAlignment: Text.AlignVCenter
        text: "Cart: " + cartCount
    }
    ToolButton {
        x: 300; width: 90; height: parent.height
        visible: !bar.canGoBack
        text: "Settings"
        onClicked: bar.settingsRequested()
    }
}
