// Loading and unloading the libraries while the process goes on. The program links neither.

#include <kip/kip.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>

#if defined(_WIN32)
#include "support/windows.h"
#else
#include <dlfcn.h>
#endif

namespace {

#if defined(_WIN32)
const auto load = [](const char *library) { return LoadLibraryA(library); };
const auto unload = [](HMODULE handle) { return FreeLibrary(handle) != 0; };
const auto isLoaded = [](const char *library) { return GetModuleHandleA(library) != nullptr; };
const auto addressIn = [](HMODULE handle, const char *name) { return GetProcAddress(handle, name); };
#else
const auto load = [](const char *library) { return dlopen(library, RTLD_LAZY | RTLD_LOCAL); };
const auto unload = [](void *handle) { return dlclose(handle) == 0; };
const auto isLoaded = [](const char *library) { return dlopen(library, RTLD_LAZY | RTLD_NOLOAD) != nullptr; };
const auto addressIn = [](void *handle, const char *name) { return dlsym(handle, name); };
#endif

template <typename Function>
Function *find(decltype(load("")) handle, const char *name)
{
    const auto found = reinterpret_cast<Function *>(reinterpret_cast<void *>(addressIn(handle, name)));
    EXPECT_NE(found, nullptr) << name;
    return found;
}
#define KIP_TEST_FIND(handle, name) find<decltype(name)>(handle, #name)

#if defined(__linux__)

auto threadsOfTheProcess()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

std::atomic<int> callbacks;
decltype(&ksys_attention_check) checkAttention;

TEST(Unload, EndsThePoolAndRunsTheCallbacks)
{
    std::thread([] {}).join(); // some sanitizers start a thread of their own along with the first
    const auto threadsBefore = threadsOfTheProcess();
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        callbacks = 0;
        void *const library = load(KIP_SERVICES_LIBRARY);
        ASSERT_NE(library, nullptr);
        EXPECT_EQ(KIP_TEST_FIND(library, ksys_shutdown_register)([](void *) { return ++callbacks, 0; }, nullptr), 0);
        checkAttention = KIP_TEST_FIND(library, ksys_attention_check);
        ksys_jobThreadGroup group{4, 0};
        ksys_jobParams params{};
        ksys_jobRequestSet requests{};
        ksys_jobResultSet results{};
        for (int i = 0; i < 8; ++i) // touches what the library keeps for each thread
            EXPECT_EQ(KIP_TEST_FIND(library, ksys_jobRequestSet_addFuncAndParams)(
                          &requests, [](const ksys_jobParams *) { return checkAttention(); }, &params),
                      0);
        EXPECT_EQ(KIP_TEST_FIND(library, ksys_jobThreadGroup_dispatchAndWait)(&group, &requests, &results), 0);
        KIP_TEST_FIND(library, ksys_jobResultSet_destruct)(&results);
        KIP_TEST_FIND(library, ksys_jobRequestSet_destruct)(&requests);
        // Unloaded while the workers start, while they spin, and while they sleep.
        std::this_thread::sleep_for(std::chrono::microseconds(round % 3 * round));
        EXPECT_TRUE(unload(library));
        EXPECT_EQ(callbacks, 1);
        EXPECT_FALSE(isLoaded(KIP_SERVICES_LIBRARY));
    }
    // The system's list may show a thread for a moment after it has ended.
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (threadsOfTheProcess() > threadsBefore && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_LE(threadsOfTheProcess(), threadsBefore);
}

#endif

TEST(UnloadLibrary, TheServicesStillFreeTheCubicWeights)
{
    const auto services = load(KIP_SERVICES_LIBRARY);
    for (int round = 0; round < 4; ++round) {
        const auto library = load(KIP_LIBRARY);
        ASSERT_NE(library, nullptr);
        EXPECT_EQ(round == 0 ? 0 : KIP_TEST_FIND(library, kip_affineTransform_setup)(), 0);
        EXPECT_TRUE(unload(library));
#if defined(_WIN32)
        EXPECT_EQ(isLoaded(KIP_LIBRARY), round > 0) << "an unused library goes";
#endif
        // The end of the process frees what is left at last.
        EXPECT_EQ(round == 3 ? 0 : KIP_TEST_FIND(services, ksys_shutdown_run)(), 0);
    }
    EXPECT_TRUE(unload(services));
}

} // namespace
