#ifndef KIP_TOOLS_INPUT_H
#define KIP_TOOLS_INPUT_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <vector>

namespace kiptool {

/**
 * The bytes of a file, read only as they are asked for, so that a large one need not be in memory beside its picture;
 * or bytes that are in memory. For one thread.
 */
class Input {
public:
    /** Opens a file; ends with a Failure, without its name. */
    explicit Input(const std::filesystem::path &path);

    /** Over bytes that must outlive it. */
    explicit Input(std::span<const uint8_t> bytes);

    uint64_t size() const { return length; }

    /** Copies bytes from a position, as many as there are up to count; returns how many. */
    size_t read(uint64_t position, void *to, size_t count) noexcept;

private:
    std::ifstream stream;
    std::span<const uint8_t> memory; // in place of the stream
    uint64_t length = 0;
    uint64_t streamPosition = 0;
};

/** All that comes through the standard input. */
std::vector<uint8_t> readStandardInput();

} // namespace kiptool

#endif
