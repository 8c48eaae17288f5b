// The version of the libraries.

#include <kip/version.h>
#include <kstd/kprt.h>

#define KPRT_TEXT_OF(value) #value
#define KPRT_TEXT(value) KPRT_TEXT_OF(value)

const char *kprt_version(void)
{
    return KPRT_TEXT(KIP_VERSION_MAJOR) "." KPRT_TEXT(KIP_VERSION_MINOR) "." KPRT_TEXT(KIP_VERSION_PATCH);
}
