#include "Previews/FocusPeaking.h"

#include <cstdlib>

#include <QtConcurrent/QtConcurrentRun>

namespace vantelor::FocusPeaking {

namespace {

QString noAnalysisMemory()
{
    return QStringLiteral("No se pudo reservar memoria para analizar el enfoque");
}

QString noOverlay()
{
    return QStringLiteral("No se pudo crear el resaltado de enfoque");
}

// Luma at the analysis size, one byte per pixel, rows packed (no padding).
QImage luminance(const QImage& image, QSize size)
{
    QImage scaled = image.size() == size ? image : image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (scaled.isNull())
        return {};
    return scaled.convertToFormat(QImage::Format_Grayscale8);
}

} // namespace

QSize analysisSize(QSize imageSize)
{
    const int longest = std::max(imageSize.width(), imageSize.height());
    const double scale = longest > 0 ? std::min(double(analysisLimit) / longest, 1.0) : 1.0;
    return QSize(std::max(3, int(scale * imageSize.width())), std::max(3, int(scale * imageSize.height())));
}

int threshold(double sensitivity)
{
    // NaN counts as the least sensitive setting.
    const double s = sensitivity >= 0 ? std::min(sensitivity, 1.0) : 0.0;
    return int((1.0 - s) * 500.0 + 60.0);
}

Result<FocusMask> calculate(const QImage& image, double sensitivity, const CancelCheck& cancelled)
{
    const QSize size = analysisSize(image.size());
    const int width = size.width(), height = size.height();
    const QImage grey = image.isNull() ? QImage() : luminance(image, size);
    if (grey.isNull())
        return WorkflowError::io(noAnalysisMemory());

    QImage overlay(width, height, QImage::Format_RGBA8888_Premultiplied);
    if (overlay.isNull())
        return WorkflowError::io(noOverlay());
    overlay.fill(Qt::transparent);

    const int limit = threshold(sensitivity);
    const qsizetype greyStride = grey.bytesPerLine();
    qint64 highlighted = 0;
    for (int y = 1; y < height - 1; ++y) {
        if (y % cancellationStride == 0 && cancelled && cancelled())
            return Cancelled();
        const uchar* above = grey.constScanLine(y - 1);
        const uchar* row = above + greyStride;
        const uchar* below = row + greyStride;
        auto* out = reinterpret_cast<quint32*>(overlay.scanLine(y));
        for (int x = 1; x < width - 1; ++x) {
            const int gx = above[x + 1] - above[x - 1] - below[x - 1] + below[x + 1] + 2 * (row[x + 1] - row[x - 1]);
            const int gy = below[x - 1] - above[x + 1] - above[x - 1] + below[x + 1] + 2 * (below[x] - above[x]);
            if (std::abs(gx) + std::abs(gy) >= limit) {
                out[x] = 0xDCDCDCDCu;  // 220 in all four bytes, whatever the byte order
                ++highlighted;
            }
        }
    }
    return FocusMask{overlay, highlighted};
}

QFuture<Result<FocusMask>> mask(const PreviewResult& preview, double sensitivity)
{
    return QtConcurrent::run([image = preview.image, sensitivity](QPromise<Result<FocusMask>>& promise) {
        Result<FocusMask> result = calculate(image, sensitivity, [&promise] { return promise.isCanceled(); });
        if (!result.ok() && isCancelled(result.failure()))
            return;
        promise.addResult(std::move(result));
    });
}

} // namespace vantelor::FocusPeaking
