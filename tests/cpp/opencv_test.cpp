// Rectangles and matrices of OpenCV against interpolation in doubles, with pixel centres at whole numbers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include <opencv2/imgproc.hpp>

#include <kip/opencv.hpp>

namespace {

cv::Mat smoothPicture(int type)
{
    cv::Mat picture(120, 160, type);
    cv::theRNG().state = 7;
    cv::randu(picture, 0, type == CV_8UC1 ? 255 : 65535);
    cv::GaussianBlur(picture, picture, {9, 9}, 2);
    return picture;
}

template <class P>
double bilinearAt(const cv::Mat_<P> &picture, cv::Point2d at)
{
    const int x = static_cast<int>(std::floor(at.x));
    const int y = static_cast<int>(std::floor(at.y));
    const double u = at.x - x;
    const double v = at.y - y;
    return (1 - v) * ((1 - u) * picture(y, x) + u * picture(y, x + 1)) +
           v * ((1 - u) * picture(y + 1, x) + u * picture(y + 1, x + 1));
}

// Columns and rows run from the corner that boxPoints gives for the top left of the unrotated rectangle.
TEST(OpenCv, RotatedRectsAreSampledWhereTheyLie)
{
    const cv::Mat_<uint8_t> whole = smoothPicture(CV_8UC1);
    const cv::Mat_<uint8_t> picture = whole(cv::Rect(7, 3, 140, 110)); // a part: rows lie further apart
    for (const float angle : {0.0F, 33.5F, 90.0F, -120.25F}) {
        const cv::RotatedRect rect({60.3F, 52.7F}, {40, 20}, angle);
        const cv::Mat_<uint8_t> result = kip::transform(picture, kip::rectFromRotatedRect(rect));
        ASSERT_EQ(result.size(), cv::Size(40, 20));
        const double c = std::cos(angle * CV_PI / 180);
        const double s = std::sin(angle * CV_PI / 180);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 40; ++x) {
                const double along = x - 19.5;
                const double down = y - 9.5;
                const cv::Point2d at(rect.center.x + c * along - s * down, rect.center.y + s * along + c * down);
                ASSERT_NEAR(result(y, x), bilinearAt(picture, at), 0.55) << angle << ": " << x << ' ' << y;
            }
    }
}

TEST(OpenCv, WarpMatricesGiveWhatWarpAffineGives)
{
    const cv::Mat_<uint16_t> picture = smoothPicture(CV_16UC1);
    cv::Mat matrix = cv::getRotationMatrix2D({80, 60}, 25, 1.2);
    matrix.at<double>(0, 2) -= 50.25;
    matrix.at<double>(1, 2) -= 40;
    cv::Mat inverted;
    cv::invertAffineTransform(matrix, inverted);
    const cv::Size size(50, 30);
    cv::Mat_<uint16_t> warped;
    cv::warpAffine(picture, warped, matrix, size);
    const kip::AffineRect rect = kip::rectFromWarpMatrix(matrix, size);
    const cv::Mat_<uint16_t> result = kip::transform(picture, rect, {.size = kip::Size{50, 30}});
    cv::Mat_<uint16_t> again(30, 50);
    inverted.convertTo(inverted, CV_32F);
    kip::transformInto(picture, kip::rectFromWarpMatrix(inverted, size, true), again);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 50; ++x) {
            const cv::Matx23d m(inverted);
            const cv::Point2d at(m(0, 0) * x + m(0, 1) * y + m(0, 2), m(1, 0) * x + m(1, 1) * y + m(1, 2));
            ASSERT_NEAR(result(y, x), bilinearAt(picture, at), 4); // of 65535, with slopes of up to 5000 a pixel
            ASSERT_NEAR(again(y, x), result(y, x), 4);             // a matrix of floats
            ASSERT_NEAR(warped(y, x), result(y, x), 250);          // positions in 32nds of a pixel
        }
    EXPECT_THROW((void)kip::rectFromWarpMatrix(cv::Mat::zeros(2, 3, CV_64F), size), kip::Error);
    EXPECT_THROW((void)kip::rectFromWarpMatrix(cv::Mat::eye(3, 3, CV_64F), size), kip::Error);
}

TEST(OpenCv, OtherFormsTakeMats)
{
    const cv::Mat picture = smoothPicture(CV_8UC1);
    const auto rect = kip::rectFromRotatedRect({{75, 60}, {50, 12}, 20});
    kip::Sampler sampler(rect);
    const cv::Mat result = kip::transform(sampler, picture);
    cv::Mat kept;
    for (int round = 0; round < 2; ++round) {
        const uchar *const before = kept.data;
        kip::transformInto(sampler, picture, kept);
        EXPECT_EQ(cv::norm(kept, result, cv::NORM_INF), 0);
        EXPECT_TRUE(round == 0 || kept.data == before);
    }
    cv::Mat sums;
    cv::reduce(result, sums, 0, cv::REDUCE_SUM, CV_32S);
    for (const kip::Profile &profile : {kip::project(picture, rect), kip::project(sampler, picture)})
        for (int x = 0; x < 50; ++x)
            ASSERT_EQ(profile.sums[static_cast<size_t>(x)], static_cast<uint32_t>(sums.at<int>(x)));
    EXPECT_EQ(kip::projectMean(sampler, picture).means[7], sums.at<int>(7) / 12.0);

    const kip::ClippedMat inside = kip::transformClipped(picture, rect);
    EXPECT_FALSE(inside.clipped);
    EXPECT_EQ(cv::norm(inside.image, result, cv::NORM_INF), 0);
    EXPECT_EQ(cv::countNonZero(inside.mask == 255), 600);
    const kip::ClippedMat outside = kip::transformClipped(picture, kip::rectFromRotatedRect({{0, 60}, {50, 12}, 0}));
    EXPECT_TRUE(outside.clipped);
    EXPECT_EQ(outside.mask.at<uint8_t>(6, 3), 0);
    EXPECT_EQ(outside.mask.at<uint8_t>(6, 40), 255);

    kip::Image<uint8_t> image = kip::transform(kip::view<uint8_t>(picture), rect);
    EXPECT_EQ(cv::norm(kip::matOf(image), result, cv::NORM_INF), 0);
    EXPECT_EQ(kip::toCv(kip::fromCv({3, 4.25})), cv::Point2d(3, 4.25));

    cv::Mat canvas = picture.clone();
    EXPECT_THROW(kip::transformInto(canvas, rect, canvas(cv::Rect(0, 0, 20, 20))), kip::Error); // shares memory
    EXPECT_EQ(cv::norm(canvas, picture, cv::NORM_INF), 0);
    for (const cv::Mat &bad : {cv::Mat(50, 50, CV_8UC3), cv::Mat(50, 50, CV_32F), cv::Mat()})
        EXPECT_THROW((void)kip::transform(bad, rect), kip::Error);
    cv::Mat deep(12, 50, CV_16UC1);
    EXPECT_THROW(kip::transformInto(picture, rect, deep), kip::Error);
}

} // namespace
