#include "Previews/FocusPeaking.h"

#include <cstdlib>
#include <cstring>

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

// The two inner loops, vectorised by GCC whatever the build's optimisation level (clang
// vectorises them at -O2 anyway).
#if defined(__GNUC__) && !defined(__clang__)
#define VANTELOR_VECTORIZE __attribute__((optimize("tree-vectorize")))
#else
#define VANTELOR_VECTORIZE
#endif

VANTELOR_VECTORIZE void lumaRow(const quint32* in, uchar* out, int width)
{
    for (int x = 0; x < width; ++x) {
        const quint32 p = in[x];
        out[x] = uchar((((p >> 16) & 0xFF) * 11 + ((p >> 8) & 0xFF) * 16 + (p & 0xFF) * 5) >> 5);
    }
}

VANTELOR_VECTORIZE int sobelRow(const uchar* above, const uchar* row, const uchar* below,
                                                         quint32* out, int width, int limit)
{
    int count = 0;
    for (int x = 1; x < width - 1; ++x) {
        const int gx = above[x + 1] - above[x - 1] - below[x - 1] + below[x + 1] + 2 * (row[x + 1] - row[x - 1]);
        const int gy = below[x - 1] - above[x + 1] - above[x - 1] + below[x + 1] + 2 * (below[x] - above[x]);
        const quint32 hit = quint32(std::abs(gx) + std::abs(gy) >= limit);
        out[x] = 0xDCDCDCDCu & (0u - hit);  // 220 in all four bytes, or fully transparent
        count += int(hit);
    }
    return count;
}

// Luma at the analysis size, one byte per pixel (Qt's qGray weights: 11 R + 16 G + 5 B over 32).
QImage luminance(const QImage& image, QSize size)
{
    QImage scaled = image.size() == size ? image : image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (scaled.format() != QImage::Format_RGB32 && scaled.format() != QImage::Format_ARGB32)
        scaled = scaled.convertToFormat(QImage::Format_RGB32);
    QImage grey(size, QImage::Format_Grayscale8);
    if (scaled.isNull() || grey.isNull())
        return {};
    for (int y = 0; y < size.height(); ++y)
        lumaRow(reinterpret_cast<const quint32*>(scaled.constScanLine(y)), grey.scanLine(y), size.width());
    return grey;
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
    // Every interior pixel is written below; only the border needs clearing first.
    memset(overlay.scanLine(0), 0, size_t(overlay.bytesPerLine()));
    memset(overlay.scanLine(height - 1), 0, size_t(overlay.bytesPerLine()));

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
        out[0] = 0;
        out[width - 1] = 0;
        const int count = sobelRow(above, row, below, out, width, limit);
        highlighted += count;
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
