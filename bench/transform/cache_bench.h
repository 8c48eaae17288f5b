#ifndef KIP_BENCH_TRANSFORM_CACHE_BENCH_H
#define KIP_BENCH_TRANSFORM_CACHE_BENCH_H

namespace kip_bench {

// Registers small transforms of one rectangle with a cache ("kept"), without one ("none"), and of two rectangles in
// turn with a cache ("changing"): cache/bilinear/u8/64/kept.
void registerCacheUses();

} // namespace kip_bench

#endif
