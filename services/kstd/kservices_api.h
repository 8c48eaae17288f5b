#ifndef KSTD_KSERVICES_API_H
#define KSTD_KSERVICES_API_H

/**
 * @file
 * Export mark of the services library and the language bridge that its headers share.
 */

/** Marks a declaration of the services library as visible outside it; static libraries show nothing (KIP_STATIC). */
#if defined(KIP_STATIC)
#define KSERVICES_API
#elif defined(_WIN32)
#if defined(KSERVICES_BUILDING)
#define KSERVICES_API __declspec(dllexport)
#else
#define KSERVICES_API __declspec(dllimport)
#endif
#else
#define KSERVICES_API __attribute__((visibility("default")))
#endif

/** Opens a block of declarations with C linkage. */
#ifdef __cplusplus
#define KSERVICES_BEGIN_C extern "C" {
#else
#define KSERVICES_BEGIN_C
#endif

/** Closes the block that #KSERVICES_BEGIN_C opened. */
#ifdef __cplusplus
#define KSERVICES_END_C }
#else
#define KSERVICES_END_C
#endif

#endif
