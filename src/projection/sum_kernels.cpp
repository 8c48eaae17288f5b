#include "projection/sum_kernels.h"

#include <ksys/ksys.h>

namespace kip {

SumKernels8 sumKernels8([[maybe_unused]] uint32_t features)
{
    SumKernels8 kernels = {addRowsToPartialsPortable, widenPartialsPortable, sumRowsPortable<uint8_t>};
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featurePackedInteger) != 0)
        kernels = {addRowsToPartialsSse2, widenPartialsSse2, sumRowsSse2};
    if ((features & ksys_featureAvx2) != 0)
        kernels = {addRowsToPartialsAvx2, widenPartialsAvx2, sumRowsAvx2};
    if ((features & ksys_featureAvx512) != 0)
        kernels = {addRowsToPartialsAvx512, widenPartialsAvx512, sumRowsAvx512};
#endif
    return kernels;
}

template <typename Pixel>
void sumColumnsPortable(PixelRows<Pixel> rows, SumRow sums)
{
    for (int32_t y = 0; y < rows.height; ++y)
        for (int32_t x = 0; x < rows.width; ++x)
            sums.add(x, rows.get(x, y));
}

template <typename Pixel>
void sumRowsPortable(const PixelRows<Pixel> &rows, SumRow sums, int32_t step)
{
    for (int32_t y = 0; y < rows.height; ++y) {
        uint32_t sum = 0;
        for (int32_t x = 0; x < rows.width; ++x)
            sum += rows.get(x, y);
        sums.set(int64_t{y} * step, sum);
    }
}

template void sumColumnsPortable(PixelRows<uint8_t> rows, SumRow sums);
template void sumColumnsPortable(PixelRows<uint16_t> rows, SumRow sums);
template void sumRowsPortable(const PixelRows<uint8_t> &rows, SumRow sums, int32_t step);
template void sumRowsPortable(const PixelRows<uint16_t> &rows, SumRow sums, int32_t step);

void addRowsToPartialsPortable(const PixelRows8 &rows, uint16_t *partials)
{
    for (int32_t y = 0; y < rows.height; ++y)
        for (int32_t x = 0; x < rows.width; ++x)
            partials[x] = static_cast<uint16_t>(partials[x] + rows.get(x, y));
}

void widenPartialsPortable(uint16_t *partials, int32_t width, SumRow sums)
{
    for (int32_t x = 0; x < width; ++x) {
        sums.add(x, partials[x]);
        partials[x] = 0;
    }
}

} // namespace kip
