// All that runs when Windows loads or unloads the library.

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID)
{
    // No thread's beginning or end concerns the library.
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(library);
    return TRUE;
}
