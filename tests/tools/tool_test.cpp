// The tool as a user meets it: the built program, its output, exit codes and files.

#include "failure.h"
#include "json_text.h"
#include "library_image.h"
#include "picture_io.h"
#include "profile.h"
#include "profile_plot.h"
#include "sample_values.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <kip/kip.h>
#include <tuple>
#include <utility>
#if !defined(_WIN32)
#include <sys/resource.h>
#endif

namespace {

using namespace kiptool;
namespace fs = std::filesystem;

constexpr bool kIsWindows = fs::path::preferred_separator == '\\';

struct Outcome {
    int exitCode;
    std::string out, error;
};

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
    std::erase(text, '\r');
    return text;
}

Outcome run(const std::string &arguments)
{
    static const std::string tool = fs::absolute(KIP_TOOL_PATH).make_preferred().string();
    // A first word without quotes: one system's shell would strip them.
    const std::string command = "cd . && \"" + tool + "\" >printed 2>complained " + arguments;
    int exitCode = -1; // not started
    // Wine, under load, starts one program in some thousands not at all.
    for (int attempts = 0; attempts < 4 && exitCode == -1; ++attempts) {
        const int status = std::system(command.c_str());
#if defined(_WIN32)
        exitCode = status == 9009 ? -1 : status; // the shell's own
#else
        exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
    }
    return {exitCode, takePrinted("printed"), takePrinted("complained")};
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
    // Another build's tests may run at the same time.
    const fs::path directory =
        fs::absolute(testing::TempDir()) / ("kip_tool_" + std::to_string(std::hash<std::string>()(KIP_TOOL_PATH)) +
                                            testing::UnitTest::GetInstance()->current_test_info()->name());
};

// One line tells what is wrong, and no file appears.
void expectRefused(const std::string &arguments, int exitCode, const std::string &part)
{
    const size_t before = countFiles();
    const auto [gotCode, out, error] = run(arguments);
    SCOPED_TRACE(arguments + ": " + error);
    EXPECT_EQ(gotCode, exitCode);
    EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 1);
    EXPECT_NE(error.find(part), std::string::npos);
    EXPECT_EQ(out, "");
    EXPECT_EQ(countFiles(), before);
}

TEST_F(Tool, WrongCommandLinesEndWith2)
{
    for (const char *arguments :
         {"", "info --bogus in8.png", "sums in8.png --axis rows --page 0", "scene out --format gif",
          "scene out.png --depth 12", "sums in8.png --axis diagonals", "sums in8.png --axis rows --window 1,2,3,4.5",
          "sums in8.png --axis rows --plot out.png", "project in8.png --rect 10,10,9,9 --clip --time",
          "transform in8.png out.png", "transform in8.png out.png --angle 3",
          "transform in8.png out.png --rect 1,2,-3,4"})
        expectRefused(arguments, 2, "");
    for (const char *rest :
         {",", ",5", " --angle nan", " --corners 1,2,3,4,5,6", " --size 9", " --size 9.5x9", " --size 99999999999x9",
          " --mode bicycle", " --threads -1", " --overlay o.tif", " --mask mask.png"})
        expectRefused(std::string("transform in8.png out.png --rect 1,2,3,4") + rest, 2, "");
    for (const char *help : {"--version", "transform --help"})
        EXPECT_EQ(run(help).exitCode, 0) << help;
}

