#ifndef KIP_SUPPORT_CLEANUP_LIST_H
#define KIP_SUPPORT_CLEANUP_LIST_H

#include <ksys/ksys.h>

namespace kip {

// The temporaries of one call. Eight is more than any operation takes; operations add unconditionally.
struct CleanupList {
    ksys_cleanupEntry entries[8];
    int32_t count = 0;
};

// Gives a typed release function the signature that the list calls.
template <auto Release>
struct CleanupRoutine;

template <typename Object, int32_t (*Release)(Object *)>
struct CleanupRoutine<Release> {
    static int32_t run(void *object) { return Release(static_cast<Object *>(object)); }
};

// Registers an object the moment it exists; Release(object) runs when the list does.
template <auto Release, typename Object>
void addCleanup(CleanupList &list, Object *object)
{
    list.entries[list.count] = {list.count, ksys_cleanupObject, object, CleanupRoutine<Release>::run};
    ++list.count;
}

// Releases everything on the list; returns the call's status as it stands afterwards.
inline int32_t runCleanup(CleanupList &list, int32_t status)
{
    ksys_cleanupExecute_(list.entries, &list.count, &status);
    return status;
}

} // namespace kip

#endif
