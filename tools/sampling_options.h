#ifndef KIP_TOOLS_SAMPLING_OPTIONS_H
#define KIP_TOOLS_SAMPLING_OPTIONS_H

#include "parse.h"

#include <CLI/CLI.hpp>
#include <kip/kip.h>
#include <optional>
#include <string>

namespace kiptool {

/** The options of every command that samples a rectangle: what to sample and how. */
struct SamplingOptions {
    kmath_shapeAffineRect upright{}; /**< --rect */
    double angle = 0;                /**< --angle, degrees, turns --rect about its centre */
    std::optional<kmath_shapeAffineRectPoints> corners;
    std::optional<Size> size;
    uint32_t mode = kip_affineModeBilinear;
    int32_t threads = 0;
};

/** Adds --rect, --angle, --corners, --size, --mode and --threads; options must outlive the command. */
void addSamplingOptions(CLI::App &command, SamplingOptions &options);

/**
 * Makes an upright rectangle turned about its centre, clockwise as seen on screen; quarter turns are exact. A Failure
 * when it leaves the range of numbers.
 */
kmath_shapeAffineRect turnedRectangle(const kmath_shapeAffineRect &upright, double degrees);

/** The record for the library; the thread count is set. A Failure when the geometry has no meaning. */
kip_affineSampleParams makeSampling(const SamplingOptions &options);

/** A mode's name on the command line. */
std::string modeName(uint32_t mode);

} // namespace kiptool

#endif
