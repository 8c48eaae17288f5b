#include <kimg/kimg.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include <kimg/image_state.h>
#include <ksys/ksys.h>

constexpr int64_t kLineBytes = 64;

// Precedes the pixels in their block, a line long so that these are as aligned as the block.
struct alignas(kLineBytes) PixelStorage {
    std::atomic<int64_t> holders;
};

namespace {

constexpr int64_t kGreatestBytes = std::numeric_limits<ptrdiff_t>::max() - kLineBytes;
constexpr kmath_xformLinear kIdentity{0.0, 0.0, 1.0, 0.0, 0.0, 1.0};

void releaseStorage(PixelStorage *storage)
{
    // The last holder must see what the others wrote before it gives the memory back.
    if (!storage || storage->holders.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    storage->~PixelStorage();
    void *block = storage;
    ksys_memory_free_internal(&block);
}

void retainStorage(PixelStorage *storage)
{
    if (storage)
        storage->holders.fetch_add(1, std::memory_order_relaxed);
}

int32_t makeState(kimg_imageState **state)
{
    void *block = nullptr;
    const int32_t status = ksys_memory_alloc_internal(sizeof(kimg_imageState), &block);
    if (status < 0)
        return status;
    *state = new (block) kimg_imageState{nullptr, nullptr, 0, 0, kIdentity};
    return status;
}

// Gives the image a state unless it has one.
int32_t needState(kimg_image *image)
{
    return image->state ? 0 : makeState(&image->state);
}

int32_t checkShape(int32_t bytesPerPixel, int32_t width, int32_t height)
{
    if (bytesPerPixel != 1 && bytesPerPixel != 2 && bytesPerPixel != 4)
        return kimg_statusBadPixelSize;
    if (width < 1 || height < 1)
        return kimg_statusBadSize;
    return 0;
}

bool fitsMemory(int64_t pitch, int32_t height, int32_t bytesPerPixel)
{
    return std::abs(pitch) * height <= kGreatestBytes / bytesPerPixel; // the product is at most 2^62
}

// The pitch of the library's own pixels. Every row starts with a line of the cache, and rows do not lie a
// multiple of 512 bytes apart: a column of such an image would share a few sets of the first-level cache and
// evict itself. Rows shorter than a line are packed. A pitch does not exceed the 32767 that fixed-point
// positions reach unless the width does.
int32_t choosePitch(int32_t width, int32_t bytesPerPixel)
{
    const int64_t rowBytes = int64_t{width} * bytesPerPixel;
    if (rowBytes < kLineBytes)
        return width;
    int64_t pitchBytes = (rowBytes + kLineBytes - 1) / kLineBytes * kLineBytes;
    if (pitchBytes % 512 == 0)
        pitchBytes += kLineBytes;
    const int64_t pitch = pitchBytes / bytesPerPixel;
    const int64_t limit = width <= 32767 ? 32767 : std::numeric_limits<int32_t>::max();
    return pitch <= limit ? static_cast<int32_t>(pitch) : width;
}

// An operation that takes whole blocks of rows may take what lies between them, too, so that must not be what the
// memory held before. The pixels are for whoever writes them.
void clearGaps(unsigned char *pixels, size_t rowBytes, size_t pitchBytes, int32_t height)
{
    if (pitchBytes == rowBytes)
        return;
    for (int32_t row = 0; row < height; ++row, pixels += pitchBytes)
        std::memset(pixels + rowBytes, 0, pitchBytes - rowBytes);
}

int32_t makeStorage(PixelStorage **storage, int32_t width, int32_t pitch, int32_t height, int32_t bytesPerPixel)
{
    if (!fitsMemory(pitch, height, bytesPerPixel))
        return kimg_statusTooLarge;
    const auto rowBytes = static_cast<size_t>(int64_t{width} * bytesPerPixel);
    const auto pitchBytes = static_cast<size_t>(int64_t{pitch} * bytesPerPixel);
    void *block = nullptr;
    const int32_t status =
        ksys_memory_alloc_internal(sizeof(PixelStorage) + pitchBytes * static_cast<size_t>(height), &block);
    if (status < 0)
        return status;
    *storage = new (block) PixelStorage{{1}};
    clearGaps(static_cast<unsigned char *>(block) + sizeof(PixelStorage), rowBytes, pitchBytes, height);
    return status;
}

const kmath_xformLinear &clientMap(const kimg_image *image)
{
    return image->state ? image->state->client : kIdentity;
}

} // namespace

int32_t kimg_image_construct(kimg_image *image, int32_t bytesPerPixel, int32_t width, int32_t height)
{
    kimg_image_constructUnbound(image);
    return kimg_image_assignNew(image, bytesPerPixel, width, height);
}

int32_t kimg_image_constructUnbound(kimg_image *image)
{
    *image = {0, 0, 0, 0, nullptr};
    return 0;
}

int32_t kimg_image_constructExternal(kimg_image *image, int32_t bytesPerPixel, int32_t width, int32_t height,
                                     int32_t pitch, void *pixels)
{
    kimg_image_constructUnbound(image);
    int32_t status = checkShape(bytesPerPixel, width, height);
    if (status < 0)
        return status;
    if (std::abs(int64_t{pitch}) < width)
        return kimg_statusBadPitch;
    if (!fitsMemory(pitch, height, bytesPerPixel))
        return kimg_statusTooLarge;
    if (!pixels)
        return kimg_statusNoPixels;
    status = makeState(&image->state);
    if (status < 0)
        return status;
    image->state->pixels = pixels;
    image->state->pitch = pitch;
    image->state->bytesPerPixel = bytesPerPixel;
    image->width = width;
    image->height = height;
    return 0;
}

int32_t kimg_imageConst_constructExternal(kimg_imageConst *image, int32_t bytesPerPixel, int32_t width, int32_t height,
                                          int32_t pitch, const void *pixels)
{
    return kimg_image_constructExternal(image, bytesPerPixel, width, height, pitch, const_cast<void *>(pixels));
}

int32_t kimg_image_destruct(kimg_image *image)
{
    kimg_image_setUnbound(image);
    void *block = image->state;
    image->state = nullptr;
    return ksys_memory_free_internal(&block);
}

int32_t kimg_image_setUnbound(kimg_image *image)
{
    if (image->state) {
        releaseStorage(image->state->storage);
        *image->state = {nullptr, nullptr, 0, 0, image->state->client};
    }
    *image = {0, 0, 0, 0, image->state};
    return 0;
}

int32_t kimg_image_getIsBound(const kimg_image *image, int32_t *bound)
{
    *bound = image->state && image->state->pixels ? 1 : 0;
    return 0;
}

int32_t kimg_imageConst_getIsBound(const kimg_imageConst *image, int32_t *bound)
{
    return kimg_image_getIsBound(image, bound);
}

int32_t kimg_image_assignNew(kimg_image *image, int32_t bytesPerPixel, int32_t width, int32_t height)
{
    int32_t status = checkShape(bytesPerPixel, width, height);
    if (status < 0)
        return status;
    const int32_t pitch = choosePitch(width, bytesPerPixel);
    PixelStorage *storage = nullptr;
    status = makeStorage(&storage, width, pitch, height, bytesPerPixel);
    if (status < 0)
        return status;
    status = needState(image);
    if (status < 0) {
        releaseStorage(storage);
        return status;
    }
    releaseStorage(image->state->storage);
    *image->state = {storage, storage + 1, pitch, bytesPerPixel, image->state->client};
    *image = {width, height, 0, 0, image->state};
    return 0;
}

int32_t kimg_image_assign(kimg_image *destination, const kimg_imageConst *source)
{
    if (destination == source)
        return 0;
    if (source->state) {
        const int32_t status = needState(destination);
        if (status < 0)
            return status;
        retainStorage(source->state->storage); // first: both may hold the same pixels
        releaseStorage(destination->state->storage);
        *destination->state = *source->state;
    } else if (destination->state) {
        releaseStorage(destination->state->storage);
        *destination->state = {nullptr, nullptr, 0, 0, kIdentity};
    }
    *destination = {source->width, source->height, source->x, source->y, destination->state};
    return 0;
}

int32_t kimg_imageConst_getLinearImageFromClientXform(const kimg_imageConst *image, kmath_xformLinear *xform)
{
    *xform = clientMap(image);
    return 0;
}

int32_t kimg_image_setLinearImageFromClientXform(kimg_image *image, const kmath_xformLinear *xform)
{
    const int32_t status = needState(image);
    if (status < 0)
        return status;
    image->state->client = *xform;
    return 0;
}

int32_t kimg_image_copyXforms(kimg_image *destination, const kimg_imageConst *source)
{
    return kimg_image_setLinearImageFromClientXform(destination, &clientMap(source));
}
