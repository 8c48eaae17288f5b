#ifndef KIP_TOOLS_TIMING_H
#define KIP_TOOLS_TIMING_H

#include <functional>
#include <string>

namespace kiptool {

/** How long one run of something took. */
struct Timing {
    double medianMilliseconds; /**< middle value of the repetitions */
    double bestMilliseconds;
    int runs; /**< how many were measured */
};

/**
 * Measures something that can be repeated: one run to warm up, then runs in batches that are long against
 * the clock's step, for half a second and five batches at least. A batch counts with its mean.
 */
Timing measure(const std::function<void()> &run);

/** The timing as text: milliseconds, and pixels a second for that many pixels a run. */
std::string describeTiming(const Timing &timing, double pixels);

} // namespace kiptool

#endif
