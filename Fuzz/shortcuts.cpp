// Profile files come from other computers and from hand editing: decoding, the rules and the
// file form must hold for any bytes. Whatever decodes must survive writing and reading back, and
// whatever passes the rules must still pass them once the defaults are restored.
#include <cstdint>
#include <cstdlib>

#include <QByteArray>

#include "Input/ShortcutProfile.h"

using namespace vantelor;

namespace {

void check(bool condition)
{
    if (!condition)
        abort();
}

bool sameIncludingDisplays(const ShortcutProfile& a, const ShortcutProfile& b)
{
    if (!(a == b))
        return false;
    for (qsizetype i = 0; i < a.bindings.size(); ++i)
        if (a.bindings[i].trigger.display != b.bindings[i].trigger.display)
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    const Result<ShortcutProfile> decoded = ShortcutProfile::fromJson(bytes);
    if (!decoded) {
        check(!decoded.message().isEmpty());
        return 0;
    }
    const Result<ShortcutProfile> again = ShortcutProfile::fromJson(decoded->toJson());
    check(again.ok() && sameIncludingDisplays(*again, *decoded));

    const Result<ShortcutProfile> valid = decoded->validated();
    if (!valid)
        return 0;
    ShortcutProfile imported = valid->preservingDefaults();
    // The defaults can push a full profile past the limit; that is the only way to fail here.
    const Result<ShortcutProfile> kept = imported.validated();
    check(kept.ok() || imported.bindings.size() > ShortcutProfile::maximumBindings);
    if (!kept)
        return 0;
    for (const ShortcutBinding& binding : decoded->bindings) {
        ShortcutProfile copy = imported;
        const Status bound = copy.bind(binding.trigger, ActionID::labelPurple, true);
        check(bound.ok() ? copy.validated().ok() : copy == imported);
    }
    return 0;
}
