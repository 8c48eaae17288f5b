#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>

#include "transform/transform_bench.h"

namespace kip_bench {

namespace {

std::string number(double value, int decimals)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

std::string spreadText(const Spread &spread)
{
    return number(spread.median, 2) + " | " + number(spread.least, 2) + " to " + number(spread.greatest, 2);
}

double megapixels(const TransformCase &transform)
{
    return 1e-6 * transform.geometry.width * transform.geometry.height;
}

std::string speedText(const TransformCase &transform, const Rounds &seconds)
{
    return number(megapixels(transform) / spreadOf(seconds).median, 0);
}

// What was measured of a case; null where nothing was.
struct Pair {
    const Rounds *kip;
    const Rounds *peer;
};

Pair find(const Measurements &measurements, const TransformCase &transform)
{
    const std::string name = nameOf(transform);
    return {measurements.find(name + "/kip"), measurements.find(name + "/opencv")};
}

std::string withoutFamily(const TransformCase &transform)
{
    return nameOf(transform).substr(std::string("transform/").size());
}

// A table without rows is left out: its head is printed before its first row.
class Table {
public:
    Table(std::ostream &out, const char *head) : out_(out), head_(head) {}
    void row(const std::string &cells)
    {
        out_ << head_ << "| " << cells << " |\n";
        head_ = "";
    }

private:
    std::ostream &out_;
    const char *head_;
};

void printSpeeds(const std::vector<TransformCase> &cases, const Measurements &measurements, std::ostream &out)
{
    Table table(out, R"(
| transform, one thread | kip Mpixel/s | OpenCV Mpixel/s | kip / OpenCV | range |
|---|--:|--:|--:|---|
)");
    for (const TransformCase &transform : cases) {
        const auto [kip, peer] = find(measurements, transform);
        if (transform.threads != 0 || kip == nullptr)
            continue;
        std::string cells = withoutFamily(transform) + " | " + speedText(transform, *kip) + " | ";
        if (peer != nullptr)
            cells += speedText(transform, *peer) + " | " + spreadText(spreadOf(ratios(*peer, *kip)));
        else
            cells += " |  | ";
        table.row(cells);
    }
}

// Speed-up of the case with two threads over the one with one, or empty cells.
std::string speedUpText(const Rounds *one, const Rounds *two)
{
    return one != nullptr && two != nullptr ? spreadText(spreadOf(ratios(*one, *two))) : " | ";
}

void printSpeedUps(const std::vector<TransformCase> &cases, const Measurements &measurements, std::ostream &out)
{
    Table table(out, R"(
| transform, wall clock | kip, 1 thread | kip, 2 threads | speed-up | range | OpenCV's speed-up | range |
|---|--:|--:|--:|---|--:|---|
)");
    for (const TransformCase &two : cases) {
        TransformCase one = two;
        one.threads = 1;
        const Pair alone = find(measurements, one);
        const Pair both = find(measurements, two);
        if (two.threads != 2 || alone.kip == nullptr || both.kip == nullptr)
            continue;
        TransformCase any = two;
        any.threads = 0;
        table.row(withoutFamily(any) + " | " + speedText(one, *alone.kip) + " | " + speedText(two, *both.kip) + " | " +
                  speedUpText(alone.kip, both.kip) + " | " + speedUpText(alone.peer, both.peer));
    }
}

// Nanoseconds of a small call beyond its pixels' share of a large one, round by round.
std::string overheadText(const TransformCase &small, const Rounds *smallSeconds, const TransformCase &large,
                         const Rounds *largeSeconds)
{
    if (smallSeconds == nullptr || largeSeconds == nullptr)
        return " | ";
    const double share = megapixels(small) / megapixels(large);
    std::vector<double> overhead;
    for (size_t i = 0; i < smallSeconds->size(); ++i)
        overhead.push_back(1e9 * ((*smallSeconds)[i] - share * (*largeSeconds)[i]));
    return number(1e9 * spreadOf(*smallSeconds).median, 0) + " | " + number(spreadOf(overhead).median, 0);
}

void printOverheads(const std::vector<TransformCase> &cases, const Measurements &measurements, std::ostream &out)
{
    Table table(out, R"(
| small call | kip ns | beyond its share of 1024 | OpenCV ns | beyond its share of 1024 |
|---|--:|--:|--:|--:|
)");
    for (const TransformCase &small : cases) {
        if (small.geometry.width != 64 || small.geometry.height != 64)
            continue;
        TransformCase large = small;
        large.geometry.width = large.geometry.height = 1024;
        const Pair smallPair = find(measurements, small);
        const Pair largePair = find(measurements, large);
        if (smallPair.kip != nullptr && largePair.kip != nullptr)
            table.row(withoutFamily(small) + " | " + overheadText(small, smallPair.kip, large, largePair.kip) + " | " +
                      overheadText(small, smallPair.peer, large, largePair.peer));
    }
}

} // namespace

void printTransformTables(const std::vector<TransformCase> &cases, const Measurements &measurements, std::ostream &out)
{
    printSpeeds(cases, measurements, out);
    printOverheads(cases, measurements, out);
    printSpeedUps(cases, measurements, out);
}

} // namespace kip_bench