TEST_F(Tool, FailuresEndWith1)
{
    std::ofstream("text.png") << "no picture";
    std::ofstream("cut.png", std::ios::binary) << textOf("in16.png").substr(0, 999);
    fs::create_directory("directory.png");
    for (const auto &[arguments, part] : {
             std::pair{"info missing.png", "missing.png: no such file"},
             {"info directory.png", "directory.png: "},
             {"info text.png", "text.png: not a PNG, TIFF, JPEG or binary PGM"},
             {"info cut.png", "cut.png: damaged PNG"},
             {"sums in8.png --axis rows --page 2", "in8.png: it has no page 2"},
             {"transform in8.png - --rect 10,10,9,9", "standard output: has no name"},
             {"transform in8.png out.jpg --rect 10,10,9,9", "out.jpg: cannot tell the format"},
             {"transform in8.png nowhere/out.png --rect 10,10,9,9", "nowhere/out.png: cannot be written"},
             {"transform in8.png out.png --rect 50,40,30,30", "kip_statusTransformWouldClip (0x80000787)"},
             {"transform in8.png out.png --clip --rect 90,10,9,9", "kip_statusTransformOutsideSource (0x80000788)"},
             {"project in16.png --rect 10,10,9,9 --mode cubic", "kip_statusProjectionModeUnsupported (0x8000078c)"},
             {"project in8.png --rect 90,90,9,9 --clip", "kip_statusProjectionOutsideSource (0x80000784)"},
             {"sums in16.png --axis rows", "in16.png: sums of windows are for pictures of 8 bits"},
             {"sums in8.png --axis rows --window 60,40,2,2", "in8.png: the window reaches outside the picture"},
             {"scene out.png --size 100000x100000", "too large"},
         })
        expectRefused(arguments, 1, part);
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
    const double q = std::sqrt(32);
    const struct {
        const char *out, *options;
        kip_affineSampleParams params;
    } rows[] = {
        {"out.png", "--rect 10,12,30,20", {{10, 12, 30, 0, 0, 20}, 1, 30, 20}},
        {"out.tif", "--rect 10,12,30,20 --angle 90 --mode nearest", {{35, 7, 0, -20, 30, 0}, 0, 30, 20}},
        // A quarter turn with an error that counts reaches outside the picture.
        {"out.png", "--rect 7,-7,47,61 --angle -720000000090", {{0, 47, 0, 61, -47, 0}, 1, 47, 61}},
        {"out.png", "--rect 0,0,61,47 --angle 180", {{61, 47, -61, 0, 0, -47}, 1, 61, 47}},
        {"out.pgm", "--corners 20,8,41,14,13,29 --threads 1", {{20, 8, 21, -7, 6, 21}, 1, 22, 22}},
        {"out.png", "--rect 20,18,8,8 --angle 45 --size 33x17", {{24, 22 - q, q, -q, q, q}, 1, 33, 17}},
    };
    for (const int depth : {8, 16}) {
        Picture source = randomPicture(61, 47, 1, depth);
        for (const auto &[out, options, params] : rows) {
            const std::string arguments = "transform in" + std::to_string(depth) + ".png " + out + " " + options;
            SCOPED_TRACE(arguments);
            const Outcome result = run(arguments);
            EXPECT_EQ(result.out + result.error, "");
            LibraryImage from, to;
            bindTo(from, source);
            const auto transform = depth == 16 ? kip_affineTransform16 : kip_affineTransform;
            requireSuccess(transform(&from.image, &to.image, &params, nullptr), "");
            const Picture got = readPicture(out).picture;
            EXPECT_EQ(got.width, params.destWidth);
            EXPECT_TRUE(got.samples == pictureOf(to, depth).samples);
        }
    }
}

TEST_F(Tool, ClipFillsWithBlackAndTellsWhere)
{
    writePicture("small.pgm", pictureOf(3, 1, 8, {1, 2, 3, 4, 5, 6}));
    for (const auto &[rect, values, mask] : {
             std::tuple<const char *, Values, Values>{"-1,-1,3,2", {0, 0, 0, 0, 1, 2}, {0, 0, 0, 0, 255, 255}},
             {"1,1,3,2", {5, 6, 0, 0, 0, 0}, {255, 255, 0, 0, 0, 0}},
             {"1,0,2,2", {2, 3, 5, 6}, {255, 255, 255, 255}},
         }) {
        run(std::string("transform small.pgm out.pgm --clip --mask mask.tif --rect=") + rect);
        EXPECT_EQ(valuesOf(readPicture("out.pgm").picture), values) << rect;
        EXPECT_EQ(valuesOf(readPicture("mask.tif").picture), mask) << rect;
    }
}

