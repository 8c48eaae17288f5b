// The tool as a user meets it: the built program, its output, exit codes and files.

#include "drawing.h"
#include "picture_io.h"
#include "status_names.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <kip/kip.h>
#include <limits>
#include <sstream>
#include <utility>

namespace {

using namespace kiptool;
namespace fs = std::filesystem;

struct Outcome {
    int exitCode;
    std::string out, error;
};

// The shell that std::system starts differs. What the tool prints ends its lines as the system does.
#if defined(_WIN32)
constexpr bool kIsWindows = true;
std::string commandIn(const fs::path &directory, const std::string &call)
{
    return "cd /d \"" + directory.string() + "\" && " + call;
}
int exitCodeOf(int status)
{
    return status;
}
#else
constexpr bool kIsWindows = false;
std::string commandIn(const fs::path &directory, const std::string &call)
{
    return "cd \"" + directory.string() + "\" && " + call;
}
int exitCodeOf(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
#endif

std::string textOf(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string printedTo(const fs::path &path)
{
    std::string text = textOf(path);
    if (kIsWindows)
        text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

bool isOneLine(const std::string &text)
{
    return std::count(text.begin(), text.end(), '\n') == 1 && text.back() == '\n';
}

// Runs in a directory of its own with a small 8-bit and a 16-bit picture in it.
class Tool : public testing::Test {
protected:
    void SetUp() override
    {
        directory = fs::absolute(testing::TempDir()) /
                    (std::string("kip_tool_") + testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(directory);
        fs::create_directories(directory / "work");
        for (const int depth : {8, 16}) {
            Picture picture = makePicture(61, 47, 1, depth);
            std::visit(
                [](auto &samples) {
                    uint32_t value = 1;
                    for (auto &sample : samples)
                        sample =
                            static_cast<std::decay_t<decltype(sample)>>((value = value * 1664525 + 1013904223) >> 12);
                },
                picture.samples);
            writePicture(at("in" + std::to_string(depth) + ".png"), picture);
        }
    }

    void TearDown() override { fs::remove_all(directory); }

    fs::path at(const std::string &name) const { return directory / "work" / name; }

    Outcome run(const std::string &arguments) const
    {
        const fs::path tool = fs::absolute(KIP_TOOL_PATH).make_preferred();
        const fs::path out = directory / "out", error = directory / "error";
        const int status = std::system(commandIn(at(""), '"' + tool.string() + "\" >\"" + out.string() + "\" 2>\"" +
                                                             error.string() + "\" " + arguments)
                                           .c_str());
        return {exitCodeOf(status), printedTo(out), printedTo(error)};
    }

    size_t filesInWork() const
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(at("")), fs::directory_iterator()));
    }

    fs::path directory;
};

TEST_F(Tool, WrongCommandLinesEndWith2)
{
    for (const char *arguments : {
             "",
             "frobnicate",
             "info",
             "info --bogus in8.png",
             "transform in8.png",
             "transform in8.png out.png",
             "transform in8.png out.png --angle 3",
             "transform in8.png out.png --rect 1,2,3,4,5",
             "transform in8.png out.png --rect 1,2,,4",
             "transform in8.png out.png --rect 1,2,nan,4",
             "transform in8.png out.png --rect 1,2,-3,4",
             "transform in8.png out.png --corners 1,2,3,4,5",
             "transform in8.png out.png --rect 1,2,3,4 --corners 1,2,3,4,5,6",
             "transform in8.png out.png --corners 1,2,3,4,5,6 --angle 3",
             "transform in8.png out.png --rect 10,10,9,9 --size 9",
             "transform in8.png out.png --rect 10,10,9,9 --size 9.5x9",
             "transform in8.png out.png --rect 10,10,9,9 --size 99999999999x9",
             "transform in8.png out.png --rect 10,10,9,9 --mode bicycle",
             "transform in8.png out.png --rect 10,10,9,9 --threads -1",
             "transform in8.png out.png --rect 10,10,9,9 --rect 10,10,9,9",
             "transform in8.png out.png --rect 10,10,9,9 --overlay o.tif",
             "transform in8.png out.png --rect 10,10,9,9 --mask mask.png",
             "scene out.png --depth 12",
             "project in8.png --rect 10,10,9,9 -o out.png",
             "project in8.png --rect 10,10,9,9 --clip --time",
             "sums in8.png --axis diagonals",
             "sums in8.png --axis rows --window 1,2,3,4.5",
             "sums in8.png --axis rows --plot out.jpg",
             "compose out.png",
         }) {
        const Outcome result = run(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments;
        EXPECT_TRUE(isOneLine(result.error)) << arguments << ": " << result.error;
        EXPECT_EQ(result.out, "") << arguments;
    }
    EXPECT_EQ(filesInWork(), 2u);
    for (const char *help : {"--help", "--version", "transform --help", "info --help"})
        EXPECT_EQ(run(help).exitCode, 0) << help;
}

TEST_F(Tool, FailuresEndWith1AndOneLineAndNoFile)
{
    std::ofstream(at("text.png")) << "no picture";
    const std::string whole = textOf(at("in16.png"));
    std::ofstream(at("cut.png"), std::ios::binary) << whole.substr(0, whole.size() / 2);
    fs::create_directory(at("directory.png"));
    const size_t before = filesInWork();
    const struct {
        const char *arguments, *part;
    } cases[] = {
        {"info missing.png", "missing.png: no such file"},
        {"info directory.png", "directory.png: "},
        {"info text.png", "text.png: not a PNG, TIFF or binary PGM"},
        {"info cut.png", "cut.png: damaged PNG"},
        {"info in8.png >/dev/full", "standard output cannot be written"},
        {"transform in8.png out.jpg --rect 10,10,9,9", "out.jpg: cannot tell the format"},
        {"transform in8.png nowhere/out.png --rect 10,10,9,9", "nowhere/out.png: cannot be written"},
        {"transform in8.png out.png --rect 50,40,30,30", "kip_statusTransformWouldClip (0x80000787)"},
        {"transform in8.png out.png --rect 10,10,9,9 --size 0x9", "kip_statusSizeBelowOne (0x8000078a)"},
        {"transform in8.png out.png --corners 10,10,20,20,30,30 --size 5x5", "kmath_statusSingular (0x80000302)"},
        {"transform in8.png out.png --corners 1e308,0,-1e308,0,0,9", "kmath_statusNotFinite (0x80000301)"},
        {"project in8.png --rect 50,40,30,30", "kip_statusProjectionWouldClip (0x80000783)"},
        {"project in16.png --rect 10,10,9,9 --mode cubic", "kip_statusProjectionModeUnsupported (0x8000078c)"},
        {"project in8.png --rect 90,90,9,9 --clip", "kip_statusProjectionOutsideSource (0x80000784)"},
        {"sums in16.png --axis rows", "in16.png: sums of windows are for pictures of 8 bits"},
        {"sums in8.png --axis rows --window 60,40,2,2", "in8.png: the window reaches outside the picture"},
        {"transform in8.png out.png --clip --rect 90,10,9,9", "kip_statusTransformOutsideSource (0x80000788)"},
        {"scene out.png --size 100000x100000", "too large"},
        {"compose out.pgm a=in8.png", "out.pgm: a PGM file cannot hold colour"},
    };
    for (const auto &c : cases) {
        if (kIsWindows && std::string(c.arguments).find("/dev/full") != std::string::npos)
            continue; // no such device
        const Outcome result = run(c.arguments);
        EXPECT_EQ(result.exitCode, 1) << c.arguments << ": " << result.error;
        EXPECT_TRUE(isOneLine(result.error)) << c.arguments << ": " << result.error;
        EXPECT_NE(result.error.find(c.part), std::string::npos) << c.arguments << ": " << result.error;
        EXPECT_EQ(filesInWork(), before) << c.arguments;
    }
}

TEST_F(Tool, OutputReplacesAFileOnlyOnSuccess)
{
    std::ofstream(at("out.png")) << "earlier";
    EXPECT_EQ(run("transform in8.png out.png --rect 50,40,30,30").exitCode, 1);
    EXPECT_EQ(textOf(at("out.png")), "earlier");
    EXPECT_EQ(run("transform in8.png out.png --rect 10,10,9,9").exitCode, 0);
    EXPECT_EQ(readPicture(at("out.png")).picture.width, 9);
    EXPECT_EQ(filesInWork(), 3u); // no temporary file is left
    if (kIsWindows)
        return; // links are for administrators there
    fs::create_symlink("out.png", at("link.png"));
    EXPECT_EQ(run("transform in8.png link.png --rect 10,10,8,9").exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(at("link.png")));
    EXPECT_EQ(readPicture(at("out.png")).picture.width, 8);
}

// What the library makes of the same geometry.
Picture transformed(Picture source, const kip_affineSampleParams &params)
{
    const int bytes = depthOf(source) / 8;
    Picture result = makePicture(params.destWidth, params.destHeight, 1, depthOf(source));
    kimg_image from, to;
    kimg_image_constructExternal(&from, bytes, source.width, source.height, source.width, bytesOf(source));
    kimg_image_constructExternal(&to, bytes, result.width, result.height, result.width, bytesOf(result));
    EXPECT_GE((bytes == 2 ? kip_affineTransform16 : kip_affineTransform)(&from, &to, &params, nullptr), 0);
    kimg_image_destruct(&from);
    kimg_image_destruct(&to);
    return result;
}

TEST_F(Tool, TransformGivesWhatTheLibraryGives)
{
    const double s = std::sqrt(0.5);
    const struct {
        const char *arguments, *out;
        kip_affineSampleParams params;
    } cases[] = {
        {"--rect 10,12,30,20 --angle 90 --mode nearest", "out.png", {{35, 7, 0, -20, 30, 0}, 0, 30, 20}},
        {"--corners 20.25,8.5,41.5,14.75,13,29.125 --threads 1",
         "out.tif",
         {{20.25, 8.5, 21.25, -7.25, 6.25, 20.625}, 1, 22, 22}},
        {"--rect 20,18,20,10 --angle 45 --size 33x17",
         "out.pgm",
         {{30 - 5 * s, 23 - 15 * s, 20 * s, -10 * s, 20 * s, 10 * s}, 1, 33, 17}},
    };
    for (const std::string in : {"in8.png ", "in16.png "}) {
        for (const auto &c : cases) {
            const Outcome result = run("transform " + in + c.out + " " + c.arguments);
            ASSERT_EQ(result.exitCode, 0) << c.arguments << ": " << result.error;
            EXPECT_EQ(result.out + result.error, "");
            const Picture got = readPicture(at(c.out)).picture;
            const Picture expected = transformed(readPicture(at(in.substr(0, in.size() - 1))).picture, c.params);
            EXPECT_EQ(got.width, expected.width);
            EXPECT_TRUE(got.samples == expected.samples) << in << c.arguments;
        }
    }
}

// A picture of one value, 61 x 47. A whole-pixel rectangle is copied, so that every value is known.
TEST_F(Tool, ClipFillsWithBlackAndTellsWhere)
{
    Picture plain = makePicture(61, 47, 1, 8);
    std::fill(samples8(plain).begin(), samples8(plain).end(), uint8_t{90});
    writePicture(at("plain.png"), plain);
    for (const auto &[left, top] : {std::pair{-4, -2}, {55, 43}, {20, 10}}) {
        const std::string rect = std::to_string(left) + "," + std::to_string(top) + ",9,7";
        ASSERT_EQ(run("transform plain.png out.pgm --clip --mask mask.tif --rect=" + rect).exitCode, 0);
        const Picture got = readPicture(at("out.pgm")).picture, mask = readPicture(at("mask.tif")).picture;
        ASSERT_EQ(samples8(got).size(), 63u);
        for (int i = 0; i < 63; ++i) {
            const int x = left + i % 9, y = top + i / 9;
            const bool inside = x >= 0 && x < 61 && y >= 0 && y < 47;
            EXPECT_EQ(samples8(got)[static_cast<size_t>(i)], inside ? 90 : 0) << rect << " at " << x << ", " << y;
            EXPECT_EQ(samples8(mask)[static_cast<size_t>(i)], inside ? 255 : 0) << rect << " at " << x << ", " << y;
        }
    }
}

TEST_F(Tool, PrintsAndWritesWhatItFound)
{
    Picture four = makePicture(2, 2, 1, 16);
    four.samples = std::vector<uint16_t>{7, 4000, 40, 300};
    writePicture(at("four.tif"), four);
    Picture small = makePicture(4, 3, 1, 8);
    small.samples = std::vector<uint8_t>{1, 2, 3, 4, 10, 20, 30, 40, 100, 200, 255, 255};
    writePicture(at("small.pgm"), small);
    Picture steps = makePicture(8, 4, 1, 16);
    auto &samples = std::get<std::vector<uint16_t>>(steps.samples);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<uint16_t>(i % 8 < 2 ? 40 : 1000 * (i / 8));
    writePicture(at("steps.tif"), steps);
    const struct {
        const char *arguments, *out;
        const char *json = ""; // in out.json
    } rows[] = {
        {"info four.tif", "format: TIFF, grey\nsize: 2 x 2\ndepth: 16 bits\nvalues: 7 to 4000, mean 1086.75\n"},
        {"sums small.pgm --axis rows", "row,sum\n0,10\n1,100\n2,810\n"},
        {"sums small.pgm --axis columns --window 1,0,3,2", "column,sum\n0,22\n1,33\n2,44\n"},
        {"sums small.pgm --axis columns --window 4,1,0,2", "column,sum\n"},
        {"sums small.pgm --axis columns -o out.json --plot plot.svg", "",
         "{\"axis\": \"column\", \"quantity\": \"sum\", \"samples\": 3, \"first\": 0, \"end\": 4,\n \"values\": [111, "
         "222, 288, 299]}\n"},
        {"project steps.tif --rect 1,1,3,2", "column,sum\n0,80\n1,3000\n2,3000\n"},
        {"project steps.tif --rect 1,1,3,2 --mean --clip", "column,mean\n0,40\n1,1500\n2,1500\n"},
        {"project steps.tif --rect 2,1,3,3 --angle 90", "column,sum\n0,3000\n1,6000\n2,9000\n"},
        {"project steps.tif --rect=-1,-1,3,3 --clip", "column,sum,coverage\n0,0,0\n1,80,2\n2,80,2\n"},
        {"project steps.tif --rect=-1,-1,3,3 --clip --mean -o out.json --plot plot.png", "",
         "{\"axis\": \"column\", \"quantity\": \"mean\", \"samples\": 3, \"first\": 1, \"end\": 3,\n \"values\": "
         "[null, "
         "40, 40],\n \"coverage\": [0, 2, 2]}\n"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(run(row.arguments).out, row.out) << row.arguments;
        EXPECT_TRUE(*row.json == '\0' || textOf(at("out.json")) == row.json) << row.arguments;
    }
    EXPECT_NE(textOf(at("plot.svg")).find("</svg>"), std::string::npos);
    EXPECT_EQ(readPicture(at("plot.png")).picture.width, 800);
    const Outcome timed = run("transform in16.png out.png --rect 10,12,30,20 --angle 5 --time");
    EXPECT_EQ(timed.out.rfind("30 x 20, 16 bits, bilinear: ", 0), 0u) << timed.out;
    EXPECT_NE(timed.out.find(" Mpixel/s (median of "), std::string::npos) << timed.out;
    const Outcome project = run("project steps.tif --rect 1,1,3,2 --time");
    EXPECT_EQ(project.error.rfind("3 x 2 samples, bilinear: ", 0), 0u) << project.error;
}

// The overlay helps most when the rectangle is refused, so it is drawn then too.
TEST_F(Tool, OverlayShowsTheRectangle)
{
    writePicture(at("plain.png"), makePicture(60, 40, 1, 8));
    EXPECT_EQ(run("transform plain.png out.png --rect 10.5,8.5,80,20 --overlay over.png").exitCode, 1);
    EXPECT_FALSE(fs::exists(at("out.png")));
    const Picture over = readPicture(at("over.png")).picture;
    ASSERT_EQ(over.channels, 3);
    const auto pixel = [&over](size_t x, size_t y) { return &samples8(over)[(y * 60 + x) * 3]; };
    EXPECT_GT(pixel(30, 8)[1], 150); // the x side, green
    EXPECT_LT(pixel(30, 8)[0], 50);
    EXPECT_GT(pixel(10, 20)[0], 150); // a side, red
    EXPECT_GT(pixel(30, 28)[0], 150); // the opposite side
    EXPECT_EQ(pixel(30, 18)[0] + pixel(30, 18)[1] + pixel(5, 5)[0], 0);
}

TEST_F(Tool, SceneIsStraightenedByTheOptionsThatItPrints)
{
    for (const char *depth : {"8", "16"}) {
        const Outcome scene = run("scene scene.png --size 320x240 --angle -33 --depth " + std::string(depth));
        ASSERT_EQ(scene.exitCode, 0) << scene.error;
        ASSERT_TRUE(isOneLine(scene.out));
        const std::string options = scene.out.substr(0, scene.out.size() - 1);
        ASSERT_EQ(run("transform scene.png label.png --size 90x61 " + options).exitCode, 0) << options;
        // One pixel a dot: the label's frame is dark all round, the paper beside it bright.
        const Picture label = toColour8(readPicture(at("label.png")).picture);
        const auto value = [&label](size_t x, size_t y) { return samples8(label)[(y * 90 + x) * 3]; };
        for (size_t x = 5; x < 85; ++x) {
            EXPECT_LT(value(x, 0), 90) << x;
            EXPECT_LT(value(x, 60), 90) << x;
            EXPECT_GT(value(x, 2), 110) << x;
        }
    }
    run("scene again.png --size 320x240 --angle -33 --depth 16");
    EXPECT_EQ(textOf(at("again.png")), textOf(at("scene.png")));
    run("scene other.png --size 320x240 --angle -33 --depth 16 --seed 2");
    EXPECT_NE(textOf(at("other.png")), textOf(at("scene.png")));
}

TEST_F(Tool, ComposeEnlargesByWholeFactorsAndReduces)
{
    Picture dots = makePicture(3, 2, 3, 8);
    samples8(dots) = {255, 0, 0, 0, 255, 0, 0, 0, 255, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    writePicture(at("dots.png"), dots);
    Picture large = makePicture(100, 50, 1, 8);
    std::fill(samples8(large).begin(), samples8(large).end(), uint8_t{90});
    writePicture(at("large.pgm"), large);
    ASSERT_EQ(run("compose over.png one=dots.png - large.pgm --width 16").exitCode, 0);
    const Picture over = readPicture(at("over.png")).picture;
    const auto count = [&](std::array<uint8_t, 3> colour) {
        size_t found = 0;
        for (size_t i = 0; i < samples8(over).size(); i += 3)
            found += std::equal(colour.begin(), colour.end(), &samples8(over)[i]);
        return found;
    };
    EXPECT_EQ(count({255, 0, 0}), 25u); // 16 / 3 = 5 times
    EXPECT_EQ(count({1, 2, 3}), 25u);
    EXPECT_EQ(count({90, 90, 90}), 15u * 8u); // 100 / 7 and 50 / 7, rounded up
}

TEST(Drawing, LinesFarOutsideDoNoHarm)
{
    Picture picture = makePicture(9, 9, 3, 8);
    for (const double far : {1e9, 1e300, std::numeric_limits<double>::infinity(), std::nan("")})
        drawRectangle(picture, {-far, 4.5}, {2 * far, 0}, {0, far});
    drawLine(picture, {-1e9, 4.5}, {1e9, 4.5}, 1, {9, 8, 7});
    EXPECT_EQ(samples8(picture)[(4 * 9 + 3) * 3], 9);
}

} // namespace
