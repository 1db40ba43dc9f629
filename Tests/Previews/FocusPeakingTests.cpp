#include <gtest/gtest.h>

#include "Previews/FocusPeaking.h"
#include "Support/ImageFixtures.h"

namespace vantelor::test {

namespace {

QImage filled(int width, int height, QColor colour)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// Black on the left of column `edge`, white from it on.
QImage verticalStep(int width, int height, int edge)
{
    QImage image = filled(width, height, Qt::black);
    for (int y = 0; y < height; ++y)
        for (int x = edge; x < width; ++x)
            image.setPixel(x, y, qRgb(255, 255, 255));
    return image;
}

bool isTransparent(const QImage& image)
{
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixel(x, y) != 0)
                return false;
    return true;
}

} // namespace

TEST(FocusPeaking, AnalysisSizeScalesDownToTheLimitAndNeverBelowThree)
{
    const struct {
        QSize image;
        QSize analysis;
    } rows[] = {
        {{6000, 4000}, {2560, 1706}}, {{4000, 6000}, {1706, 2560}}, {{2560, 1706}, {2560, 1706}},
        {{1000, 500}, {1000, 500}},   {{1, 1}, {3, 3}},             {{10000, 2}, {2560, 3}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(FocusPeaking::analysisSize(row.image), row.analysis) << row.image.width() << "×" << row.image.height();
}

TEST(FocusPeaking, ThresholdFollowsSensitivityWithinItsRange)
{
    const struct {
        double sensitivity;
        int threshold;
    } rows[] = {{1.0, 60}, {0.0, 560}, {0.5, 310}, {2.0, 60}, {-1.0, 560}, {0.999, 60}, {std::nan(""), 560}};
    for (const auto& row : rows)
        EXPECT_EQ(FocusPeaking::threshold(row.sensitivity), row.threshold) << row.sensitivity;
}

TEST(FocusPeaking, UniformImagesHighlightNothing)
{
    for (const QColor colour : {QColor(Qt::gray), QColor(Qt::black), QColor(Qt::white)}) {
        const auto mask = FocusPeaking::calculate(filled(200, 100, colour), 1.0);
        ASSERT_TRUE(mask.ok());
        EXPECT_EQ(mask->highlightedPixels, 0);
        EXPECT_TRUE(isTransparent(mask->image));
    }
}

TEST(FocusPeaking, AStepEdgeIsHighlightedOnItsTwoColumnsAtEverySensitivity)
{
    for (const double sensitivity : {0.0, 0.5, 1.0}) {
        const auto mask = FocusPeaking::calculate(verticalStep(40, 30, 20), sensitivity);
        ASSERT_TRUE(mask.ok());
        // |gx| = 4 × 255 beside the edge (columns 19 and 20), rows 1 … 28.
        EXPECT_EQ(mask->highlightedPixels, 2 * 28) << sensitivity;
        EXPECT_EQ(mask->image.format(), QImage::Format_RGBA8888_Premultiplied);
        const uchar* row = mask->image.constScanLine(15);
        for (int channel = 0; channel < 4; ++channel) {
            EXPECT_EQ(row[19 * 4 + channel], 220);
            EXPECT_EQ(row[20 * 4 + channel], 220);
            EXPECT_EQ(row[18 * 4 + channel], 0);
            EXPECT_EQ(row[21 * 4 + channel], 0);
        }
        EXPECT_EQ(mask->image.pixel(19, 0), 0u);   // the outermost rows stay clear
        EXPECT_EQ(mask->image.pixel(19, 29), 0u);
    }
}

TEST(FocusPeaking, BordersAreNeverHighlighted)
{
    // A checkerboard: every interior pixel is on a strong edge.
    QImage board(20, 12, QImage::Format_RGB32);
    for (int y = 0; y < board.height(); ++y)
        for (int x = 0; x < board.width(); ++x)
            board.setPixel(x, y, ((x / 2 + y / 2) % 2) ? qRgb(255, 255, 255) : qRgb(0, 0, 0));
    const auto mask = FocusPeaking::calculate(board, 1.0);
    ASSERT_TRUE(mask.ok());
    EXPECT_GT(mask->highlightedPixels, 0);
    for (int x = 0; x < board.width(); ++x) {
        EXPECT_EQ(mask->image.pixel(x, 0), 0u);
        EXPECT_EQ(mask->image.pixel(x, board.height() - 1), 0u);
    }
    for (int y = 0; y < board.height(); ++y) {
        EXPECT_EQ(mask->image.pixel(0, y), 0u);
        EXPECT_EQ(mask->image.pixel(board.width() - 1, y), 0u);
    }
}

TEST(FocusPeaking, ATinyImageIsAnalysedAtThreeByThree)
{
    for (const QColor colour : {QColor(Qt::black), QColor(Qt::white)}) {
        const auto mask = FocusPeaking::calculate(filled(1, 1, colour), 1.0);
        ASSERT_TRUE(mask.ok());
        EXPECT_EQ(mask->image.size(), QSize(3, 3));
        EXPECT_LE(mask->highlightedPixels, 1);
    }
}

TEST(FocusPeaking, ALargeImageIsAnalysedAtTheLimit)
{
    const auto mask = FocusPeaking::calculate(patternImage(6000, 4000), 0.5);
    ASSERT_TRUE(mask.ok());
    EXPECT_EQ(mask->image.size(), QSize(2560, 1706));
    EXPECT_GT(mask->highlightedPixels, 0);
}

TEST(FocusPeaking, StopsWhenCancelled)
{
    int looks = 0;
    const auto mask = FocusPeaking::calculate(patternImage(300, 200), 0.5, [&looks] { return ++looks >= 2; });
    ASSERT_FALSE(mask.ok());
    EXPECT_TRUE(isCancelled(mask.failure()));
    EXPECT_EQ(looks, 2);  // rows 32 and 64
}

TEST(FocusPeaking, ANullImageReportsTheMemoryMessage)
{
    const auto mask = FocusPeaking::calculate(QImage(), 0.5);
    ASSERT_FALSE(mask.ok());
    EXPECT_EQ(mask.message(), QStringLiteral("No se pudo reservar memoria para analizar el enfoque"));
}

TEST(FocusPeaking, MaskOfAPreviewRunsInTheBackground)
{
    PreviewResult preview;
    preview.image = verticalStep(64, 64, 32);
    const auto mask = FocusPeaking::mask(preview, 1.0).result();
    ASSERT_TRUE(mask.ok());
    EXPECT_EQ(mask->highlightedPixels, 2 * 62);
}

} // namespace vantelor::test