TEST_F(Tool, PrintsAndWritesWhatItFound)
{
    writePicture("tall.tif", pictureOf(1, 1, 16, Values(20000, 65535)));
    writePicture("four.tif", pictureOf(2, 1, 16, {7, 4000, 40, 300}));
    writePicture("small.pgm", pictureOf(4, 1, 8, {1, 2, 3, 4, 10, 20, 30, 40, 100, 200, 255, 255}));
    writePicture("steps.tif", pictureOf(5, 1, 16, {40, 40, 0,    0,    0,    40, 40, 1000, 1000, 1000,
                                                   40, 40, 2000, 2001, 2000, 40, 40, 3000, 3000, 3000}));
    for (const auto &[arguments, printed] : {
             std::pair{"info four.tif",
                       "format: TIFF, grey\nsize: 2 x 2\ndepth: 16 bits\nvalues: 7 to 4000, mean 1086.75\n"},
             {"sums small.pgm --axis rows", "row,sum\n0,10\n1,100\n2,810\n"},
             {"sums small.pgm --axis columns --window 1,0,3,2", "column,sum\n0,22\n1,33\n2,44\n"},
             {"sums small.pgm --axis columns --window 4,1,0,2", "column,sum\n"},
             {"project steps.tif --rect 1,1,3,2", "column,sum\n0,80\n1,3000\n2,3001\n"},
             {"project steps.tif --rect 1,1,3,2 --mean --clip", "column,mean\n0,40\n1,1500\n2,1500.5\n"},
             {"project steps.tif --rect 2,1,3,3 --angle 90", "column,sum\n0,3000\n1,6001\n2,9000\n"},
             {"project tall.tif --rect 0,0,1,20000", "column,sum\n0,1310700000\n"},
             {"project steps.tif --rect=-1,-1,3,3 --clip", "column,sum,coverage\n0,0,0\n1,80,2\n2,80,2\n"},
             {"project steps.tif --rect=-1,-1,3,3 --clip --mean", "column,mean,coverage\n0,,0\n1,40,2\n2,40,2\n"},
         })
        EXPECT_EQ(run(arguments).out, printed) << arguments;
    EXPECT_EQ(run("sums small.pgm --axis columns -o sums.json --plot plot.svg").out, "");
    EXPECT_EQ(textOf("sums.json"), "{\"axis\": \"column\", \"quantity\": \"sum\", \"samples\": 3, \"first\": 0, "
                                   "\"end\": 4,\n \"values\": [111, 222, 288, 299]}\n");
    EXPECT_NE(textOf("plot.svg").find("</svg>"), std::string::npos);
    run("project steps.tif --rect=-1,-1,3,3 --clip --mean -o means.json");
    EXPECT_EQ(textOf("means.json"), "{\"axis\": \"column\", \"quantity\": \"mean\", \"samples\": 3, \"first\": 1, "
                                    "\"end\": 3,\n \"values\": [null, 40, 40],\n \"coverage\": [0, 2, 2]}\n");
    const std::string timed = run("transform in16.png out.png --rect 10,12,30,20 --angle 5 --time").out;
    EXPECT_EQ(timed.rfind("30 x 20, 16 bits, bilinear: ", 0), 0u) << timed;
    EXPECT_NE(timed.find(" Mpixel/s (median of "), std::string::npos) << timed;
    EXPECT_EQ(run("project steps.tif --rect 1,1,3,2 --time").error.rfind("3 x 2 samples, bilinear: ", 0), 0u);
}

