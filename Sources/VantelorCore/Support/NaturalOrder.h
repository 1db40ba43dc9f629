#pragma once

#include <QCollator>

namespace vantelor {

// The order a file browser uses for names: case-insensitive, digits by value, accents in their
// letter's place. One collator per thread, because QCollator cannot be shared between threads;
// the locale is explicit because under the C locale a default collator ignores numeric mode.
QCollator& naturalCollator();

} // namespace vantelor
