#include "profile_plot.h"

#include "bitmap_font.h"
#include "drawing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kiptool {
namespace {

constexpr int kWidth = 800, kHeight = 400;
constexpr double kLeft = 110, kRight = kWidth - 25, kTop = 40, kBottom = kHeight - 60; // of the area with the curve
constexpr int64_t kTextFactor = 2; // pixels of a dot of the bitmap font

constexpr Colour kPaper = {255, 255, 255}, kInk = {40, 40, 40}, kGrid = {225, 225, 225}, kCurve = {0, 90, 200};
constexpr int kDarkestShade = 175; // where nothing lies inside the picture

enum class Anchor { start, middle, end };

// What a plot is drawn on. Text stands on its baseline.
class Canvas {
public:
    virtual ~Canvas() = default;
    virtual void fill(double x, double y, double width, double height, Colour colour) = 0;
    virtual void curve(const std::vector<Point> &points, double width, Colour colour) = 0;
    virtual void text(Point at, Anchor anchor, const std::string &text) = 0;
};

class SvgCanvas : public Canvas {
public:
    void fill(double x, double y, double width, double height, Colour colour) override
    {
        add("<rect x=\"%.2f\" y=\"%.2f\" width=\"%.2f\" height=\"%.2f\" fill=\"#%02x%02x%02x\"/>\n", x, y, width,
            height, colour.red, colour.green, colour.blue);
    }

    void curve(const std::vector<Point> &points, double width, Colour colour) override
    {
        body += "<polyline points=\"";
        for (const Point &point : points)
            add("%.2f,%.2f ", point.x, point.y);
        add("\" fill=\"none\" stroke-width=\"%.2f\" stroke=\"#%02x%02x%02x\"/>\n", width, colour.red, colour.green,
            colour.blue);
    }

    void text(Point at, Anchor anchor, const std::string &text) override
    {
        const char *const anchors[] = {"start", "middle", "end"};
        add(R"(<text x="%.2f" y="%.2f" text-anchor="%s">)", at.x, at.y, anchors[static_cast<int>(anchor)]);
        body += text + "</text>\n"; // the plot's own words, without a character that XML gives a meaning
    }

    std::string whole() const
    {
        return R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" + std::to_string(kWidth) + R"(" height=")" +
               std::to_string(kHeight) + R"(" font-family="sans-serif" font-size="14">)" + "\n" + body + "</svg>\n";
    }

private:
    template <typename... Values>
    void add(const char *format, Values... values)
    {
        char text[200];
        (void)std::snprintf(text, sizeof text, format, values...);
        body += text;
    }

    std::string body;
};

class PictureCanvas : public Canvas {
public:
    Picture picture = makePicture(kWidth, kHeight, 3, 8);

    void fill(double x, double y, double width, double height, Colour colour) override
    {
        const auto whole = [](double position) { return std::llround(position); };
        fillArea(picture, whole(x), whole(y), whole(x + width) - whole(x), whole(y + height) - whole(y), colour);
    }

    void curve(const std::vector<Point> &points, double width, Colour colour) override
    {
        for (size_t i = 1; i < points.size(); ++i)
            drawLine(picture, points[i - 1], points[i], width, colour);
    }

    void text(Point at, Anchor anchor, const std::string &text) override
    {
        const int64_t width = textWidth(text, kTextFactor);
        const int64_t back = anchor == Anchor::start ? 0 : anchor == Anchor::middle ? width / 2 : width;
        drawText(picture, std::llround(at.x) - back, std::llround(at.y) - kGlyphHeight * kTextFactor, text, kTextFactor,
                 kInk);
    }
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

void shadePartial(Canvas &canvas, const Profile &profile, const Scale &x, double unit)
{
    for (size_t i = 0; i < profile.coverage.size(); ++i) {
        const double missing = 1 - profile.coverage[i] / profile.samples;
        if (!(missing > 0))
            continue;
        const auto grey = static_cast<uint8_t>(255 - std::lround((255 - kDarkestShade) * std::min(missing, 1.0)));
        const double left = x.at(static_cast<double>(i) * unit), right = x.at(static_cast<double>(i + 1) * unit);
        canvas.fill(left, kTop, right - left, kBottom - kTop, {grey, grey, grey});
    }
}

void drawPlot(Canvas &canvas, const Profile &profile)
{
    const double length = profile.length > 0 ? profile.length : 1;
    const double unit = profile.values.empty() ? length : length / static_cast<double>(profile.values.size());
    const Scale x = {0, length, kLeft, kRight, niceStep(length, 10)};
    const Scale y = valueScale(profile);

    canvas.fill(0, 0, kWidth, kHeight, kPaper);
    shadePartial(canvas, profile, x, unit);
    eachLabel(y, [&canvas](double at, const std::string &label) {
        canvas.curve({{kLeft, at}, {kRight, at}}, 1, kGrid);
        canvas.text({kLeft - 8, at + 6}, Anchor::end, label);
    });
    eachLabel(x, [&canvas](double at, const std::string &label) {
        canvas.curve({{at, kBottom}, {at, kBottom + 5}}, 1, kInk);
        canvas.text({at, kBottom + 24}, Anchor::middle, label);
    });

    std::vector<Point> steps;
    for (size_t i = profile.first; i < profile.end; ++i) {
        steps.push_back({x.at(static_cast<double>(i) * unit), y.at(profile.values[i])});
        steps.push_back({x.at(static_cast<double>(i + 1) * unit), y.at(profile.values[i])});
    }
    canvas.curve(steps, 1.5, kCurve);
    canvas.curve({{kLeft, kTop}, {kLeft, kBottom}, {kRight, kBottom}}, 1.5, kInk);
    canvas.text({kLeft, kTop - 14}, Anchor::start, profile.quantity + " of each " + profile.axis);
    canvas.text({(kLeft + kRight) / 2, kHeight - 12}, Anchor::middle, "position in pixels");
    if (!profile.coverage.empty())
        canvas.text({kRight, kTop - 14}, Anchor::end, "grey: partly outside the picture");
}

} // namespace

std::string plotAsSvg(const Profile &profile)
{
    SvgCanvas canvas;
    drawPlot(canvas, profile);
    return canvas.whole();
}

Picture plotAsPicture(const Profile &profile)
{
    PictureCanvas canvas;
    drawPlot(canvas, profile);
    return std::move(canvas.picture);
}

} // namespace kiptool
