#pragma once

namespace vantelor {

// Prepares exiv2 once per process before any use from any thread: ISO BMFF (HEIC, CR3) support
// on, its XMP toolkit initialised for threads, and its warnings kept off the user's terminal.
void ensureExiv2Ready();

} // namespace vantelor
