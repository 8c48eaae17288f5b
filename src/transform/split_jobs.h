#ifndef KIP_TRANSFORM_SPLIT_JOBS_H
#define KIP_TRANSFORM_SPLIT_JOBS_H

#include <cstdint>

#include <ksys/ksys.h>

#include "support/sampling.h"
#include "transform/route.h"

namespace kip {

// Tells whether a sampling is worth that.
bool isWorthSplit(const Sampling &sampling, const Route &route);

// Resamples in bands of one row of tiles, stored or added, on the threads of a group, where bands need memory of each
// thread's own: the scratch of a plan, or sums, which are added up in the end. The cache lends it. For uint8_t and
// uint16_t.
//
//   sampling     whole: of all of its rows; sums need not be zeroed
//   isInhibited  whether the optimised path is forbidden
//   route        the one taken then, which may be cut
//   threadCount  what the group offers
// Returns the first failure of taking memory, of the weight table or of queueing the jobs, with nothing written, or the
// status of the dispatch; sums are written only if that is none.
template <typename Pixel>
int32_t runSplit(const Sampling &sampling, bool isInhibited, const Route &route, ksys_jobThreadGroup *group,
                 int32_t threadCount);

} // namespace kip

#endif
