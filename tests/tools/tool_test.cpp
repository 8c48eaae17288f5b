// The tool as a user meets it: the built program, its output, exit codes and files.

#include "drawing.h"
#include "library_image.h"
#include "picture_io.h"
#include "sample_values.h"
#include "status_names.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <kip/kip.h>
#include <limits>
#include <utility>

namespace {

using namespace kiptool;
namespace fs = std::filesystem;

struct Outcome {
    int exitCode;
    std::string out, error;
};

#if defined(_WIN32)
constexpr bool kIsWindows = true;
int exitCodeOf(int status)
{
    return status;
}
// 9009 is the shell's own: it has not found, or could not start, the program.
bool wasStarted(int status)
{
    return status != -1 && status != 9009;
}
#else
constexpr bool kIsWindows = false;
int exitCodeOf(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
bool wasStarted(int status)
{
    return status != -1;
}
#endif

std::string textOf(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Lines end as the system's do.
std::string takePrinted(const fs::path &path)
{
    std::string text = textOf(path);
    fs::remove(path);
    if (kIsWindows)
        std::erase(text, '\r');
    return text;
}

Outcome run(const std::string &arguments)
{
    static const std::string tool = fs::absolute(KIP_TOOL_PATH).make_preferred().string();
    // A first word without quotes: one system's shell would strip them.
    const std::string command = "cd . && \"" + tool + "\" >printed 2>complained " + arguments;
    int status = std::system(command.c_str());
    // Wine, under load, starts one program in some thousands not at all. One that was started is never run again.
    for (int attempts = 1; attempts < 4 && !wasStarted(status); ++attempts)
        status = std::system(command.c_str());
    return {exitCodeOf(status), takePrinted("printed"), takePrinted("complained")};
}

bool isOneLine(const std::string &text)
{
    return std::count(text.begin(), text.end(), '\n') == 1 && text.back() == '\n';
}

size_t countFiles()
{
    return static_cast<size_t>(std::distance(fs::directory_iterator("."), fs::directory_iterator()));
}

// Runs in a directory of its own with a small 8-bit and a 16-bit picture in it.
class Tool : public testing::Test {
protected:
    void SetUp() override
    {
        fs::remove_all(directory);
        fs::create_directories(directory);
        fs::current_path(directory);
        writePicture("in8.png", randomPicture(61, 47, 1, 8));
        writePicture("in16.png", randomPicture(61, 47, 1, 16));
    }

    void TearDown() override
    {
        fs::current_path(start);
        fs::remove_all(directory);
    }

    const fs::path start = fs::current_path();
    const fs::path directory =
        fs::absolute(testing::TempDir()) /
        (std::string("kip_tool_") + testing::UnitTest::GetInstance()->current_test_info()->name());
};

// One line tells what is wrong, and no file appears.
void expectRefused(const std::string &arguments, int exitCode, const std::string &part)
{
    const size_t before = countFiles();
    const Outcome result = run(arguments);
    EXPECT_EQ(result.exitCode, exitCode) << arguments << ": " << result.error;
    EXPECT_TRUE(isOneLine(result.error)) << arguments << ": " << result.error;
    EXPECT_NE(result.error.find(part), std::string::npos) << arguments << ": " << result.error;
    EXPECT_EQ(result.out, "") << arguments;
    EXPECT_EQ(countFiles(), before) << arguments;
}

TEST_F(Tool, WrongCommandLinesEndWith2)
{
    for (const char *arguments :
         {"", "frobnicate", "info", "info --bogus in8.png", "compose out.png", "scene out.png --depth 12",
          "sums in8.png --axis diagonals", "sums in8.png --axis rows --window 1,2,3,4.5",
          "sums in8.png --axis rows --plot out.jpg", "project in8.png --rect 10,10,9,9 -o out.png",
          "project in8.png --rect 10,10,9,9 --clip --time", "transform in8.png"})
        expectRefused(arguments, 2, "");
    for (const char *options :
         {"", "--angle 3", "--rect 1,2,3,4,5", "--rect 1,2,,4", "--rect 1,2,nan,4", "--rect 1,2,-3,4",
          "--corners 1,2,3,4,5", "--rect 1,2,3,4 --corners 1,2,3,4,5,6", "--corners 1,2,3,4,5,6 --angle 3",
          "--rect 1,2,3,4 --size 9", "--rect 1,2,3,4 --size 9.5x9", "--rect 1,2,3,4 --size 99999999999x9",
          "--rect 1,2,3,4 --mode bicycle", "--rect 1,2,3,4 --threads -1", "--rect 1,2,3,4 --rect 1,2,3,4",
          "--rect 1,2,3,4 --overlay o.tif", "--rect 1,2,3,4 --mask mask.png"})
        expectRefused(std::string("transform in8.png out.png ") + options, 2, "");
    for (const char *help : {"--help", "--version", "transform --help", "info --help"})
        EXPECT_EQ(run(help).exitCode, 0) << help;
}

TEST_F(Tool, FailuresEndWith1)
{
    std::ofstream("text.png") << "no picture";
    const std::string whole = textOf("in16.png");
    std::ofstream("cut.png", std::ios::binary) << whole.substr(0, whole.size() / 2);
    fs::create_directory("directory.png");
    const struct {
        const char *arguments, *part;
    } cases[] = {
        {"info missing.png", "missing.png: no such file"},
        {"info directory.png", "directory.png: "},
        {"info text.png", "text.png: not a PNG, TIFF or binary PGM"},
        {"info cut.png", "cut.png: damaged PNG"},
        {"transform in8.png out.jpg --rect 10,10,9,9", "out.jpg: cannot tell the format"},
        {"transform in8.png nowhere/out.png --rect 10,10,9,9", "nowhere/out.png: cannot be written"},
        {"transform in8.png out.png --rect 50,40,30,30", "kip_statusTransformWouldClip (0x80000787)"},
        {"transform in8.png out.png --rect 10,10,9,9 --size 0x9", "kip_statusSizeBelowOne (0x8000078a)"},
        {"transform in8.png out.png --corners 10,10,20,20,30,30 --size 5x5", "kmath_statusSingular (0x80000302)"},
        {"transform in8.png out.png --corners 1e308,0,-1e308,0,0,9", "kmath_statusNotFinite (0x80000301)"},
        {"transform in8.png out.png --clip --rect 90,10,9,9", "kip_statusTransformOutsideSource (0x80000788)"},
        {"project in8.png --rect 50,40,30,30", "kip_statusProjectionWouldClip (0x80000783)"},
        {"project in16.png --rect 10,10,9,9 --mode cubic", "kip_statusProjectionModeUnsupported (0x8000078c)"},
        {"project in8.png --rect 90,90,9,9 --clip", "kip_statusProjectionOutsideSource (0x80000784)"},
        {"sums in16.png --axis rows", "in16.png: sums of windows are for pictures of 8 bits"},
        {"sums in8.png --axis rows --window 60,40,2,2", "in8.png: the window reaches outside the picture"},
        {"scene out.png --size 100000x100000", "too large"},
        {"compose out.pgm a=in8.png", "out.pgm: a PGM file cannot hold colour"},
    };
    for (const auto &c : cases)
        expectRefused(c.arguments, 1, c.part);
    if (!kIsWindows) // there is no such device
        expectRefused("info in8.png >/dev/full", 1, "standard output cannot be written");
}

TEST_F(Tool, OutputReplacesAFileOnlyOnSuccess)
{
    std::ofstream("out.png") << "earlier";
    expectRefused("transform in8.png out.png --rect 50,40,30,30", 1, "");
    EXPECT_EQ(textOf("out.png"), "earlier");
    EXPECT_EQ(run("transform in8.png out.png --rect 10,10,9,9").exitCode, 0);
    EXPECT_EQ(readPicture("out.png").picture.width, 9);
    EXPECT_EQ(countFiles(), 3u); // no temporary file is left
    if (kIsWindows)
        return; // links are for administrators there
    fs::create_symlink("out.png", "link.png");
    EXPECT_EQ(run("transform in8.png link.png --rect 10,10,8,9").exitCode, 0);
    EXPECT_TRUE(fs::is_symlink("link.png"));
    EXPECT_EQ(readPicture("out.png").picture.width, 8);
}

TEST_F(Tool, TransformGivesWhatTheLibraryGives)
{
    const double s = std::sqrt(0.5);
    const struct {
        const char *out, *options;
        kip_affineSampleParams params;
    } cases[] = {
        {"out.png", "--rect 10,12,30,20", {{10, 12, 30, 0, 0, 20}, 1, 30, 20}},
        {"out.tif", "--rect 10,12,30,20 --angle 90 --mode nearest", {{35, 7, 0, -20, 30, 0}, 0, 30, 20}},
        {"out.pgm",
         "--corners 20.25,8.5,41.5,14.75,13,29.125 --threads 1",
         {{20.25, 8.5, 21.25, -7.25, 6.25, 20.625}, 1, 22, 22}},
        {"out.png",
         "--rect 20,18,20,10 --angle 45 --size 33x17",
         {{30 - 5 * s, 23 - 15 * s, 20 * s, -10 * s, 20 * s, 10 * s}, 1, 33, 17}},
    };
    for (const int depth : {8, 16}) {
        const std::string in = "in" + std::to_string(depth) + ".png ";
        Picture source = randomPicture(61, 47, 1, depth);
        for (const auto &c : cases) {
            const Outcome result = run("transform " + in + c.out + " " + c.options);
            EXPECT_EQ(result.exitCode, 0) << c.options;
            EXPECT_EQ(result.out + result.error, "") << c.options;
            LibraryImage from, to;
            bindTo(from, source);
            const auto transform = depth == 16 ? kip_affineTransform16 : kip_affineTransform;
            requireSuccess(transform(&from.image, &to.image, &c.params, nullptr), "");
            const Picture got = readPicture(c.out).picture;
            EXPECT_EQ(got.width, c.params.destWidth) << c.options;
            EXPECT_TRUE(got.samples == pictureOf(to, depth).samples) << in << c.options;
        }
    }
}

// A whole-pixel rectangle is copied, so that every value is known.
TEST_F(Tool, ClipFillsWithBlackAndTellsWhere)
{
    writePicture("plain.png", pictureOf(61, 1, 8, Values(size_t{61} * 47, 90)));
    for (const auto &[left, top] : {std::pair{-4, -2}, {55, 43}, {20, 10}}) {
        const std::string rect = std::to_string(left) + "," + std::to_string(top) + ",9,7";
        ASSERT_EQ(run("transform plain.png out.pgm --clip --mask mask.tif --rect=" + rect).exitCode, 0);
        Values expected, inside;
        for (int i = 0; i < 63; ++i) {
            const int x = left + i % 9, y = top + i / 9;
            inside.push_back(x >= 0 && x < 61 && y >= 0 && y < 47 ? 255 : 0);
            expected.push_back(inside.back() != 0 ? 90 : 0);
        }
        EXPECT_EQ(valuesOf(readPicture("out.pgm").picture), expected) << rect;
        EXPECT_EQ(valuesOf(readPicture("mask.tif").picture), inside) << rect;
    }
}

TEST_F(Tool, PrintsAndWritesWhatItFound)
{
    writePicture("four.tif", pictureOf(2, 1, 16, {7, 4000, 40, 300}));
    writePicture("small.pgm", pictureOf(4, 1, 8, {1, 2, 3, 4, 10, 20, 30, 40, 100, 200, 255, 255}));
    writePicture("steps.tif", pictureOf(5, 1, 16, {40, 40, 0,    0,    0,    40, 40, 1000, 1000, 1000,
                                                   40, 40, 2000, 2000, 2000, 40, 40, 3000, 3000, 3000}));
    const struct {
        const char *arguments, *out;
    } rows[] = {
        {"info four.tif", "format: TIFF, grey\nsize: 2 x 2\ndepth: 16 bits\nvalues: 7 to 4000, mean 1086.75\n"},
        {"sums small.pgm --axis rows", "row,sum\n0,10\n1,100\n2,810\n"},
        {"sums small.pgm --axis columns --window 1,0,3,2", "column,sum\n0,22\n1,33\n2,44\n"},
        {"sums small.pgm --axis columns --window 4,1,0,2", "column,sum\n"},
        {"project steps.tif --rect 1,1,3,2", "column,sum\n0,80\n1,3000\n2,3000\n"},
        {"project steps.tif --rect 1,1,3,2 --mean --clip", "column,mean\n0,40\n1,1500\n2,1500\n"},
        {"project steps.tif --rect 2,1,3,3 --angle 90", "column,sum\n0,3000\n1,6000\n2,9000\n"},
        {"project steps.tif --rect=-1,-1,3,3 --clip", "column,sum,coverage\n0,0,0\n1,80,2\n2,80,2\n"},
        {"project steps.tif --rect=-1,-1,3,3 --clip --mean", "column,mean,coverage\n0,,0\n1,40,2\n2,40,2\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(run(row.arguments).out, row.out) << row.arguments;
    EXPECT_EQ(run("sums small.pgm --axis columns -o sums.json --plot plot.svg").out, "");
    EXPECT_EQ(textOf("sums.json"), "{\"axis\": \"column\", \"quantity\": \"sum\", \"samples\": 3, \"first\": 0, "
                                   "\"end\": 4,\n \"values\": [111, 222, 288, 299]}\n");
    EXPECT_NE(textOf("plot.svg").find("</svg>"), std::string::npos);
    run("project steps.tif --rect=-1,-1,3,3 --clip --mean -o means.json --plot plot.png");
    EXPECT_EQ(textOf("means.json"), "{\"axis\": \"column\", \"quantity\": \"mean\", \"samples\": 3, \"first\": 1, "
                                    "\"end\": 3,\n \"values\": [null, 40, 40],\n \"coverage\": [0, 2, 2]}\n");
    EXPECT_EQ(readPicture("plot.png").picture.width, 800);
    const Outcome timed = run("transform in16.png out.png --rect 10,12,30,20 --angle 5 --time");
    EXPECT_EQ(timed.out.rfind("30 x 20, 16 bits, bilinear: ", 0), 0u) << timed.out;
    EXPECT_NE(timed.out.find(" Mpixel/s (median of "), std::string::npos) << timed.out;
    const Outcome project = run("project steps.tif --rect 1,1,3,2 --time");
    EXPECT_EQ(project.error.rfind("3 x 2 samples, bilinear: ", 0), 0u) << project.error;
}

// The overlay helps most when the rectangle is refused, so it is drawn then too.
TEST_F(Tool, OverlayShowsTheRectangle)
{
    writePicture("plain.png", makePicture(60, 40, 1, 8));
    EXPECT_EQ(run("transform plain.png out.png --rect 10.5,8.5,80,20 --overlay over.png").exitCode, 1);
    const Picture over = readPicture("over.png").picture;
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
        const Picture label = toColour8(readPicture("label.png").picture);
        const auto value = [&label](size_t x, size_t y) { return samples8(label)[(y * 90 + x) * 3]; };
        for (size_t x = 5; x < 85; ++x) {
            EXPECT_LT(value(x, 0), 90) << x;
            EXPECT_LT(value(x, 60), 90) << x;
            EXPECT_GT(value(x, 2), 110) << x;
        }
    }
    run("scene again.png --size 320x240 --angle -33 --depth 16");
    EXPECT_EQ(textOf("again.png"), textOf("scene.png"));
    run("scene other.png --size 320x240 --angle -33 --depth 16 --seed 2");
    EXPECT_NE(textOf("other.png"), textOf("scene.png"));
}

TEST_F(Tool, ComposeEnlargesByWholeFactorsAndReduces)
{
    writePicture("dots.png", pictureOf(3, 3, 8, {255, 0, 0, 0, 255, 0, 0, 0, 255, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    writePicture("large.pgm", pictureOf(100, 1, 8, Values(5000, 90)));
    ASSERT_EQ(run("compose over.png one=dots.png - large.pgm --width 16").exitCode, 0);
    const Values over = valuesOf(readPicture("over.png").picture);
    const auto count = [&over](const Values &colour) {
        size_t found = 0;
        for (size_t i = 0; i < over.size(); i += 3)
            found += std::equal(colour.begin(), colour.end(), &over[i]) ? 1 : 0;
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
