#include <kstd/kstd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <ksys/ksys.h>

int32_t kstd_vector32_construct(kstd_vector32 *vector)
{
    *vector = {nullptr, 0, 0};
    return 0;
}

int32_t kstd_vector32_destruct(kstd_vector32 *vector)
{
    void *block = vector->begin;
    *vector = {nullptr, 0, 0};
    return ksys_memory_free_internal(&block);
}

// Room grows to exactly the length asked for and is kept when the vector shrinks: the users resize once a
// call, to the width of a rectangle, so that a vector that is used again takes no more memory.
int32_t kstd_vector32_resize(kstd_vector32 *vector, int32_t count)
{
    if (count < 0)
        return kstd_statusNegativeSize;
    if (count > vector->capacity) {
        void *block = vector->begin;
        const int32_t status = ksys_memory_realloc_internal(static_cast<size_t>(count) * sizeof(uint32_t), &block);
        if (status < 0)
            return status;
        vector->begin = static_cast<uint32_t *>(block);
        vector->capacity = count;
    }
    if (count > vector->size)
        std::fill(vector->begin + vector->size, vector->begin + count, 0u);
    vector->size = count;
    return 0;
}

int32_t kstd_vector32_getBegin(kstd_vector32 *vector, uint32_t **begin)
{
    *begin = vector->begin;
    return 0;
}

int32_t kstd_vector32_getSize(const kstd_vector32 *vector, int32_t *size)
{
    *size = vector->size;
    return 0;
}
