#ifndef KIP_SUPPORT_SAMPLING_H
#define KIP_SUPPORT_SAMPLING_H

#include <cstdint>

#include <kip/kip.h>

namespace kip {

// One sampling as all stages of a call see it: what is sampled, how, and where the samples go. It refers to the call's
// own variables, so it lives no longer than these.
struct Sampling {
    const kimg_windowConst &source;
    const kmath_xformLinear &srcFromClient; // from client coordinates to the pixel coordinates of the source's image
    kimg_window &destination;               // storing: destWidth x destHeight pixels, or a band of them;
                                            // adding: a row of destWidth uint32_t sums
    const kip_affineSampleParams &params;
    kip_affineSampleCache &cache; // brought up to date before anything is resampled, from then on only read
    uint32_t accumulate;          // 0: samples are stored; 1: each one is added to the sum of its column

    // Of a job that shares the sampling with others.
    int32_t addedRows = 0;   // adding: the rows of its band; 0: all destHeight
    void *scratch = nullptr; // of its own, as large as the plan's; null: the plan's

    bool adds() const { return accumulate != 0; }
    // The rows of samples, from row -originY of the destination on.
    int32_t rows() const
    {
        if (!adds())
            return destination.height;
        return addedRows > 0 ? addedRows : params.destHeight;
    }
};

} // namespace kip

#endif
