// Clean-up lists: the temporaries of one call, released in reverse order on every way out.

#include <ksys/ksys.h>

int32_t ksys_cleanupExecute_(ksys_cleanupEntry *entries, int32_t *count, int32_t *status)
{
    for (int32_t i = *count; i-- > 0;) {
        ksys_cleanupEntry &entry = entries[i];
        const bool isBlock = entry.kind == ksys_cleanupBlock;
        const int32_t released = entry.routine(isBlock ? static_cast<void *>(&entry.object) : entry.object);
        if (released < 0 && *status >= 0)
            *status = released;
    }
    *count = 0;
    return *status;
}
