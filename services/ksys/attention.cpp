// Attention: how a caller stops a long operation that runs on its thread.

#include <ksys/ksys.h>

namespace {

struct Attention {
    ksys_attentionHandler handler;
    void *context;
};

constinit thread_local Attention attention = {nullptr, nullptr};

} // namespace

int32_t ksys_attention_setHandler(ksys_attentionHandler handler, void *context)
{
    attention = {handler, context};
    return 0;
}

int32_t ksys_attention_check(void)
{
    return attention.handler == nullptr ? 0 : attention.handler(attention.context);
}
