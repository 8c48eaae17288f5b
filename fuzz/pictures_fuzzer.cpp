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

void readAndWrite(std::span<const uint8_t> file)
{
    using namespace kiptool;
    Input input(file);
    decodePages(input, kEveryPage, [](const PictureFile &page) {
        const Picture &picture = page.picture;
        if (int64_t{picture.width} * picture.height > int64_t{1} << 14) // compressing takes long
            return;
        const std::vector<uint8_t> written = page.format == Format::png   ? encodePng(picture)
                                             : page.format == Format::pgm ? encodePgm(picture)
                                                                          : encodeTiff(picture);
        Input again(written);
        decodePages(again, 1, [&picture](const PictureFile &file) {
            const Picture &back = file.picture;
            if (back.samples != picture.samples || back.width != picture.width || back.channels != picture.channels)
                std::abort();
        });
    });
}

} // namespace

void *operator new(size_t size)
{
    void *block = isBounded && size > kMaxBlockBytes ? nullptr : std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

// The operators that release are the sanitizer's own.
extern "C" const char *__asan_default_options()
{
    return "alloc_dealloc_mismatch=0";
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
