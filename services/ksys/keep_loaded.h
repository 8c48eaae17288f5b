#ifndef KSYS_KEEP_LOADED_H
#define KSYS_KEEP_LOADED_H

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#include <windows.h>
#endif

/**
 * On Windows, keeps the library that an address lies in loaded from now on. Returns whether that worked; elsewhere
 * true, as a library that has to stay is linked so that it does.
 */
inline bool keepLoaded([[maybe_unused]] const void *address)
{
#if defined(_WIN32)
    HMODULE module = nullptr;
    return GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                              static_cast<const char *>(address), &module) != 0;
#else
    return true;
#endif
}

#endif
