#include "profile.h"

#include "profile_plot.h"

#include <gtest/gtest.h>

namespace {

using namespace kiptool;

TEST(Profile, ValuesKeepEveryDigit)
{
    EXPECT_EQ(profileAsCsv({"row", "mean", {4294967295.0, 30.5}, {}, 1, 0, 2, 2}), "row,mean\n0,4294967295\n1,30.5\n");
}

// Four columns of which the first lies outside and the second a quarter inside. The plot's area is 665 x 300 points
// from (110, 40): 12 pixels and the values from 20 to 60.
TEST(Profile, PlotPutsStepsAndShadesWhereTheyBelong)
{
    const Profile partlyInside = {"column", "mean", {0, 30.5, 20, 60}, {0, 2, 8, 8}, 8, 1, 4, 12};
    const std::string svg = plotAsSvg(partlyInside);
    const char *const parts[] = {
        "<polyline points=\"276.25,261.25 442.50,261.25 442.50,340.00 608.75,340.00 608.75,40.00 775.00,40.00 \"",
        "<rect x=\"110.00\" y=\"40.00\" width=\"166.25\" height=\"300.00\" fill=\"#afafaf\"/>", // nothing inside
        "<rect x=\"276.25\" y=\"40.00\" width=\"166.25\" height=\"300.00\" fill=\"#c3c3c3\"/>", // a quarter
        ">12</text>",
        ">20</text>",
        ">60</text>",
        "mean of each column",
    };
    for (const char *part : parts)
        EXPECT_NE(svg.find(part), std::string::npos) << part << " in\n" << svg;
    const Picture picture = plotAsPicture(partlyInside);
    const auto red = [&picture](size_t x, size_t y) {
        return +samples8(picture)[(y * static_cast<size_t>(picture.width) + x) * 3];
    };
    EXPECT_EQ(red(150, 100), 0xAF);
    EXPECT_EQ(red(300, 100), 0xC3);
    EXPECT_EQ(red(500, 50), 0xFF);
    EXPECT_LT(red(690, 40), 70);
}

TEST(Profile, PlotOfNothingOrOneValueIsDrawn)
{
    for (const Profile &profile :
         {Profile{"row", "sum", {}, {}, 0, 0, 0, 0}, Profile{"row", "sum", {5}, {}, 1, 0, 1, 1},
          Profile{"row", "mean", {0, 0}, {0, 0}, 3, 2, 2, 1e-9}})
        EXPECT_NE(plotAsSvg(profile).find("</svg>"), std::string::npos);
}

} // namespace
