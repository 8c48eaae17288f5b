#ifndef KSTD_KPRT_H
#define KSTD_KPRT_H

/**
 * @file
 * The version; what statuses mean; the optimisation-inhibit function and hook: a caller's way to run the portable twin
 * of a kernel.
 */

#include <stdint.h>
#include <wchar.h>

#include <kstd/kservices_api.h>

KSERVICES_BEGIN_C

/**
 * Tells the version of the libraries that the program runs with.
 *
 * Returns "major.minor.patch", as <kip/version.h> has the numbers at compile time; static.
 * Threads may call it at once.
 */
KSERVICES_API const char *kprt_version(void);

/**
 * Tells a status's name.
 *
 * status  what a function of the libraries has returned.
 * Returns the name as the headers spell it, for example "kmath_statusSingular"; "success" for 0 and above; "unknown
 * status" for a negative one that no header names, for example an attention handler's own. The string lives as long as
 * the library.
 * Threads may call it at once.
 */
KSERVICES_API const char *kprt_statusName(int32_t status);

/**
 * Tells what a status means, for a message: a phrase in lower case, without a full stop.
 *
 * status  what a function of the libraries has returned.
 * Returns the phrase; "success" and "unknown status" as #kprt_statusName does. The string lives as long as the library.
 * Threads may call it at once.
 */
KSERVICES_API const char *kprt_statusText(int32_t status);

/**
 * Tells whether the optimised variant of a kernel must not be used.
 *
 * kernelName  the kernel's name, a wide-character literal.
 * Returns nonzero when it must not be used. May be called from several threads at once.
 */
typedef int32_t (*kprt_inhibitFunction)(const wchar_t *kernelName);

/**
 * The process-wide hook, null by default.
 *
 * It is read on every operation. Set it while no operation of this process runs.
 */
extern KSERVICES_API kprt_inhibitFunction kprt_isOptimizationInhibitedFP;

/**
 * Asks the hook about a kernel.
 *
 * kernelName  the kernel's name.
 * Returns what the hook answers for the same name, 0 when no hook is installed.
 * Threads may call it at once, as far as the hook allows.
 */
KSERVICES_API int32_t kprt_isOptimizationInhibited(const wchar_t *kernelName);

KSERVICES_END_C

#endif
