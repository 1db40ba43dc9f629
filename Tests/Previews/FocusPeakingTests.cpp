#include <gtest/gtest.h>

#include "Previews/FocusPeaking.h"
#include "Support/ImageFixtures.h"

namespace vantelor::test {

namespace {

// Black left of column `edge`, grey of the given level (white by default) from it on.
QImage verticalStep(int width, int height, int edge, int level = 255)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, x < edge ? qRgb(0, 0, 0) : qRgb(level, level, level));
    return image;
}

} // namespace

TEST(FocusPeaking, AnalysisSizeAndThresholdStayWithinTheirRanges)
{
    const std::pair<QSize, QSize> sizes[] = {
        {{6000, 4000}, {2560, 1706}}, {{4000, 6000}, {1706, 2560}}, {{2560, 1706}, {2560, 1706}}, {{1, 1}, {3, 3}}, {{10000, 2}, {2560, 3}}};
    for (const auto& [image, analysis] : sizes)
        EXPECT_EQ(FocusPeaking::analysisSize(image), analysis) << image.width() << "×" << image.height();
    const std::pair<double, int> thresholds[] = {{1.0, 60}, {0.0, 560}, {0.5, 310}, {2.0, 60}, {-1.0, 560}, {0.999, 60}, {std::nan(""), 560}};
    for (const auto& [sensitivity, threshold] : thresholds)
        EXPECT_EQ(FocusPeaking::threshold(sensitivity), threshold) << sensitivity;
}

TEST(FocusPeaking, OnlyInteriorPixelsOnStrongEdgesAreHighlighted)
{
    // A checkerboard: every interior pixel is on a strong edge.
    QImage board(20, 12, QImage::Format_RGB32);
    for (int y = 0; y < board.height(); ++y)
        for (int x = 0; x < board.width(); ++x)
            board.setPixel(x, y, ((x / 2 + y / 2) % 2) ? qRgb(255, 255, 255) : qRgb(0, 0, 0));
    // highlighted: -1 for some. A step's |gx| is 4 × its level beside the edge (columns 19 and
    // 20), rows 1 … 28, at every sensitivity.
    const struct { const char* name; QImage image; double sensitivity; QSize size; qint64 highlighted; } rows[] = {
        {"grey", verticalStep(200, 100, 0, 160), 1.0, {200, 100}, 0},
        {"step, least sensitive", verticalStep(40, 30, 20), 0.0, {40, 30}, 2 * 28},
        {"step, halfway", verticalStep(40, 30, 20), 0.5, {40, 30}, 2 * 28},
        {"step of exactly the threshold, 4 × 15", verticalStep(40, 30, 20, 15), 1.0, {40, 30}, 2 * 28},
        {"step just below it", verticalStep(40, 30, 20, 14), 1.0, {40, 30}, 0},
        {"checkerboard", board, 1.0, {20, 12}, -1},
        {"one pixel, analysed at 3 × 3", verticalStep(1, 1, 0), 1.0, {3, 3}, 0},
        {"large, analysed at the limit", patternImage(6000, 4000), 0.5, {2560, 1706}, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto mask = FocusPeaking::calculate(row.image, row.sensitivity);
        ASSERT_TRUE(mask.ok());
        ASSERT_EQ(mask->image.size(), row.size);
        EXPECT_EQ(mask->image.format(), QImage::Format_RGBA8888_Premultiplied);
        qint64 marked = 0;
        for (int y = 0; y < row.size.height(); ++y)
            for (int x = 0; x < row.size.width(); ++x) {
                const QRgb pixel = mask->image.pixel(x, y);
                const bool border = x == 0 || y == 0 || x == row.size.width() - 1 || y == row.size.height() - 1;
                const bool besideEdge = row.size.width() == 40 && (x == 19 || x == 20) && !border;
                EXPECT_TRUE(pixel == 0 || (!border && pixel == qRgba(220, 220, 220, 220))) << x << "," << y;
                EXPECT_TRUE(row.highlighted != 2 * 28 || (pixel != 0) == besideEdge) << x << "," << y;
                marked += pixel != 0;
            }
        EXPECT_EQ(mask->highlightedPixels, marked);
        EXPECT_TRUE(row.highlighted < 0 ? marked > 0 : marked == row.highlighted) << marked;
    }
}

TEST(FocusPeaking, RunsInTheBackgroundStopsWhenCancelledAndReportsMemory)
{
    PreviewResult preview;
    preview.image = verticalStep(64, 64, 32);
    EXPECT_EQ(FocusPeaking::mask(preview, 1.0).result()->highlightedPixels, 2 * 62);
    int looks = 0;
    const auto cancelled = FocusPeaking::calculate(patternImage(300, 200), 0.5, [&looks] { return ++looks >= 2; });
    ASSERT_FALSE(cancelled.ok());
    EXPECT_TRUE(isCancelled(cancelled.failure()));
    EXPECT_EQ(looks, 2);  // rows 32 and 64
    EXPECT_EQ(FocusPeaking::calculate(QImage(), 0.5).message(), QStringLiteral("No se pudo reservar memoria para analizar el enfoque"));
}

} // namespace vantelor::test
