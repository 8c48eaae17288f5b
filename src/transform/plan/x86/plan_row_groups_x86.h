#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_ROW_GROUPS_X86_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_ROW_GROUPS_X86_H

// What the row-group kernels of all instruction sets share.
//
// A group first copies its footprint into lines that follow the shear: in column m of the copy, everything is moved up
// by the integer part of sample m's position in row 0. All samples of a row then lie between two neighbouring lines
// of the copy and the next two, and whether it is the upper or the lower two is the carry of adding the fractions of
// column and row. No lane searches for its line, whatever the angle.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "transform/plan/plan_row_groups.h"

namespace kip {

// ---- The copy of a group's footprint
// -------------------------------------------------------------------------------------------

// Columns and lines count from the first ones of the copy.
struct CopyLayout {
    int32_t firstColumn; // of the samples, counted from sample 0 of row 0
    int32_t columns;
    int32_t firstLine; // of the taps, before a column's own integer part is added
    int32_t lines;
    int32_t leastRowLine;
    int32_t rowColumns; // samples of a row

    int32_t pitch() const { return (columns + 63) / 64 * 64; }
};

template <typename Pixel>
inline int32_t columnOfRow(const RowGroup<Pixel> &group, int32_t j)
{
    return (group.outputPosition + j * group.outputRowStep) >> 16;
}

template <typename Pixel>
inline int32_t lineOfRow(const RowGroup<Pixel> &group, int32_t j)
{
    return (j * group.positionRowStep) >> 16;
}

template <typename Rule>
inline CopyLayout layOutCopy(const RowGroup<typename Rule::Pixel> &group)
{
    const int32_t lastColumn = columnOfRow(group, group.rows - 1);
    const int32_t lastLine = lineOfRow(group, group.rows - 1);
    const int32_t samples = countGroupSamples<Rule>(group);
    return {std::min(lastColumn, 0) - (Rule::kCubic ? 1 : 0),
            std::abs(lastColumn) + samples,
            std::min(lastLine, 0) + Rule::kFirstTap,
            std::abs(lastLine) + 1 + Rule::kTaps,
            std::min(lastLine, 0),
            samples};
}

// The rows whose samples touch some columns of the copy, in the order in which rows move along the columns.
template <typename Pixel>
struct TouchingRows {
    const RowGroup<Pixel> &group;
    const CopyLayout &layout;
    int32_t first = 0;
    int32_t last = -1;

    int32_t row(int32_t n) const { return group.outputRowStep >= 0 ? n : group.rows - 1 - n; }
    // The first column of row n.
    int32_t column(int32_t n) const
    {
        return columnOfRow(group, row(n)) - std::min(columnOfRow(group, group.rows - 1), 0);
    }
    // Moves on to columns that lie no further left than those before.
    void moveTo(int32_t from, int32_t to)
    {
        while (last + 1 < group.rows && column(last + 1) <= to)
            ++last;
        while (first < last && column(first) + layout.rowColumns <= from)
            ++first;
    }
};

constexpr int32_t kMostColumns = 256;
constexpr int32_t kMostLines = 80; // whole blocks of lines

// Copies what the samples of some columns read, and no more than their taps: where the source ends.
template <typename Rule>
inline void copyColumnsExactly(const RowGroup<typename Rule::Pixel> &group, const CopyLayout &layout,
                               TouchingRows<typename Rule::Pixel> rows, int32_t from, int32_t to,
                               typename Rule::Pixel *copy)
{
    for (int32_t x = from; x < to; ++x) {
        rows.moveTo(x, to - 1);
        int32_t last = rows.last;
        while (last > rows.first && rows.column(last) > x)
            --last;
        if (rows.column(last) > x || rows.column(rows.first) + layout.rowColumns <= x)
            continue;
        const int32_t m = layout.firstColumn + x;
        const int64_t column = group.position + int64_t{m} * group.shear;
        const int64_t one = column + int64_t{rows.row(rows.first)} * group.positionRowStep;
        const int64_t other = column + int64_t{rows.row(last)} * group.positionRowStep;
        const int64_t end = (std::max(one, other) >> 16) + Rule::kFirstTap + Rule::kTaps;
        for (int64_t line = (std::min(one, other) >> 16) + Rule::kFirstTap; line < end; ++line)
            copy[(line - (column >> 16) - layout.firstLine) * layout.pitch() + x] =
                group.origin[m * group.majorStep + line * group.minorStep];
    }
}

// Some neighbouring columns of a copy. Column i lies i * majorStep from src and starts
// ((position + i * shear) >> 16) - uppermost lines further down, at most spread of them.
template <typename Pixel>
struct CopyBlock {
    const Pixel *src;
    int64_t majorStep, minorStep;
    int64_t position;
    int32_t shear;
    int64_t uppermost;
    int32_t spread;
    int32_t count; // lines to copy
    Pixel *copy;
    int64_t copyPitch;

