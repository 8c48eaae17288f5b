// Loading and unloading the library while the services stay. The program links neither.

#include <kip/kip.h>

#include <gtest/gtest.h>

#if defined(_WIN32)
#include "support/windows.h"
#else
#include <dlfcn.h>
#endif

namespace {

#if defined(_WIN32)
using Handle = HMODULE;
Handle open(const char *library)
{
    return LoadLibraryA(library);
}
bool close(Handle handle)
{
    return FreeLibrary(handle) != 0;
}
auto address(Handle handle, const char *name)
{
    return GetProcAddress(handle, name);
}
#else
using Handle = void *;
Handle open(const char *library)
{
    return dlopen(library, RTLD_NOW | RTLD_LOCAL);
}
bool close(Handle handle)
{
    return dlclose(handle) == 0;
}
auto address(Handle handle, const char *name)
{
    return dlsym(handle, name);
}
#endif

template <typename Function>
Function *find(Handle handle, const char *name)
{
    const auto found = reinterpret_cast<Function *>(reinterpret_cast<void *>(address(handle, name)));
    EXPECT_NE(found, nullptr) << name;
    return found;
}

TEST(UnloadLibrary, theServicesStillFreeTheCubicWeights)
{
    const Handle services = open(KIP_SERVICES_LIBRARY);
    ASSERT_NE(services, nullptr);
    for (int round = 0; round < 3; ++round) {
        const Handle library = open(KIP_LIBRARY);
        ASSERT_NE(library, nullptr);
        if (round > 0) {
            EXPECT_EQ(find<decltype(kip_affineTransform_setup)>(library, "kip_affineTransform_setup")(), 0);
        }
        EXPECT_TRUE(close(library));
#if defined(_WIN32)
        EXPECT_EQ(GetModuleHandleA(KIP_LIBRARY) == nullptr, round == 0) << "an unused library goes";
#endif
        EXPECT_EQ(find<decltype(ksys_shutdown_run)>(services, "ksys_shutdown_run")(), 0);
    }
    const Handle library = open(KIP_LIBRARY);
    EXPECT_EQ(find<decltype(kip_affineTransform_setup)>(library, "kip_affineTransform_setup")(), 0);
    EXPECT_TRUE(close(library));
    EXPECT_TRUE(close(services)); // the end of the process frees what is left
}

} // namespace
