#include "KeyboardLayout.h"

#include <memory>

#include <QGuiApplication>

#include "Input/KeyCodeTable.h"

#ifdef VANTELOR_HAVE_XKB_X11
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>
#endif

namespace vantelor {

namespace {

QString usText(quint32 nativeScanCode)
{
    const std::optional<quint16> code = KeyCodeTable::profileCodeForScanCode(nativeScanCode);
    return code ? KeyCodeTable::usText(*code) : QString();
}

#ifdef VANTELOR_HAVE_XKB_X11

struct XkbDeleter {
    void operator()(xkb_context* p) const { xkb_context_unref(p); }
    void operator()(xkb_keymap* p) const { xkb_keymap_unref(p); }
    void operator()(xkb_state* p) const { xkb_state_unref(p); }
};

// The server's keymap of the core keyboard and a state with no modifier and the first group:
// the key's unshifted character whatever is held or latched right now.
struct X11Layout {
    std::unique_ptr<xkb_context, XkbDeleter> context;
    std::unique_ptr<xkb_keymap, XkbDeleter> keymap;
    std::unique_ptr<xkb_state, XkbDeleter> state;
    bool tried = false;

    xkb_state* load()
    {
        if (tried)
            return state.get();
        tried = true;
        auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
        if (!x11 || !x11->connection())
            return nullptr;
        xcb_connection_t* connection = x11->connection();
        if (!xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                         XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr))
            return nullptr;
        const int32_t device = xkb_x11_get_core_keyboard_device_id(connection);
        if (device < 0)
            return nullptr;
        context.reset(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
        if (!context)
            return nullptr;
        keymap.reset(xkb_x11_keymap_new_from_device(context.get(), connection, device, XKB_KEYMAP_COMPILE_NO_FLAGS));
        if (!keymap)
            return nullptr;
        state.reset(xkb_state_new(keymap.get()));
        return state.get();
    }
};

X11Layout& x11Layout()
{
    static X11Layout layout;
    return layout;
}

#endif

} // namespace

QString KeyboardLayout::unshiftedText(quint32 nativeScanCode)
{
#ifdef VANTELOR_HAVE_XKB_X11
    if (xkb_state* state = x11Layout().load()) {
        // X11 key codes are what Qt reports as the native scan code.
        char buffer[16] = {};
        const int length = xkb_state_key_get_utf8(state, nativeScanCode, buffer, sizeof buffer);
        if (length > 0 && size_t(length) < sizeof buffer)
            return QString::fromUtf8(buffer, length);
        return {};
    }
#endif
    return usText(nativeScanCode);
}

void KeyboardLayout::layoutChanged()
{
#ifdef VANTELOR_HAVE_XKB_X11
    x11Layout() = X11Layout();
#endif
}

} // namespace vantelor
