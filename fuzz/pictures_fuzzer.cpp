// The tool's picture readers. Whatever they accept is written again and must come back unchanged.

#include <cstdlib>
#include <new>
#include <span>

#include "failure.h"
#include "picture_io.h"

namespace {

// A small file may stand for a picture of gigabytes: here there is no such memory, and the readers have to say so.
// The fuzzer's own memory is not bounded.
constexpr size_t kMaxBlockBytes = size_t{16} << 20;
bool isBounded = false;

bool isSmall(const kiptool::Picture &picture)
{
    return int64_t{picture.width} * picture.height <= int64_t{1} << 14;
}

void readAndWrite(std::span<const uint8_t> file)
{
    using namespace kiptool;
    Format format{};
    const Picture picture = decodePicture(file, &format);
    if (!isSmall(picture)) // compressing takes long
        return;
    const Picture back = format == Format::png    ? decodePng(encodePng(picture))
                         : format == Format::tiff ? decodeTiff(encodeTiff(picture))
                                                  : decodePgm(encodePgm(picture));
    if (back.samples != picture.samples || back.width != picture.width || back.channels != picture.channels)
        std::abort();
}

} // namespace

// The fuzzer takes memory by the form that throws nothing: it must have the same source as what the others release.
void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return isBounded && size > kMaxBlockBytes ? nullptr : std::malloc(size);
}

void *operator new(size_t size)
{
    void *block = operator new(size, std::nothrow);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void *block) noexcept
{
    std::free(block);
}

void operator delete(void *block, size_t) noexcept
{
    std::free(block);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    isBounded = true;
    try {
        readAndWrite({data, size});
    } catch (const kiptool::Failure &) { // refused with a reason
    } catch (const std::bad_alloc &) {   // readPicture gives this one its reason
    }
    isBounded = false;
    return 0;
}
