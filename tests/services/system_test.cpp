// Clean-up lists, shutdown callbacks, processor information, attention.

#include <ksys/ksys.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"

namespace {

using kip::test::FailingAllocator;

// What the routines below have done, in order.
std::string journal;
char names[] = {'a', 'b', 'c', 'd'};

int32_t noteObject(void *object)
{
    journal += *static_cast<const char *>(object);
    return 0;
}

int32_t noteAndFail(void *object)
{
    noteObject(object);
    return -static_cast<int32_t>(*static_cast<const char *>(object));
}

int32_t noteAndSucceed(void *object)
{
    noteObject(object);
    return 1;
}

int32_t noteBlock(void *address)
{
    journal += '*';
    return ksys_memory_free_internal(address);
}

TEST(Cleanup, releasesEachEntryOnceLastFirstAndKeepsTheFirstFailure)
{
    const struct {
        const char *name;
        ksys_cleanupRoutine routines[3];
        int32_t before, after;
    } cases[] = {
        {"no failure", {noteObject, noteObject, noteObject}, 0, 0},
        {"the caller's failure stands", {noteAndFail, noteAndFail, noteAndFail}, -7, -7},
        {"the failure that happens first", {noteAndFail, noteAndFail, noteObject}, 0, -'b'},
        {"a positive status gives way", {noteAndFail, noteObject, noteObject}, 5, -'a'},
        {"a positive status stays", {noteAndSucceed, noteAndSucceed, noteAndSucceed}, 5, 5},
        {"success is no status to keep", {noteAndSucceed, noteObject, noteObject}, 0, 0},
    };
    FailingAllocator allocator;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        void *block = nullptr;
        ASSERT_EQ(ksys_memory_alloc_internal(10, &block), 0);
        ksys_cleanupEntry entries[] = {{0, ksys_cleanupObject, &names[0], c.routines[0]},
                                       {1, ksys_cleanupBlock, block, noteBlock},
                                       {2, ksys_cleanupObject, &names[1], c.routines[1]},
                                       {3, ksys_cleanupObject, &names[2], c.routines[2]}};
        int32_t count = 4;
        int32_t status = c.before;
        journal.clear();
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(ksys_cleanupExecute_(entries, &count, &status), c.after);
            EXPECT_EQ(status, c.after);
            EXPECT_EQ(count, 0);
            EXPECT_EQ(journal, "cb*a");
        }
        EXPECT_EQ(allocator.liveBlocks(), 0);
    }
}

int32_t noteAndRegister(void *object)
{
    noteObject(object);
    return ksys_shutdown_register(noteObject, &names[3]);
}

int32_t noteAndRun(void *object)
{
    noteObject(object);
    return ksys_shutdown_run();
}

TEST(Shutdown, runsCallbacksOnceNewestFirst)
{
    const struct {
        const char *name;
        ksys_shutdownRoutine routines[3];
        const char *order;
        int32_t status;
    } cases[] = {
        {"plain", {noteObject, noteObject, noteObject}, "cba", 0},
        {"two fail", {noteAndFail, noteObject, noteAndFail}, "cba", -'c'},
        {"one registers another, then the newest", {noteObject, noteAndRegister, noteObject}, "cbda", 0},
        {"one runs the shutdown", {noteObject, noteAndRun, noteObject}, "cba", 0},
    };
    ksys_shutdown_run(); // whatever stands registered
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        FailingAllocator allocator;
        journal.clear();
        for (int i = 0; i < 3; ++i) {
            allocator.failOnly(1);
            EXPECT_EQ(ksys_shutdown_register(c.routines[i], &names[i]), ksys_statusOutOfMemory);
            EXPECT_EQ(ksys_shutdown_register(nullptr, &names[i]), ksys_statusBadArgument);
            EXPECT_EQ(ksys_shutdown_register(c.routines[i], &names[i]), 0);
        }
        EXPECT_EQ(journal, "");
        for (const int32_t status : {c.status, 0}) {
            EXPECT_EQ(ksys_shutdown_run(), status);
            EXPECT_EQ(journal, c.order);
        }
        EXPECT_EQ(allocator.liveBlocks(), 0);
    }
}

TEST(ShutdownDeathTest, runsWhenTheProcessEnds)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto print = [](void *character) {
        return std::fputc(*static_cast<char *>(character), stderr) == EOF ? -1 : 0;
    };
    const auto registerAndExit = [&] {
        ksys_shutdown_register(print, &names[0]);
        ksys_shutdown_register(print, &names[1]);
        std::exit(3);
    };
    EXPECT_EXIT(registerAndExit(), testing::ExitedWithCode(3), "^ba$");
}

