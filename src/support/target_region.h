#ifndef KIP_SUPPORT_TARGET_REGION_H
#define KIP_SUPPORT_TARGET_REGION_H

// Code between KIP_TARGET_BEGIN and KIP_TARGET_END may use the named instruction sets. A region begins after
// every #include, so that shared inline functions stay fit for every processor.

#if defined(__x86_64__)
#define KIP_HAS_X86_VARIANTS 1
#endif

#define KIP_PRAGMA(text) _Pragma(#text)

#if defined(__clang__)
#define KIP_TARGET_BEGIN(features)                                                                                     \
    KIP_PRAGMA(clang attribute push(__attribute__((target(features))), apply_to = function))
#define KIP_TARGET_END KIP_PRAGMA(clang attribute pop)
#else
#define KIP_TARGET_BEGIN(features) KIP_PRAGMA(GCC push_options) KIP_PRAGMA(GCC target(features))
#define KIP_TARGET_END KIP_PRAGMA(GCC pop_options)
#endif

#endif
