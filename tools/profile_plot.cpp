#include "profile_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace kiptool {
namespace {

constexpr int kWidth = 800, kHeight = 400;
constexpr double kLeft = 110, kRight = kWidth - 25, kTop = 40, kBottom = kHeight - 60; // of the area with the curve

constexpr const char *kInk = "#282828", *kGrid = "#e1e1e1", *kCurve = "#005ac8";
constexpr int kDarkestShade = 175; // where nothing lies inside the picture

struct Point {
    double x, y;
};

// The elements of a drawing. Text stands on its baseline.
class Svg {
public:
    void fill(double x, double y, double width, double height, int grey)
    {
        add(R"(<rect x="%.2f" y="%.2f" width="%.2f" height="%.2f" fill="#%02x%02x%02x"/>)", x, y, width, height, grey,
            grey, grey);
        elements += '\n';
    }

    void curve(const std::vector<Point> &points, double width, const char *colour)
    {
        elements += "<polyline points=\"";
        for (const Point &point : points)
            add("%.2f,%.2f ", point.x, point.y);
        add("\" fill=\"none\" stroke-width=\"%.2f\" stroke=\"%s\"/>\n", width, colour);
    }

    // The plot's own words, without a character that XML gives a meaning; anchored at their start, middle or end.
    void text(Point at, const char *anchor, const std::string &words)
    {
        add(R"(<text x="%.2f" y="%.2f" text-anchor="%s">)", at.x, at.y, anchor);
        elements += words + "</text>\n";
    }

    std::string whole() const
    {
        return R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" + std::to_string(kWidth) + R"(" height=")" +
               std::to_string(kHeight) + R"(" font-family="sans-serif" font-size="14">)" + "\n" + elements + "</svg>\n";
    }

private:
    template <typename... Values>
    void add(const char *format, Values... values)
    {
        char line[200];
        (void)std::snprintf(line, sizeof line, format, values...);
        elements += line;
    }

    std::string elements;
};

// A range of values on one axis of the plot, and the labels on it.
struct Scale {
    double least, greatest; // values at the ends
    double from, to;        // positions of the ends
    double step;            // between labels: 1, 2 or 5 times a power of ten

    double at(double value) const { return from + (value - least) / (greatest - least) * (to - from); }
};

double niceStep(double range, int labels)
{
    const double rough = range / labels;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= rough)
            return factor * power;
    return 10 * power;
}

// The values' own range, widened to whole steps.
Scale valueScale(const Profile &profile)
{
    double least = 0, greatest = 1;
    if (profile.first < profile.end) {
        const auto from = profile.values.begin();
        const auto [low, high] = std::minmax_element(from + static_cast<ptrdiff_t>(profile.first),
                                                     from + static_cast<ptrdiff_t>(profile.end));
        least = *low;
        greatest = std::max(*high, least + 1);
    }
    const double step = niceStep(greatest - least, 6);
    return {std::floor(least / step) * step, std::ceil(greatest / step) * step, kBottom, kTop, step};
}

std::string labelText(double value, double step)
{
    char text[40];
    (void)std::snprintf(text, sizeof text, "%.*f", static_cast<int>(std::max(0.0, -std::floor(std::log10(step)))),
                        value + 0.0);
    return text;
}

template <typename Draw>
void eachLabel(const Scale &scale, Draw draw)
{
    const double tolerance = scale.step / 1000;
    const double first = std::ceil((scale.least - tolerance) / scale.step);
    const auto count = static_cast<int>((scale.greatest + tolerance) / scale.step - first) + 1;
    for (int i = 0; i < count; ++i) {
        const double value = (first + i) * scale.step;
        draw(scale.at(value), labelText(value, scale.step));
    }
}

void shadePartial(Svg &svg, const Profile &profile, const Scale &x, double unit)
{
    for (size_t i = 0; i < profile.coverage.size(); ++i) {
        const double missing = 1 - profile.coverage[i] / profile.samples;
        if (!(missing > 0))
            continue;
        const auto grey = static_cast<int>(255 - std::lround((255 - kDarkestShade) * std::min(missing, 1.0)));
        const double left = x.at(static_cast<double>(i) * unit), right = x.at(static_cast<double>(i + 1) * unit);
        svg.fill(left, kTop, right - left, kBottom - kTop, grey);
    }
}

} // namespace

std::string plotAsSvg(const Profile &profile)
{
    Svg svg;
    const double length = profile.length > 0 ? profile.length : 1;
    const double unit = profile.values.empty() ? length : length / static_cast<double>(profile.values.size());
    const Scale x = {0, length, kLeft, kRight, niceStep(length, 10)};
    const Scale y = valueScale(profile);

    svg.fill(0, 0, kWidth, kHeight, 255);
    shadePartial(svg, profile, x, unit);
    eachLabel(y, [&svg](double at, const std::string &label) {
        svg.curve({{kLeft, at}, {kRight, at}}, 1, kGrid);
        svg.text({kLeft - 8, at + 6}, "end", label);
    });
    eachLabel(x, [&svg](double at, const std::string &label) {
        svg.curve({{at, kBottom}, {at, kBottom + 5}}, 1, kInk);
        svg.text({at, kBottom + 24}, "middle", label);
    });

    std::vector<Point> steps;
    for (size_t i = profile.first; i < profile.end; ++i) {
        steps.push_back({x.at(static_cast<double>(i) * unit), y.at(profile.values[i])});
        steps.push_back({x.at(static_cast<double>(i + 1) * unit), y.at(profile.values[i])});
    }
    svg.curve(steps, 1.5, kCurve);
    svg.curve({{kLeft, kTop}, {kLeft, kBottom}, {kRight, kBottom}}, 1.5, kInk);
    svg.text({kLeft, kTop - 14}, "start", profile.quantity + " of each " + profile.axis);
    svg.text({(kLeft + kRight) / 2, kHeight - 12}, "middle", "position in pixels");
    if (!profile.coverage.empty())
        svg.text({kRight, kTop - 14}, "end", "grey: partly outside the picture");
    return svg.whole();
}

} // namespace kiptool
