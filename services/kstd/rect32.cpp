#include <kstd/kstd.h>

#include <cstdint>
#include <limits>

int32_t kstd_rect32_init(kstd_rect32 *rect, int32_t x, int32_t y, int32_t width, int32_t height)
{
    if (width < 0 || height < 0)
        return kstd_statusNegativeSize;
    constexpr int64_t kGreatest = std::numeric_limits<int32_t>::max();
    if (int64_t{x} + width > kGreatest || int64_t{y} + height > kGreatest)
        return kstd_statusTooLarge;
    *rect = {x, y, width, height};
    return 0;
}

int32_t kstd_rect32_compare(const kstd_rect32 *a, const kstd_rect32 *b, int32_t *result)
{
    const bool equal = a->x == b->x && a->y == b->y && a->width == b->width && a->height == b->height;
    *result = equal ? 0 : 1;
    return 0;
}
