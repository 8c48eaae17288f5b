#ifndef KIP_TESTS_SUPPORT_FAILING_ALLOCATOR_H
#define KIP_TESTS_SUPPORT_FAILING_ALLOCATOR_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include <ksys/ksys.h>

namespace kip::test {

// While it lives, it stands behind every allocation of the services: counts them and refuses those it is told to.
// It is as unkind as an allocator may be: memory comes filled with junk and is filled with other junk when it is
// released, every resize moves the block, and hardly two blocks lie alike between multiples of 64. Behind a block
// there is nothing of it, so that sanitizers see what leaves it.
// Threads may allocate at once. Only one may exist at a time.
class FailingAllocator {
public:
    FailingAllocator() : state(keptState())
    {
        const ksys_memoryHooks hooks{allocate, reallocate, release, state};
        EXPECT_EQ(ksys_memory_setHooks(&hooks), 0);
    }
    ~FailingAllocator() { ksys_memory_setHooks(nullptr); }
    FailingAllocator(const FailingAllocator &) = delete;
    FailingAllocator &operator=(const FailingAllocator &) = delete;

    // The next request for memory is number 1. A resize is a request too.
    void failOnly(int64_t number) { refuse(number, number); }
    void failFrom(int64_t number) { refuse(number, std::numeric_limits<int64_t>::max()); }
    void failNone() { refuse(0, 0); }
    // The junk of memory that is taken from now on.
    void fillWith(uint8_t value) { state->junk = value; }
    // Refuses what would make more than so many bytes live at a time.
    void failBeyond(int64_t bytes) { state->limit = bytes; }

    // Requests since the last fail...() call, or since construction; the refused ones are among them.
    int64_t requests() const { return state->requests; }
    int64_t refused() const { return state->refused; }
    // What was taken and not given back since construction.
    int64_t liveBlocks() const { return state->liveBlocks; }
    int64_t liveBytes() const { return state->liveBytes; }

private:
    struct State {
        std::atomic<int64_t> requests{0}, refused{0}, liveBlocks{0}, liveBytes{0};
        std::atomic<int64_t> firstRefused{0}, lastRefused{0}, placements{0};
        std::atomic<uint8_t> junk{0xCD};
        std::atomic<int64_t> limit{int64_t{1} << 40}; // no machine has that, and sanitizers end a program that asks
    };

    // Stands before every block.
    struct Prefix {
        void *start;
        size_t size;
    };

    // Blocks may outlive the allocator that gave them, and come back to it: states are never released.
    static State *keptState()
    {
        static auto *const states = new std::vector<std::unique_ptr<State>>;
        return states->emplace_back(std::make_unique<State>()).get();
    }

    void refuse(int64_t first, int64_t last)
    {
        state->firstRefused = first;
        state->lastRefused = last;
        state->requests = 0;
        state->refused = 0;
    }

    static bool isRefused(State &state)
    {
        const int64_t number = ++state.requests;
        const bool refused = number >= state.firstRefused && number <= state.lastRefused;
        state.refused += refused ? 1 : 0;
        return refused;
    }

    static void *place(State &state, size_t size)
    {
        constexpr size_t kScatter = 64;
        const int64_t limit = state.limit;
        if (size > static_cast<size_t>(limit) || state.liveBytes > limit - static_cast<int64_t>(size))
            return nullptr;
        const size_t before = sizeof(Prefix) + static_cast<size_t>(state.placements++) * 16 % kScatter;
        auto *start = static_cast<unsigned char *>(std::malloc(before + size));
        if (start == nullptr)
            return nullptr;
        unsigned char *block = start + before;
        const Prefix prefix{start, size};
        std::memcpy(block - sizeof prefix, &prefix, sizeof prefix);
        std::memset(block, state.junk, size);
        ++state.liveBlocks;
        state.liveBytes += static_cast<int64_t>(size);
        return block;
    }

    static Prefix prefixOf(const void *block)
    {
        Prefix prefix;
        std::memcpy(&prefix, static_cast<const unsigned char *>(block) - sizeof prefix, sizeof prefix);
        return prefix;
    }

    static void *allocate(size_t size, void *context)
    {
        State &state = *static_cast<State *>(context);
        return isRefused(state) ? nullptr : place(state, size);
    }

    static void *reallocate(void *block, size_t size, void *context)
    {
        State &state = *static_cast<State *>(context);
        void *moved = isRefused(state) ? nullptr : place(state, size);
        if (moved == nullptr)
            return nullptr;
        const size_t before = prefixOf(block).size;
        std::memcpy(moved, block, before < size ? before : size);
        release(block, context);
        return moved;
    }

    static void release(void *block, void *context)
    {
        State &state = *static_cast<State *>(context);
        const Prefix prefix = prefixOf(block);
        --state.liveBlocks;
        state.liveBytes -= static_cast<int64_t>(prefix.size);
        std::memset(block, 0xDD, prefix.size);
        std::free(prefix.start);
    }

    State *state;
};

// Runs attempt() with its first request for memory refused, then its second and so on, each once alone and once
// with all that follow, until none is left to refuse. attempt makes what it needs, releases it again and returns
// the status under test: negative exactly when memory was refused, with nothing left over either way.
// Returns the number of requests of an attempt that is refused nothing.
template <typename Attempt>
int64_t failEachAllocation(Attempt attempt)
{
    FailingAllocator allocator;
    for (int64_t number = 1;; ++number) {
        for (const bool alone : {true, false}) {
            SCOPED_TRACE(testing::Message() << "request " << number << (alone ? " alone" : " and all later ones"));
            const int64_t before = allocator.liveBlocks();
            alone ? allocator.failOnly(number) : allocator.failFrom(number);
            const int32_t status = attempt();
            const bool refused = allocator.refused() > 0;
            EXPECT_EQ(status < 0, refused) << "status " << std::hex << static_cast<uint32_t>(status);
            EXPECT_EQ(allocator.liveBlocks(), before) << "blocks left over";
            if (!refused)
                return allocator.requests();
        }
    }
}

} // namespace kip::test

#endif
