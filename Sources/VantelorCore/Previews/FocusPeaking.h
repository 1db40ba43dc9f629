#pragma once

#include <QFuture>
#include <QImage>
#include <QSize>

#include "Previews/FocusMask.h"
#include "Previews/PreviewResult.h"
#include "Support/Result.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// Focus peaking: marks the pixels where a 3×3 Sobel operator finds strong contrast, after the
// image is reduced to at most 2,560 pixels on its longer side and turned into luma. Sensitivity
// runs from 0 (only the hardest edges) to 1 (most edges). Owns no state; every call has its
// own buffers, so any number may run at once on any threads.
namespace FocusPeaking {

constexpr int analysisLimit = 2560;
// Rows between two looks at the cancellation flag.
constexpr int cancellationStride = 32;

// The mask of a preview, computed on Qt's global thread pool. Cancelling the future stops the
// computation at its next look and ends the future as cancelled.
QFuture<Result<FocusMask>> mask(const PreviewResult& preview, double sensitivity);

// The computation itself, on the caller's thread. Fails with Cancelled when cancelled() turns
// true, or with a WorkflowError when the buffers cannot be had.
Result<FocusMask> calculate(const QImage& image, double sensitivity, const CancelCheck& cancelled = {});

// The size the analysis runs at: scaled down to 2,560 pixels on the longer side, at least 3 × 3.
QSize analysisSize(QSize imageSize);
// The Sobel L1 magnitude a pixel needs: 60 at sensitivity 1, 560 at 0.
int threshold(double sensitivity);

} // namespace FocusPeaking
} // namespace vantelor
