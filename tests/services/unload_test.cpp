// Loading and unloading the services library while the process goes on. The program does not link the library.

#include <ksys/ksys.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include <dlfcn.h>

#include <gtest/gtest.h>

namespace {

struct Library {
    void *handle = dlopen(KIP_SERVICES_LIBRARY, RTLD_LAZY | RTLD_LOCAL);
    decltype(&ksys_jobThreadGroup_dispatchAndWait) dispatchAndWait = nullptr;
    decltype(&ksys_jobRequestSet_addFuncAndParams) addFuncAndParams = nullptr;
    decltype(&ksys_jobRequestSet_destruct) destructRequests = nullptr;
    decltype(&ksys_jobResultSet_destruct) destructResults = nullptr;
    decltype(&ksys_shutdown_register) registerShutdown = nullptr;

    Library()
    {
        find(dispatchAndWait, "ksys_jobThreadGroup_dispatchAndWait");
        find(addFuncAndParams, "ksys_jobRequestSet_addFuncAndParams");
        find(destructRequests, "ksys_jobRequestSet_destruct");
        find(destructResults, "ksys_jobResultSet_destruct");
        find(registerShutdown, "ksys_shutdown_register");
    }

    template <typename Function>
    void find(Function &function, const char *name) const
    {
        if (handle != nullptr)
            function = reinterpret_cast<Function>(dlsym(handle, name));
        EXPECT_NE(function, nullptr) << name;
    }

    int32_t dispatch(int32_t threads, int32_t jobs, ksys_jobFunction function) const
    {
        ksys_jobThreadGroup group{threads};
        ksys_jobParams params{};
        ksys_jobRequestSet requests{};
        ksys_jobResultSet results{};
        for (int32_t i = 0; i < jobs; ++i)
            EXPECT_EQ(addFuncAndParams(&requests, function, &params), 0);
        const int32_t status = dispatchAndWait(&group, &requests, &results);
        destructResults(&results);
        destructRequests(&requests);
        return status;
    }
};

auto threadsOfTheProcess()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

std::atomic<int> callbacks;
decltype(&ksys_attention_check) checkAttention;

// Touches what the library keeps for each thread.
int32_t attentiveJob(const ksys_jobParams *)
{
    return checkAttention();
}

TEST(Unload, endsThePoolAndRunsTheCallbacks)
{
    std::thread([] {}).join(); // some sanitizers start a thread of their own along with the first
    const auto threadsBefore = threadsOfTheProcess();
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        callbacks = 0;
        const Library library;
        ASSERT_NE(library.handle, nullptr);
        EXPECT_EQ(library.registerShutdown([](void *) { return ++callbacks, 0; }, nullptr), 0);
        library.find(checkAttention, "ksys_attention_check");
        EXPECT_EQ(library.dispatch(4, 8, attentiveJob), 0);
        // Unloaded while the workers start, while they spin, and while they sleep.
        std::this_thread::sleep_for(std::chrono::microseconds(round % 3 * round));
        EXPECT_EQ(dlclose(library.handle), 0);
        EXPECT_EQ(callbacks, 1);
        EXPECT_EQ(dlopen(KIP_SERVICES_LIBRARY, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "still loaded";
    }
    // The system's list may show a thread for a moment after it has ended.
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (threadsOfTheProcess() > threadsBefore && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_LE(threadsOfTheProcess(), threadsBefore);
}

} // namespace
