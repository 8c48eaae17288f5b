// Straightens a slanted label: rotated_rect PICTURE RESULT
#include <kip/opencv.hpp>
#include <opencv2/imgcodecs.hpp>

int main(int, char **arguments)
{
    const cv::Mat picture = cv::imread(arguments[1], cv::IMREAD_GRAYSCALE);
    const cv::RotatedRect label({320, 240}, {200, 80}, 12.5F); // centre, size, degrees clockwise
    const cv::Mat straight = kip::transform(picture, kip::rectFromRotatedRect(label));
    return cv::imwrite(arguments[2], straight) ? 0 : 1;
}
