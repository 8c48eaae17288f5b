#ifndef KIP_BENCH_SUPPORT_PEER_H
#define KIP_BENCH_SUPPORT_PEER_H

#include <functional>
#include <string>

#include <kip/kip.h>

#include "support/scene.h"

namespace kip_bench {

// The same resampling by the peer library, into all of the destination.
struct PeerTransform {
    uint32_t mode; // of kip; the peer's nearest relative runs
    const Pixels &source;
    const Pixels &destination;
    const kmath_shapeAffineRect &rect; // in source pixels, (p, q) covering [p, p + 1) x [q, q + 1)
};

// The same turn by the peer library, of all pixels.
struct PeerTurn {
    kip_affine_imageAlignment alignCode; // any but the transpose of the half turn, which it does not have
    const Pixels &source;
    const Pixels &destination;
};

// The sums of the columns or rows of 8-bit pixels by the peer library.
struct PeerSums {
    const Pixels &source;
    bool ofColumns;
    uint32_t *sums;
};

// Tells whether the program was built with the peer.
bool hasPeer();

// Name and version, empty without a peer.
std::string peerVersion();

// Sets the number of threads that the peer works on from now on.
void setPeerThreads(int count);

// Makes the call that is to be timed; it works in the memory of the given pixels.
std::function<void()> preparePeer(const PeerTransform &work);
// The sums of the columns of what the resampling makes; int32_t for 8-bit pixels, float for 16-bit ones.
std::function<void()> preparePeerProjection(const PeerTransform &work, void *sums);
std::function<void()> preparePeerTurn(const PeerTurn &work);
std::function<void()> preparePeerSums(const PeerSums &work);

} // namespace kip_bench

#endif
