#include "failure.h"

#include <cstdio>
#include <kstd/kprt.h>

void kiptool::requireSuccess(int32_t status, const std::string &what)
{
    if (status >= 0)
        return;
    char code[16];
    (void)std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(status));
    throw Failure(what + ": " + kprt_statusName(status) + " (" + code + "): " + kprt_statusText(status));
}
