#include "failure.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <kstd/kprt.h>

void kiptool::tellUser(std::string message)
{
    std::replace_if(
        message.begin(), message.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    std::cerr << "kip: " + message + '\n';
}

void kiptool::requireSuccess(int32_t status, const std::string &what)
{
    if (status >= 0)
        return;
    char code[16];
    (void)std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(status));
    throw Failure(what + ": " + kprt_statusName(status) + " (" + code + "): " + kprt_statusText(status));
}
