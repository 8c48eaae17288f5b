#include "projection/window_sums_packed.h"

#include <algorithm>
#include <cstddef>

#include <kip/kip.h>

#include "projection/sum_kernels.h"
#include "projection/sum_memory.h"
#include "support/cleanup_list.h"

namespace kip {

namespace {

constexpr int32_t kRowsPerWidening = 256; // of 255 each, they fill a 16-bit partial sum

// Packed integer instructions, on a kind of processor that has them.
bool isSuitable(const ksys_cpuinfo &processor)
{
    return (processor.kind == 1 || processor.kind == 5) && (processor.features & ksys_featurePackedInteger) != 0;
}

int32_t initKernels(SumKernels8 *kernels)
{
    ksys_cpuinfo processor;
    const int32_t status = ksys_cpuinfo_init(&processor);
    if (status < 0)
        return status;
    if (!isSuitable(processor))
        return kip_statusOptimizationDeclined;
    *kernels = sumKernels8(processor.features);
    return status;
}

void sumColumns(const SumKernels8 &kernels, const PixelRows8 &rows, uint16_t *partials, SumRow sums)
{
    for (int32_t y = 0; y < rows.height;) {
        const int32_t end = y + std::min(kRowsPerWidening, rows.height - y);
        while (y < end) {
            const int32_t count = std::min(kRowsPerBand, end - y);
            kernels.addRows({rows.row(y), rows.pitch, rows.width, count}, partials);
            y += count;
        }
        kernels.widen(partials, rows.width, sums);
    }
}

} // namespace

int32_t sumColumnsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums,
                          int32_t reverse)
{
    SumKernels8 kernels;
    int32_t status = initKernels(&kernels);
    if (status < 0)
        return status;

    CleanupList cleanup;
    void *partials = nullptr;
    const auto columns = static_cast<size_t>(width);
    status = ksys_memory_allocClear_internal(columns * sizeof(uint16_t) + 64, &partials);
    addCleanup<ksys_memory_free_internal>(cleanup, &partials);
    if (status >= 0)
        status = ksys_memory_fill(0, columns * sizeof(uint32_t), sums);
    if (status >= 0 && width > 0 && height > 0) {
        sumColumns(kernels, {first, pitch, width, height}, static_cast<uint16_t *>(partials), SumRow(sums));
        if (reverse != 0)
            reverseSums(SumRow(sums), width);
    }
    return runCleanup(cleanup, status);
}

int32_t sumRowsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums, int32_t reverse)
{
    SumKernels8 kernels;
    const int32_t status = initKernels(&kernels);
    if (status < 0 || height == 0)
        return status;
    if (width == 0)
        return ksys_memory_fill(0, static_cast<size_t>(height) * sizeof(uint32_t), sums);
    const SumRow rows(sums);
    if (reverse != 0)
        kernels.sumRows({first, pitch, width, height}, SumRow(rows.at(height - 1)), -1);
    else
        kernels.sumRows({first, pitch, width, height}, rows, 1);
    return status;
}

} // namespace kip
