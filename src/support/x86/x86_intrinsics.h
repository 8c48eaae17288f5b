#ifndef KIP_SUPPORT_X86_X86_INTRINSICS_H
#define KIP_SUPPORT_X86_X86_INTRINSICS_H

// GCC 12 takes the undefined operands inside its own AVX-512 intrinsics for uninitialised variables of ours.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#endif
