#include "qt/key_mapping.h"

#include <QList>

#include <array>
#include <string_view>

namespace halvora::qt {
namespace {

struct NamedKey {
    std::string_view name;
    Qt::Key key;
};

// The named keys a support agent uses, by their "key" value; most codes of non-character keys
// have the same name.
constexpr std::array kNamedKeys{
    NamedKey{"Enter", Qt::Key_Return},         NamedKey{"Tab", Qt::Key_Tab},
    NamedKey{"Escape", Qt::Key_Escape},        NamedKey{"Backspace", Qt::Key_Backspace},
    NamedKey{"Delete", Qt::Key_Delete},        NamedKey{"Insert", Qt::Key_Insert},
    NamedKey{"Home", Qt::Key_Home},            NamedKey{"End", Qt::Key_End},
    NamedKey{"PageUp", Qt::Key_PageUp},        NamedKey{"PageDown", Qt::Key_PageDown},
    NamedKey{"ArrowLeft", Qt::Key_Left},       NamedKey{"ArrowRight", Qt::Key_Right},
    NamedKey{"ArrowUp", Qt::Key_Up},           NamedKey{"ArrowDown", Qt::Key_Down},
    NamedKey{"Shift", Qt::Key_Shift},          NamedKey{"Control", Qt::Key_Control},
    NamedKey{"Alt", Qt::Key_Alt},              NamedKey{"AltGraph", Qt::Key_AltGr},
    NamedKey{"Meta", Qt::Key_Meta},            NamedKey{"CapsLock", Qt::Key_CapsLock},
    NamedKey{"NumLock", Qt::Key_NumLock},      NamedKey{"ScrollLock", Qt::Key_ScrollLock},
    NamedKey{"ContextMenu", Qt::Key_Menu},     NamedKey{"Pause", Qt::Key_Pause},
    NamedKey{"PrintScreen", Qt::Key_Print},    NamedKey{"Help", Qt::Key_Help},
    NamedKey{"Clear", Qt::Key_Clear},          NamedKey{"Copy", Qt::Key_Copy},
    NamedKey{"Cut", Qt::Key_Cut},              NamedKey{"Paste", Qt::Key_Paste},
    NamedKey{"Space", Qt::Key_Space},          NamedKey{"NumpadEnter", Qt::Key_Enter},
};

int namedKey(std::string_view name) {
    for (const auto& named : kNamedKeys) {
        if (named.name == name) return named.key;
    }
    // F1 to F35.
    if (name.size() >= 2 && name.size() <= 3 && name[0] == 'F') {
        int number = 0;
        for (char c : name.substr(1)) {
            if (c < '0' || c > '9') return 0;
            number = number * 10 + (c - '0');
        }
        if (number >= 1 && number <= 35) return Qt::Key_F1 + number - 1;
    }
    return 0;
}

// "KeyA" and "Digit1" (and their keypad and modifier variants) name the key whatever the layout.
int physicalKey(std::string_view code) {
    if (code.size() == 4 && code.substr(0, 3) == "Key" && code[3] >= 'A' && code[3] <= 'Z') return code[3];
    if (code.size() == 6 && code.substr(0, 5) == "Digit" && code[5] >= '0' && code[5] <= '9') return code[5];
    if (code.size() == 7 && code.substr(0, 6) == "Numpad" && code[6] >= '0' && code[6] <= '9') return code[6];
    for (std::string_view side : {"Left", "Right"}) {
        if (code.size() > side.size() && code.substr(code.size() - side.size()) == side) {
            if (int key = namedKey(code.substr(0, code.size() - side.size()))) return key;
        }
    }
    return namedKey(code);
}

// The key a typed character is on: its upper case, as Qt numbers letter keys.
int characterKey(const QString& text) {
    const auto codePoints = text.toUcs4();
    if (codePoints.size() != 1) return Qt::Key_unknown;
    const char32_t upper = QChar::toUpper(codePoints.front());
    return upper == ' ' ? Qt::Key_Space : static_cast<int>(upper);
}

}  // namespace

Qt::KeyboardModifiers qtModifiers(platform::KeyModifiers modifiers) {
    Qt::KeyboardModifiers result;
    if (modifiers.control) result |= Qt::ControlModifier;
    if (modifiers.shift) result |= Qt::ShiftModifier;
    if (modifiers.alt) result |= Qt::AltModifier;
    if (modifiers.meta) result |= Qt::MetaModifier;
    return result;
}

QtKey qtKeyOf(const platform::KeyInput& input) {
    QtKey result;
    result.modifiers = qtModifiers(input.modifiers);
    if (std::string_view(input.code).substr(0, 6) == "Numpad") result.modifiers |= Qt::KeypadModifier;
    result.text = QString::fromStdString(input.text);

    const bool shortcut = input.modifiers.control || input.modifiers.meta;
    if (const int named = namedKey(input.key)) {
        result.key = input.code == "NumpadEnter" ? int(Qt::Key_Enter) : named;
    } else if (const int physical = shortcut || input.key.empty() ? physicalKey(input.code) : 0) {
        result.key = physical;
    } else if (!result.text.isEmpty()) {
        result.key = characterKey(result.text);
    }
    if (result.key == Qt::Key_Tab && input.modifiers.shift) result.key = Qt::Key_Backtab;
    // What a named key types, as a keyboard's would: Enter a return, Tab a tab.
    if (result.text.isEmpty() && !shortcut) {
        if (result.key == Qt::Key_Return || result.key == Qt::Key_Enter) result.text = QStringLiteral("\r");
        if (result.key == Qt::Key_Tab) result.text = QStringLiteral("\t");
        if (result.key == Qt::Key_Space) result.text = QStringLiteral(" ");
    }
    return result;
}

}  // namespace halvora::qt
