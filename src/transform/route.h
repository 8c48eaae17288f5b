#ifndef KIP_TRANSFORM_ROUTE_H
#define KIP_TRANSFORM_ROUTE_H

#include <cstdint>

#include "support/sampling.h"

namespace kip {

// The two ways of resampling a call: the optimised one, which the inhibit hook can forbid and which declines what it
// does not serve, and the portable one, which serves whatever can be served at all.
enum class Path { optimised, portable };

// What carries a sampling from one piece of the destination to the next.
enum class Walker {
    fixed,     // tiles, 16.16 positions
    fast,      // tiles, 16.16 positions with saturating steps: the optimised 8-bit path's bilinear
    rebased,   // tiles, 16.16 positions from each tile's own source pixel
    inDoubles, // tiles, positions in doubles
    plan,      // the tiles of the cache's plan: the table-driven modes
};

// How a path resamples a call. All that has to agree on it asks findRoute: the path itself, and who cuts its work.
struct Route {
    Walker walker;
    int32_t tileSize; // destination rows of a tile, which has as many columns unless it is a plan's
    bool mayBeCut;    // into bands of tileSize rows: each then gives the bits that it has in one walk
};

// Finds the route of a sampling whose source has pixels of this type, uint8_t or uint16_t. Returns
// kip_statusOptimizationDeclined where the optimised path does not serve it, kip_statusSourceTooLarge where nothing
// does, kip_statusUnknownMode for a mode above 3, or a status of the geometry.
template <typename Pixel>
int32_t findRoute(Path path, const Sampling &sampling, Route *route);

// The same for the path that resamples in the end: the portable one if the other is inhibited or declines.
template <typename Pixel>
int32_t findRouteTaken(bool isInhibited, const Sampling &sampling, Route *route);

// Tells whether a sampling of so many samples is worth a dispatch of bands.
bool isWorthJobs(const Sampling &sampling, const Route &route, int64_t samples);

} // namespace kip

#endif
