#include <kimg/kimg.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <kimg/image_state.h>

namespace {

// Columns or rows [begin, end), in 64 bits so that no end overflows. A size below 0 makes an empty one.
struct Span {
    int64_t begin, end;

    bool isEmpty() const { return begin >= end; }
    int32_t size() const { return static_cast<int32_t>(end - begin); }
};

Span spanOf(int32_t place, int32_t size)
{
    return {place, int64_t{place} + size};
}

Span intersect(Span a, Span b)
{
    return {std::max(a.begin, b.begin), std::min(a.end, b.end)};
}

template <typename Window>
int32_t initOverImage(Window *window, const kimg_image *image)
{
    *window = {};
    if (!image->state || !image->state->pixels)
        return 0;
    window->width = image->width;
    window->height = image->height;
    window->x = image->x;
    window->y = image->y;
    window->fullWidth = image->width;
    window->fullHeight = image->height;
    window->pitch = image->state->pitch;
    window->pixels = image->state->pixels;
    window->bytesPerPixel = image->state->bytesPerPixel;
    return 0;
}

template <typename Window>
int32_t narrow(Window *window, int32_t x, int32_t y, int32_t width, int32_t height, int32_t *clipped)
{
    using Byte = std::conditional_t<std::is_same_v<Window, kimg_window>, unsigned char, const unsigned char>;
    const Span askedColumns = spanOf(x, width);
    const Span askedRows = spanOf(y, height);
    const Span columns = intersect(spanOf(window->x, window->width), askedColumns);
    const Span rows = intersect(spanOf(window->y, window->height), askedRows);
    const bool empty = columns.isEmpty() || rows.isEmpty();
    if (clipped) {
        const bool asked = !askedColumns.isEmpty() && !askedRows.isEmpty();
        *clipped = asked && (empty || columns.size() < width || rows.size() < height) ? 1 : 0;
    }
    if (empty) {
        // Place and pixels stay: an address beyond the pixels must not even be formed.
        window->width = 0;
        window->height = 0;
        return 0;
    }
    const int64_t skipped = (rows.begin - window->y) * window->pitch + (columns.begin - window->x);
    if (window->pixels)
        window->pixels = static_cast<Byte *>(window->pixels) + skipped * window->bytesPerPixel;
    window->x = static_cast<int32_t>(columns.begin);
    window->y = static_cast<int32_t>(rows.begin);
    window->width = columns.size();
    window->height = rows.size();
    return 0;
}

// Of two images or two windows.
template <typename Record>
int32_t findCommon(const Record *a, const Record *b, kstd_rect32 *common, int32_t *empty)
{
    const Span columns = intersect(spanOf(a->x, a->width), spanOf(b->x, b->width));
    const Span rows = intersect(spanOf(a->y, a->height), spanOf(b->y, b->height));
    const bool none = columns.isEmpty() || rows.isEmpty();
    *empty = none ? 1 : 0;
    *common = {};
    if (!none)
        *common = {static_cast<int32_t>(columns.begin), static_cast<int32_t>(rows.begin), columns.size(), rows.size()};
    return 0;
}

} // namespace

int32_t kimg_window_init(kimg_window *window, const kimg_image *image)
{
    return initOverImage(window, image);
}

int32_t kimg_windowConst_init(kimg_windowConst *window, const kimg_imageConst *image)
{
    return initOverImage(window, image);
}

int32_t kimg_window_initUnbound(kimg_window *window)
{
    *window = {};
    return 0;
}

int32_t kimg_window_initWindow(kimg_window *window, const kimg_image *image, const kstd_rect32 *rect, int32_t flags)
{
    const int32_t status = kimg_window_init(window, image);
    return status < 0 ? status : kimg_window_windowRect(window, rect, flags);
}

int32_t kimg_window_window(kimg_window *window, int32_t x, int32_t y, int32_t width, int32_t height, int32_t *clipped)
{
    return narrow(window, x, y, width, height, clipped);
}

int32_t kimg_windowConst_window(kimg_windowConst *window, int32_t x, int32_t y, int32_t width, int32_t height,
                                int32_t *clipped)
{
    return narrow(window, x, y, width, height, clipped);
}

int32_t kimg_window_windowRect(kimg_window *window, const kstd_rect32 *rect, [[maybe_unused]] int32_t flags)
{
    return narrow(window, rect->x, rect->y, rect->width, rect->height, nullptr);
}

int32_t kimg_imageConst_gcr(const kimg_imageConst *a, const kimg_imageConst *b, kstd_rect32 *common, int32_t *empty)
{
    return findCommon(a, b, common, empty);
}

int32_t kimg_windowConst_gcr(const kimg_windowConst *a, const kimg_windowConst *b, kstd_rect32 *common, int32_t *empty)
{
    return findCommon(a, b, common, empty);
}