    int32_t start(int32_t i) const { return static_cast<int32_t>(((position + int64_t{i} * shear) >> 16) - uppermost); }
};

// Copier: how an instruction set copies blocks,
//   kColumns                   of a block
//   linesRead(block)           from the uppermost line on
//   straighten(block)          columns lie next to each other
//   transpose(block)           columns lie along the source's rows
template <typename Rule, typename Copier>
inline void copyFootprint(const RowGroup<typename Rule::Pixel> &group, const CopyLayout &layout,
                          typename Rule::Pixel *copy)
{
    using Pixel = typename Rule::Pixel;
    constexpr int32_t columns = Copier::kColumns;
    const int64_t pitch = layout.pitch();
    TouchingRows<Pixel> rows = {group, layout};
    if (layout.columns < columns)
        return copyColumnsExactly<Rule>(group, layout, rows, 0, layout.columns, copy);
    for (int32_t begin = 0; begin < layout.columns; begin += columns) {
        const int32_t x = std::min(begin, layout.columns - columns);
        rows.moveTo(x, x + columns - 1);
        const int32_t oneLine = lineOfRow(group, rows.row(rows.first)) - layout.leastRowLine;
        const int32_t otherLine = lineOfRow(group, rows.row(rows.last)) - layout.leastRowLine;
        const int32_t line = std::min(oneLine, otherLine);

        const int32_t m = layout.firstColumn + x;
        const int64_t position = group.position + int64_t{m} * group.shear;
        const int64_t left = position >> 16;
        const int64_t right = (position + int64_t{columns - 1} * group.shear) >> 16;
        const int64_t firstLine = std::min(left, right) + layout.firstLine + line;
        const CopyBlock<Pixel> block = {group.origin + m * group.majorStep + firstLine * group.minorStep,
                                        group.majorStep,
                                        group.minorStep,
                                        position,
                                        group.shear,
                                        std::min(left, right),
                                        static_cast<int32_t>(std::abs(right - left)),
                                        std::abs(oneLine - otherLine) + 1 + Rule::kTaps,
                                        copy + line * pitch + x,
                                        pitch};
        if (firstLine < group.leastLine || firstLine + Copier::linesRead(block) - 1 > group.greatestLine)
            copyColumnsExactly<Rule>(group, layout, rows, x, x + columns, copy);
        else if (group.minorStep == 1)
            Copier::transpose(block);
        else
            Copier::straighten(block);
    }
}

// ---- The walk -----------------------------------------------------------------------------------------------------

constexpr int32_t kRowsAtATime = 8;
// A kernel may compute up to 64 samples more than the row needs, from places of the copy that nothing was written to:
// a sample follows from its own column alone, and no pixel takes one of these.
constexpr int32_t kMostSamples = 2 * kGroupWidth + 64;

// The taps of a row's samples. Tap k of sample x lies in line k of the copy, or in the next one if the sum of both
// fractions carries.
template <typename Pixel>
struct RowTaps {
    const Pixel *copy;
    const uint16_t *columnFractions;
    uint32_t rowFraction;
    int32_t count;
};

// A row's pixels.
struct RowOutput {
    int32_t position; // of the first one: a fraction
    void *dst;
};

// Kernel: the two passes of a rule and depth, for several rows in a call as calls are not inlined here,
//   Rule, Copier
//   Line                                    what is kept of a row between the passes
//   Kernel(group)
//   sampleRows(taps, pitch, rows, lines)
//   outputRows(lines, rows, width, outputs)
template <typename Kernel>
inline void resampleRowGroup(const RowGroup<typename Kernel::Rule::Pixel> &group)
{
    using Rule = typename Kernel::Rule;
    using Pixel = typename Rule::Pixel;
    const CopyLayout layout = layOutCopy<Rule>(group);
    const int64_t pitch = layout.pitch();
    alignas(64) Pixel copy[kMostLines * kMostColumns + 64];
    alignas(64) uint16_t columnFractions[kMostColumns + 64];
    typename Kernel::Line lines[kRowsAtATime];
    const Kernel kernel(group);

    copyFootprint<Rule, typename Kernel::Copier>(group, layout, copy);
    const auto shear = static_cast<uint32_t>(group.shear);
    const auto start = static_cast<uint32_t>(group.position + int64_t{layout.firstColumn} * group.shear);
    for (int32_t x = 0; x < layout.columns; ++x)
        columnFractions[x] = static_cast<uint16_t>(start + static_cast<uint32_t>(x) * shear);
    const int32_t firstSample = layout.firstColumn + (Rule::kCubic ? 1 : 0);
    const Pixel *const firstTaps = copy - layout.leastRowLine * pitch - firstSample;
    int32_t along = group.outputPosition;
    int32_t across = 0;
    auto *dst = static_cast<uint8_t *>(group.dst);
    for (int32_t from = 0; from < group.rows; from += kRowsAtATime) {
        RowTaps<Pixel> taps[kRowsAtATime];
        RowOutput outputs[kRowsAtATime];
        const int32_t rows = std::min(kRowsAtATime, group.rows - from);
        for (int32_t i = 0; i < rows; ++i) {
            const int32_t column = along >> 16;
            const int32_t fraction = along & 0xFFFF;
            taps[i] = {firstTaps + (across >> 16) * pitch + column, columnFractions + (column - firstSample),
                       static_cast<uint32_t>(across) & 0xFFFF,
                       ((fraction + group.outputStep * (group.width - 1)) >> 16) + Rule::kTaps};
            outputs[i] = {fraction, dst};
            along += group.outputRowStep;
            across += group.positionRowStep;
            dst += group.rowAdvance;
        }
        group.ahead.prefetch(group.firstRow + from, group.firstRow + from + rows, group.tileRows);
        kernel.sampleRows(taps, pitch, rows, lines);
        kernel.outputRows(lines, rows, group.width, outputs);
    }
}

} // namespace kip

#endif
