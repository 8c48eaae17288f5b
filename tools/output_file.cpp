#include "output_file.h"

#include "failure.h"

#include <cerrno>
#include <cstdio>
#include <random>
#include <string>
#include <system_error>
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#endif

namespace kiptool {
namespace {

namespace fs = std::filesystem;

std::string reasonOf(int errorNumber)
{
    return std::generic_category().message(errorNumber);
}

// Creates a file that did not exist, so that nobody's file or link of that name is written through.
std::FILE *createNew(const fs::path &path)
{
#if defined(_WIN32)
    const int descriptor = _wopen(path.c_str(), _O_CREAT | _O_EXCL | _O_WRONLY | _O_BINARY, _S_IREAD | _S_IWRITE);
    return descriptor < 0 ? nullptr : _fdopen(descriptor, "wb");
#else
    return std::fopen(path.c_str(), "wbx");
#endif
}

// Takes the temporary file away again unless it has got its final name.
struct Temporary {
    fs::path path;
    std::FILE *file = nullptr;

    ~Temporary()
    {
        if (file != nullptr)
            (void)std::fclose(file);
        std::error_code ignored;
        if (!path.empty())
            fs::remove(path, ignored);
    }
};

void openBeside(Temporary &temporary, const fs::path &target)
{
    std::random_device random;
    for (int tries = 0; temporary.file == nullptr; ++tries) {
        fs::path name = target;
        name.replace_filename(target.filename().string().append(".").append(std::to_string(random())).append(".tmp"));
        temporary.file = createNew(name);
        if (temporary.file != nullptr)
            temporary.path = name;
        else if (errno != EEXIST || tries == 100)
            throw Failure("cannot be written: " + reasonOf(errno));
    }
}

} // namespace

void writeFileWhole(const fs::path &path, std::span<const uint8_t> bytes)
{
    std::error_code error;
    fs::path target = path;
    if (fs::is_symlink(path, error)) {
        target = fs::weakly_canonical(path, error);
        if (error)
            throw Failure("cannot be written: " + error.message());
    }
    if (fs::exists(target, error) && !fs::is_regular_file(target, error))
        throw Failure("cannot be written: something that is not a file has this name");

    Temporary temporary;
    openBeside(temporary, target);
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), temporary.file) == bytes.size();
    const int writeError = errno;
    const bool closed = std::fclose(temporary.file) == 0; // a full disk may show only here
    const int closeError = errno;
    temporary.file = nullptr;
    if (!written || !closed)
        throw Failure("cannot be written: " + reasonOf(written ? closeError : writeError));
    fs::rename(temporary.path, target, error);
    if (error)
        throw Failure("cannot be written: " + error.message());
    temporary.path.clear();
}

void writeStandardOutput(std::span<const uint8_t> bytes)
{
#if defined(_WIN32)
    (void)_setmode(_fileno(stdout), _O_BINARY);
#endif
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0)
        throw Failure("cannot be written: " + reasonOf(errno));
}

} // namespace kiptool
