#pragma once

#include <QString>

namespace vantelor {

// What a key types with no modifier held on the user's keyboard layout, for showing a shortcut
// ("Ñ" on a Spanish keyboard where a US one has ";"). On X11 the layout comes from the server
// through xkbcommon; where no layout can be asked (Wayland with this Qt, builds without
// xkbcommon-x11) the US character of the key stands in. GUI thread only.
class KeyboardLayout {
public:
    static QString unshiftedText(quint32 nativeScanCode);
    // The user switched or changed layouts: the next lookup asks the server again.
    static void layoutChanged();
};

} // namespace vantelor
