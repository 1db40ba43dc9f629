#include "Support/Exiv2Setup.h"

#include <mutex>

#include <exiv2/exiv2.hpp>

namespace vantelor {

void ensureExiv2Ready()
{
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize();
#ifdef EXV_ENABLE_BMFF
        Exiv2::enableBMFF(true);
#endif
    });
}

} // namespace vantelor