TEST_F(Tool, PagesAreChosenAndWhatIsNotShownIsTold)
{
    fs::copy_file(KIP_SOURCE_DIR "/fuzz/corpus/pictures/pages.tif", "pages.tif");
    EXPECT_EQ(run("info pages.tif").out,
              "page: 1 of 3\nformat: TIFF, grey\nsize: 7 x 5\ndepth: 8 bits\nvalues: 0 to 94, mean 47.00\n\n"
              "page: 2 of 3\nformat: TIFF, colour (read as grey)\nsize: 6 x 4\ndepth: 8 bits\n"
              "values: 29 to 78, mean 53.46\n\n"
              "page: 3 of 3\nformat: TIFF, grey\nsize: 5 x 3\ndepth: 16 bits\nvalues: 0 to 14848, mean 7424.00\n");
    for (const auto &[page, depth, told] : {std::tuple{"", 8, "kip: pages.tif: has 3 pages, page 1 is read\n"},
                                            {" --page 2", 8, "kip: pages.tif: colour read as grey\n"},
                                            {" --page 3", 16, ""}}) {
        EXPECT_EQ(run(std::string("transform pages.tif out.tif --rect 0,0,3,3") + page).error, told);
        EXPECT_EQ(depthOf(readPicture("out.tif").picture), depth);
    }
    expectRefused("sums pages.tif --axis rows --page 4", 1, "pages.tif: it has 3 pages and no page 4");

    const auto [exitCode, out, error] = run("info --json in16.png missing.png pages.tif");
    EXPECT_EQ(exitCode, 1);
    EXPECT_EQ(error, "kip: missing.png: no such file\nkip: 1 of 3 files cannot be read\n");
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 4);
    EXPECT_NE(
        out.find(",\n {\"file\": \"pages.tif\", \"page\": 2, \"pages\": 3, \"format\": \"TIFF\", \"colour\": true, "
                 "\"width\": 6, \"height\": 4, \"depth\": 8, \"least\": 29, \"greatest\": 78, "
                 "\"mean\": 53.45833333},\n"),
        std::string::npos)
        << out;
    EXPECT_EQ(jsonString("a\"\\\n\x7f\xc3\xa9\xf0\x9f\x98\x80"), "\"a\\\"\\\\\\u000a\x7f\xc3\xa9\xf0\x9f\x98\x80\"");
    // A byte alone, a character that ends early, one longer than need be, half a pair, one beyond the last.
    EXPECT_EQ(jsonString("\xff\xc3"), "\"\\ufffd\\ufffd\"");
    for (const char *wrong : {"\xe0\x9f\x80", "\xed\xa0\x80"})
        EXPECT_EQ(jsonString(wrong), "\"\\ufffd\\ufffd\\ufffd\"");
    EXPECT_EQ(jsonString("\xf4\x90\x80\x80"), "\"\\ufffd\\ufffd\\ufffd\\ufffd\"");
}

TEST_F(Tool, StandardInputAndOutputCarryPictures)
{
    const std::string options = " --rect 5,7,43,31 --angle 3";
    for (const char *format : {"png", "tiff", "pgm"}) {
        const std::string asked = std::string(" --format ") + format;
        ASSERT_EQ(run("transform in16.png out" + asked + options).exitCode, 0) << format;
        const Outcome piped = run("transform - -" + asked + options + " --time <in16.png >piped");
        EXPECT_EQ(piped.error.rfind("43 x 31, 16 bits, bilinear: ", 0), 0u) << piped.error;
        EXPECT_TRUE(textOf("piped") == textOf("out")) << format;
    }
    EXPECT_EQ(run("scene - --format png --size 40x30 >piped").error.rfind("--rect ", 0), 0u);
    EXPECT_EQ(run("info <piped -").out.rfind("format: PNG, grey\nsize: 40 x 30\n", 0), 0u);
    EXPECT_EQ(run("sums - --axis rows --window 0,0,2,1 <in8.png").out.rfind("row,sum\n0,", 0), 0u);
    if (!kIsWindows) {
        EXPECT_EQ(run("transform in8.png - --format pgm --rect 10,10,9,9 >/dev/full").exitCode, 1);
    }
}

// The overlay helps most when the rectangle is refused, so it is drawn then too.
TEST_F(Tool, OverlayShowsTheRectangle)
{
    writePicture("plain.png", makePicture(60, 40, 1, 8));
    EXPECT_EQ(run("transform plain.png out.png --rect 10.5,8.5,1e9,20 --overlay over.png").exitCode, 1);
    const Picture over = readPicture("over.png").picture;
    ASSERT_EQ(over.channels, 3);
    const auto pixel = [&over](size_t x, size_t y) { return &samples8(over)[(y * 60 + x) * 3]; };
    EXPECT_GT(pixel(30, 8)[1], 150); // the x side, green
    EXPECT_LT(pixel(30, 8)[0], 50);
    EXPECT_GT(pixel(10, 20)[0], 150); // a side, red
    EXPECT_GT(pixel(30, 28)[0], 150); // the opposite side
    EXPECT_EQ(pixel(30, 18)[0] + pixel(30, 18)[1] + pixel(5, 5)[0], 0);
    for (const std::string far : {"-1e300,8.5,2e300,20", "1.7e308,-1,1.7e308,1.7e308 --angle 9"})
        expectRefused("transform plain.png out.png --overlay over.png --rect=" + far, 1, "kip: ");
}

