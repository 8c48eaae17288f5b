#ifndef KIP_TESTS_SUPPORT_WINDOWS_H
#define KIP_TESTS_SUPPORT_WINDOWS_H

// <windows.h> without the macros that take everyday names away.

#define WIN32_LEAN_AND_MEAN
#if !defined(NOMINMAX)
#define NOMINMAX // the C++ library of MinGW has it already
#endif
#include <windows.h>
#undef near
#undef far

#endif
