// Memory, vectors of 32-bit values, clean-up lists, shutdown callbacks, processor information, attention, names of
// statuses.

#include <kstd/kprt.h>
#include <kstd/kstd.h>
#include <ksys/ksys.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/random.h"

namespace {

using kip::test::FailingAllocator;
using kip::test::Random;

constexpr size_t kImpossibleSizes[] = {SIZE_MAX, SIZE_MAX - 64, SIZE_MAX / 2 + 1, SIZE_MAX / 2};

// Blocks of both allocators are resized and freed whichever is installed by then. The failing one moves every
// block, and between multiples of 64, so that the bytes must follow.
TEST(Memory, blocksAreAlignedKeepTheirBytesAndTheirAllocator)
{
    struct Block {
        uint8_t *at = nullptr; // any pointer type must do
        size_t size = 0;
        uint8_t content = 0;
        bool isOfHooks = false;
    } blocks[6];
    constexpr int32_t (*kTake[])(size_t, void *) = {ksys_memory_alloc_internal, ksys_memory_allocFastMem_internal,
                                                    ksys_memory_allocClear_internal, ksys_memory_realloc_internal};
    Random random(51);
    std::optional<FailingAllocator> allocator;
    for (int round = 0; round < 9000; ++round) {
        if (round == 3000)
            allocator.emplace();
        if (round == 6000)
            ksys_memory_setHooks(nullptr);
        Block &block = blocks[random.next() % 6];
        const bool isTaken = block.at == nullptr;
        if (isTaken)
            block = {nullptr, 0, 0, round >= 3000 && round < 6000};
        const bool isRefused = block.isOfHooks && random.oneIn(4);
        if (allocator)
            isRefused ? allocator->failFrom(1) : allocator->failNone();
        if (random.oneIn(5)) {
            ASSERT_EQ(ksys_memory_free_internal(&block.at), 0);
            ASSERT_EQ(block.at, nullptr);
        } else {
            const bool isImpossible = random.oneIn(20);
            const auto size = isImpossible ? random.pick(kImpossibleSizes)
                                           : static_cast<size_t>(random.between32(0, random.oneIn(4) ? 5000 : 200));
            const auto take = isTaken ? random.pick(kTake) : ksys_memory_realloc_internal;
            const uint8_t *const before = block.at;
            const int32_t status = take(size, &block.at);
            ASSERT_EQ(status, isImpossible ? ksys_statusSizeTooLarge : isRefused ? ksys_statusOutOfMemory : 0);
            ASSERT_TRUE(status == 0 || block.at == before);
            ASSERT_EQ(reinterpret_cast<uintptr_t>(block.at) % 64, 0u);
            ASSERT_TRUE(!block.isOfHooks || allocator->requests() == (isImpossible ? 0 : 1));
            const bool isClear = take == ksys_memory_allocClear_internal;
            const size_t kept = status < 0 ? block.size : isClear ? size : std::min(block.size, size);
            ASSERT_EQ(std::count(block.at, block.at + kept, block.content), static_cast<ptrdiff_t>(kept));
            if (status == 0) {
                block.size = size;
                block.content = static_cast<uint8_t>(round);
                EXPECT_EQ(ksys_memory_fill(block.content, size, block.at), 0);
            }
        }
    }
    for (Block &block : blocks)
        kqfFree(block.at);
    EXPECT_EQ(allocator->liveBlocks(), 0);
}

TEST(Vector32, keepsWhatStaysClearsWhatIsNewAndTakesMemoryOnlyToGrow)
{
    FailingAllocator allocator; // its memory comes filled with junk
    kstd_vector32 vector{};
    std::vector<uint32_t> model;
    EXPECT_EQ(kstd_vector32_resize(&vector, -1), kstd_statusNegativeSize);
    for (const auto &[size, grows] : {std::pair{3, true}, {1, false}, {3, false}, {0, false}, {40, true}, {9, false}}) {
        allocator.failFrom(1);
        EXPECT_EQ(kstd_vector32_resize(&vector, size) < 0, grows);
        allocator.failNone();
        EXPECT_EQ(kstd_vector32_resize(&vector, size), 0);
        model.resize(static_cast<size_t>(size));
        EXPECT_EQ(std::vector<uint32_t>(vector.begin, vector.begin + vector.size), model);
        for (size_t i = 0; i < model.size(); ++i)
            vector.begin[i] = model[i] = static_cast<uint32_t>(i + 1);
    }
    EXPECT_EQ(kstd_vector32_destruct(&vector), 0);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

// What the routine below was called with, in order.
std::string journal;

struct Noted {
    char name;
    int32_t status;
};

// Registers another if the name is 'R', and runs the shutdown if it is 'S'.
int32_t note(void *object)
{
    static Noted registered{'d', 0};
    const auto &[name, status] = *static_cast<const Noted *>(object);
    journal += name;
    return name == 'R' ? ksys_shutdown_register(note, &registered) : name == 'S' ? ksys_shutdown_run() : status;
}

TEST(Cleanup, releasesEachEntryOnceLastFirstAndKeepsTheFirstFailure)
{
    const int32_t cases[][4] = {{0, 0, 0, 0}, {-2, -1, -7, -7}, {-2, -1, 0, -1}, {-2, 0, 5, -2}, {1, 1, 5, 5}};
    for (const auto &[first, last, before, after] : cases) {
        const FailingAllocator allocator;
        Noted objects[] = {{'a', first}, {'b', last}};
        void *block = nullptr;
        ASSERT_EQ(ksys_memory_alloc_internal(10, &block), 0);
        ksys_cleanupEntry entries[] = {{0, ksys_cleanupObject, &objects[0], note},
                                       {1, ksys_cleanupBlock, block, ksys_memory_free_internal},
                                       {2, ksys_cleanupObject, &objects[1], note}};
        int32_t count = 3;
        int32_t status = before;
        journal.clear();
        EXPECT_EQ(ksys_cleanupExecute_(entries, &count, &status), after);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(journal, "ba");
        EXPECT_EQ(allocator.liveBlocks(), 0);
    }
}

TEST(Shutdown, runsCallbacksOnceNewestFirst)
{
    struct {
        Noted objects[3];
        const char *order;
    } cases[] = {
        {{{'a', -1}, {'b', 0}, {'c', -3}}, "cba"},
        {{{'a', -1}, {'R', 0}, {'c', -3}}, "cRda"}, // one registers another, then the newest
        {{{'a', -1}, {'S', 0}, {'c', -3}}, "cSa"},
    };
    ksys_shutdown_run(); // whatever stands registered
    for (auto &[objects, order] : cases) {
        const FailingAllocator allocator;
        journal.clear();
        for (Noted &object : objects)
            EXPECT_EQ(ksys_shutdown_register(note, &object), 0);
        for (const int32_t status : {-3, 0}) {
            EXPECT_EQ(ksys_shutdown_run(), status);
            EXPECT_EQ(journal, order);
        }
        EXPECT_EQ(allocator.liveBlocks(), 0);
    }
}

TEST(ProcessorInformation, reportsTheOverrideOrTheProcessor)
{
    const ksys_cpuinfo given{5, 1, 2, 3, 1};
    ksys_cpuinfo real{}, told{};
    EXPECT_EQ(ksys_cpuinfo_init(&real), 0);
#if defined(__x86_64__)
    EXPECT_EQ((real.features & ksys_featureAvx2) != 0, __builtin_cpu_supports("avx2") != 0);
#endif
    for (const auto &[override, expected] : {std::pair{&given, &given}, {nullptr, &real}}) {
        EXPECT_EQ(ksys_cpuinfo_setOverride(override), 0);
        EXPECT_EQ(ksys_cpuinfo_get(&told), 0);
        EXPECT_EQ(std::memcmp(&told, expected, sizeof told), 0);
    }
}

TEST(Attention, asksTheHandlerOfTheCallingThread)
{
    const auto answer = [](void *context) { return *static_cast<int32_t *>(context); };
    int32_t mine = -5;
    ksys_attention_setHandler(answer, &mine);
    std::thread([] { EXPECT_EQ(ksys_attention_check(), 0); }).join();
    EXPECT_EQ(ksys_attention_check(), -5);
    ksys_attention_setHandler(nullptr, nullptr);
    EXPECT_EQ(ksys_attention_check(), 0);
}

TEST(SystemServices, refuseMissingPointers)
{
    ksys_criticalSection section = {};
    uint32_t word = 0;
    const ksys_memoryHooks none{};
    for (const int32_t status :
         {ksys_criticalSection_constructSingleton(nullptr, &word), ksys_criticalSection_wait(nullptr, nullptr),
          ksys_criticalSection_constructSingleton(&section, nullptr), ksys_criticalSection_release(nullptr),
          ksys_cpuinfo_init(nullptr), ksys_cpuinfo_get(nullptr), ksys_memory_alloc_internal(1, nullptr),
          ksys_memory_realloc_internal(1, nullptr), ksys_memory_setHooks(&none),
          ksys_shutdown_register(nullptr, &word)})
        EXPECT_EQ(status, ksys_statusBadArgument);
    EXPECT_EQ(ksys_memory_free_internal(nullptr), 0);
}

// Refused whole: the allocator stays what it was.
TEST(Memory, incompleteHooksAreNotInstalled)
{
    FailingAllocator allocator;
    const auto alloc = [](size_t size, void *) { return std::malloc(size); };
    const auto realloc = [](void *block, size_t size, void *) { return std::realloc(block, size); };
    const auto free = [](void *block, void *) { std::free(block); };
    for (const ksys_memoryHooks &hooks : {ksys_memoryHooks{nullptr, realloc, free, nullptr},
                                          {alloc, nullptr, free, nullptr},
                                          {alloc, realloc, nullptr, nullptr}})
        EXPECT_EQ(ksys_memory_setHooks(&hooks), ksys_statusBadArgument);
    void *block = nullptr;
    EXPECT_EQ(ksys_memory_alloc_internal(1, &block), 0);
    EXPECT_EQ(allocator.requests(), 1);
    ksys_memory_free_internal(&block);
}

// What the headers say, read without a regular expression: GCC's sanitizers warn of those.
TEST(Statuses, areNamedAsInTheHeaders)
{
    std::map<uint32_t, std::string> names;
    for (const char *folder : {"include", "services"}) {
        for (const auto &entry :
             std::filesystem::recursive_directory_iterator(KIP_SOURCE_DIR "/" + std::string(folder))) {
            if (entry.path().extension() != ".h")
                continue;
            std::ifstream file(entry.path());
            const std::string text{std::istreambuf_iterator<char>(file), {}};
            const std::string assignment = " = (int32_t)0x8";
            for (size_t at = 0; (at = text.find(assignment, at)) != std::string::npos; ++at) {
                const size_t before = text.find_last_of(" \n", at - 1);
                const std::string code = text.substr(at + assignment.size() - 3, 10);
                EXPECT_TRUE(
                    names.emplace(std::stoul(code, nullptr, 16), text.substr(before + 1, at - before - 1)).second)
                    << code;
            }
        }
    }
    EXPECT_GE(names.size(), 34u);
    const std::string unknown = "unknown status";
    for (uint32_t code = 0x80000000u; code < 0x80001000u; ++code) {
        const auto status = static_cast<int32_t>(code);
        const auto known = names.find(code);
        EXPECT_EQ(kprt_statusName(status), known == names.end() ? unknown : known->second) << std::hex << code;
        EXPECT_EQ(kprt_statusText(status) == unknown, known == names.end()) << std::hex << code;
    }
    for (const int32_t status : {0, 1, INT32_MAX})
        EXPECT_EQ(kprt_statusName(status) + std::string(kprt_statusText(status)), "successsuccess");
    EXPECT_EQ(kprt_statusName(-1), unknown);
}

} // namespace