TEST_F(Tool, SceneIsStraightenedByTheOptionsThatItPrints)
{
    for (const char *depth : {"8", "16"}) {
        Outcome scene = run("scene scene.png --size 320x240 --angle -33 --depth " + std::string(depth));
        std::erase(scene.out, '\n');
        ASSERT_EQ(run("transform scene.png label.png --size 90x61 " + scene.out).exitCode, 0) << scene.out;
        // One pixel a dot: the label's frame is dark all round, the paper beside it bright.
        const Picture label = toColour8(readPicture("label.png").picture);
        const auto value = [&label](size_t x, size_t y) { return samples8(label)[(y * 90 + x) * 3]; };
        for (size_t x = 5; x < 85; ++x) {
            EXPECT_LT(value(x, 0), 90) << x;
            EXPECT_LT(value(x, 60), 90) << x;
            EXPECT_GT(value(x, 2), 110) << x;
        }
    }
    run("scene other.png --size 320x240 --angle -33 --depth 16 --seed 2");
    EXPECT_NE(textOf("other.png"), textOf("scene.png"));
}

#if !defined(_WIN32) && !defined(__SANITIZE_THREAD__) // whose own memory is many times the program's

// The most memory that any program run by this process has taken, in bytes.
int64_t peakOfChildren()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return int64_t{1024} * usage.ru_maxrss;
}

// Files of 64 MB of which the disk holds the beginning alone.
TEST_F(Tool, LargePicturesTakeTheirOwnSize)
{
    constexpr uintmax_t kSize = 64 << 20;
    const auto makeLarge = [](const char *name, const std::string &header) {
        std::ofstream(name, std::ios::binary) << header;
        fs::resize_file(name, header.size() + kSize);
    };
    makeLarge("8.pgm", "P5 8192 8192 255\n");
    makeLarge("16.pgm", "P5 4096 8192 65535\n");
    // A big-endian TIFF of one strip: width, height, bits, compression, photometric, offset, rows and bytes of the
    // strip.
    const auto tag = [](uint32_t number, uint32_t value) {
        std::string bytes = {'\1', static_cast<char>(number), '\0', '\4', '\0', '\0', '\0', '\1'};
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift);
        return bytes;
    };
    makeLarge("16.tif", std::string("MM\0*\0\0\0\10\0\10", 10) + tag(0, 4096) + tag(1, 8192) + tag(2, 16) + tag(3, 1) +
                            tag(6, 1) + tag(17, 110) + tag(22, 8192) + tag(23, kSize) + std::string(4, '\0'));

    EXPECT_EQ(run("info in8.png").exitCode, 0);
    const int64_t small = peakOfChildren();
    for (const char *name : {"8.pgm", "16.pgm", "16.tif"}) {
        EXPECT_EQ(run(std::string("transform ") + name + " out.png --rect 10,10,30,20 --angle 4").error, "") << name;
        EXPECT_LT(static_cast<double>(peakOfChildren() - small), 1.25 * kSize) << name;
    }
}

#endif

// Four columns of which the first lies outside and the second a quarter inside. The plot's area is 665 x 300 points
// from (110, 40): 12 pixels and the values from 20 to 60.
TEST(Profile, PlotPutsStepsAndShadesWhereTheyBelong)
{
    const Profile partlyInside = {"column", "mean", {0, 30.5, 20, 60}, {0, 2, 8, 8}, 8, 1, 4, 12};
    const std::string svg = plotAsSvg(partlyInside);
    for (const char *part :
         {"<polyline points=\"276.25,261.25 442.50,261.25 442.50,340.00 608.75,340.00 608.75,40.00 775.00,40.00 \"",
          "<rect x=\"110.00\" y=\"40.00\" width=\"166.25\" height=\"300.00\" fill=\"#afafaf\"/>", // nothing inside
          "<rect x=\"276.25\" y=\"40.00\" width=\"166.25\" height=\"300.00\" fill=\"#c3c3c3\"/>", // a quarter
          ">12</text>", ">20</text>", ">60</text>", "mean of each column"})
        EXPECT_NE(svg.find(part), std::string::npos) << part << " in\n" << svg;
    // Nothing, or one value only, is drawn too.
    for (const Profile &flat :
         {Profile{"row", "sum", {}, {}, 0, 0, 0, 0}, Profile{"row", "mean", {0, 0}, {0, 0}, 3, 2, 2, 1e-9}})
        EXPECT_NE(plotAsSvg(flat).find("</svg>"), std::string::npos);
}

} // namespace
