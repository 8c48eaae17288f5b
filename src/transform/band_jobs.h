#ifndef KIP_TRANSFORM_BAND_JOBS_H
#define KIP_TRANSFORM_BAND_JOBS_H

#include <cstdint>

#include "support/sampling.h"

namespace kip {

// The name under which the inhibit hook is asked about the optimised path of a pixel type, uint8_t or uint16_t.
template <typename Pixel>
inline constexpr const wchar_t *kInhibitName = sizeof(Pixel) == 1 ? L"kip_affineProcess" : L"kip_affineProcess16";

// Resamples a destination in bands of bandHeight rows that run as jobs, and returns when all of them are done. Each one
// asks the hook for itself. A band has to be exactly one row of tiles of the walker that runs it: only then does a job
// find the same start as the walk over the whole destination.
// Returns the first failure of queueing the jobs, with none of them run, or the status of the dispatch.
template <typename Pixel>
int32_t runBands(const Sampling &sampling, int32_t bandHeight, ksys_jobThreadGroup *group);

} // namespace kip

#endif
