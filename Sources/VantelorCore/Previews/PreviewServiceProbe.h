#pragma once

#include "Previews/PreviewService.h"

namespace vantelor {

// What tests and benchmarks look at inside a preview service: its cache, how many decodes ran,
// how many keys are being decoded, and a wait until every queue is empty. Any thread.
struct PreviewService::Probe {
    static const PreviewCache& cache(const PreviewService& service) { return service.m_cache; }
    static int decodeCount(const PreviewService& service) { return service.m_decodes.load(); }
    static int decodeLockCount(const PreviewService& service) { return service.decodeLockCount(); }
    static void waitForIdle(PreviewService& service) { service.waitForIdle(); }
};

} // namespace vantelor
