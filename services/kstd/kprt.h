#ifndef KSTD_KPRT_H
#define KSTD_KPRT_H

/**
 * @file
 * The optimisation-inhibit function and hook: a caller's way to run the portable twin of a kernel.
 */

#include <stdint.h>
#include <wchar.h>

#include <kstd/kservices_api.h>

KSERVICES_BEGIN_C

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
