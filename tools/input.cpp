#include "input.h"

#include "failure.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#endif

namespace kiptool {

Input::Input(const std::filesystem::path &path)
{
    std::error_code error;
    if (!std::filesystem::exists(path, error))
        throw Failure("no such file");
    if (!std::filesystem::is_regular_file(path, error))
        throw Failure("not a file");
    length = std::filesystem::file_size(path, error);
    if (error)
        throw Failure(error.message());
    stream.open(path, std::ios::binary);
    if (!stream)
        throw Failure("cannot be read");
}

Input::Input(std::span<const uint8_t> bytes) : memory(bytes), length(bytes.size()) {}

size_t Input::read(uint64_t position, void *to, size_t count) noexcept
{
    if (position >= length || count == 0)
        return 0;
    count = static_cast<size_t>(std::min<uint64_t>(count, length - position));
    if (!stream.is_open()) {
        std::memcpy(to, memory.data() + position, count);
        return count;
    }
    // A seek would throw the stream's buffer away.
    if (position != streamPosition)
        stream.seekg(static_cast<std::streamoff>(position));
    stream.read(static_cast<char *>(to), static_cast<std::streamsize>(count));
    const auto taken = static_cast<size_t>(stream.gcount());
    streamPosition = position + taken;
    if (!stream) { // a file that has become shorter, or a disk that fails
        stream.clear();
        streamPosition = length; // a place that is never asked for
    }
    return taken;
}

std::vector<uint8_t> readStandardInput()
{
#if defined(_WIN32)
    (void)_setmode(_fileno(stdin), _O_BINARY);
#endif
    std::vector<uint8_t> bytes;
    for (size_t count = 0, taken = 1; taken > 0; count += taken) {
        bytes.resize(std::max<size_t>(2 * count, 1 << 16));
        taken = std::fread(bytes.data() + count, 1, bytes.size() - count, stdin);
        if (taken == 0)
            bytes.resize(count);
    }
    if (std::ferror(stdin) != 0)
        throw Failure("cannot be read");
    return bytes;
}

} // namespace kiptool
