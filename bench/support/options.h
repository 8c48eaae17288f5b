#ifndef KIP_BENCH_SUPPORT_OPTIONS_H
#define KIP_BENCH_SUPPORT_OPTIONS_H

#include <string>
#include <vector>

namespace kip_bench {

// What the program takes besides the flags of Google Benchmark.
struct Options {
    int rounds = 5;     // times that every case is measured
    bool sweep = false; // every combination instead of the selection
    bool plain = false; // Google Benchmark's own output, without rounds and tables
    bool help = false;
    std::string level; // instruction set that the library may use at most; empty: all that the processor has
};

// Takes the program's own flags out of the arguments. Returns an error message, or an empty string.
std::string takeOptions(std::vector<std::string> *arguments, Options *options);

// Makes the library see a processor of a level. Returns an error message, or an empty string.
std::string applyLevel(const std::string &level);

// The level that the library sees now.
std::string currentLevel();

extern const char *const kHelp;

} // namespace kip_bench

#endif