bool areEqual(const ksys_cpuinfo &a, const ksys_cpuinfo &b)
{
    return a.kind == b.kind && a.family == b.family && a.model == b.model && a.stepping == b.stepping &&
           a.features == b.features;
}

TEST(ProcessorInformation, reportsTheOverrideOrTheProcessor)
{
    ksys_cpuinfo real;
    ASSERT_EQ(ksys_cpuinfo_init(&real), 0);
#if defined(__x86_64__)
    EXPECT_EQ(real.kind, 1u);
    EXPECT_TRUE(real.features & ksys_featurePackedInteger);
    EXPECT_EQ((real.features & ksys_featureAvx2) != 0, __builtin_cpu_supports("avx2") != 0);
#else
    EXPECT_TRUE(areEqual(real, {0, 0, 0, 0, 0}));
#endif
    const ksys_cpuinfo made = {5, 1, 2, 3, 1};
    ksys_cpuinfo given = made;
    ksys_cpuinfo told[3] = {};
    EXPECT_EQ(ksys_cpuinfo_setOverride(&given), 0);
    given.kind = 99; // it was copied
    EXPECT_EQ(ksys_cpuinfo_init(&told[0]), 0);
    EXPECT_EQ(ksys_cpuinfo_get(&told[1]), 0);
    EXPECT_TRUE(areEqual(told[0], made) && areEqual(told[1], made));
    EXPECT_EQ(ksys_cpuinfo_setOverride(nullptr), 0);
    EXPECT_EQ(ksys_cpuinfo_init(&told[2]), 0);
    EXPECT_TRUE(areEqual(told[2], real));
}

TEST(Attention, asksTheHandlerOfTheCallingThread)
{
    const auto answer = [](void *context) { return *static_cast<int32_t *>(context); };
    EXPECT_EQ(ksys_attention_check(), 0);
    int32_t mine = -5;
    EXPECT_EQ(ksys_attention_setHandler(answer, &mine), 0);
    EXPECT_EQ(ksys_attention_check(), -5);
    std::thread([answer] {
        EXPECT_EQ(ksys_attention_check(), 0);
        int32_t other = -9;
        ksys_attention_setHandler(answer, &other);
        EXPECT_EQ(ksys_attention_check(), -9);
    }).join();
    mine = 2;
    EXPECT_EQ(ksys_attention_check(), 2);
    EXPECT_EQ(ksys_attention_setHandler(nullptr, nullptr), 0);
    EXPECT_EQ(ksys_attention_check(), 0);
}

TEST(SystemServices, refuseMissingPointers)
{
    ksys_criticalSection section = {};
    uint32_t word = 0;
    int block = 0;
    void *data = &block;
    ksys_jobThreadGroup group{};
    ksys_jobParams params{};
    ksys_jobRequestSet requests{};
    ksys_jobResultSet results{};
    const ksys_cleanupRoutine release = [](void *) { return 0; };
    const ksys_jobFunction job = [](const ksys_jobParams *) { return 0; };
    for (const int32_t status : {
             ksys_criticalSection_constructSingleton(nullptr, &word),
             ksys_criticalSection_constructSingleton(&section, nullptr),
             ksys_criticalSection_wait(nullptr, nullptr),
             ksys_criticalSection_release(nullptr),
             ksys_cpuinfo_init(nullptr),
             ksys_cpuinfo_get(nullptr),
             ksys_memory_alloc_internal(1, nullptr),
             ksys_memory_realloc_internal(1, nullptr),
             ksys_jobParams_takeData(nullptr, &data, release),
             ksys_jobParams_takeData(&params, nullptr, release),
             ksys_jobParams_getDataConst(nullptr, &data),
             ksys_jobParams_getDataConst(&params, nullptr),
             ksys_jobRequestSet_addFuncAndParams(nullptr, job, &params),
             ksys_jobRequestSet_addFuncAndParams(&requests, job, nullptr),
             ksys_jobThreadGroup_dispatchAndWait(nullptr, &requests, &results),
             ksys_jobThreadGroup_dispatchAndWait(&group, nullptr, &results),
             ksys_jobThreadGroup_dispatchAndWait(&group, &requests, nullptr),
         })
        EXPECT_EQ(status, ksys_statusBadArgument);
    EXPECT_EQ(ksys_memory_free_internal(nullptr), 0);
}

} // namespace
