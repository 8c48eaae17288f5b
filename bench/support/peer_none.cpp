#include "support/peer.h"

namespace kip_bench {

bool hasPeer()
{
    return false;
}

std::string peerVersion()
{
    return "";
}

void setPeerThreads(int) {}

std::function<void()> preparePeer(const PeerTransform &)
{
    return [] {};
}

std::function<void()> preparePeerProjection(const PeerTransform &, void *)
{
    return [] {};
}

std::function<void()> preparePeerTurn(const PeerTurn &)
{
    return [] {};
}

std::function<void()> preparePeerSums(const PeerSums &)
{
    return [] {};
}

} // namespace kip_bench
