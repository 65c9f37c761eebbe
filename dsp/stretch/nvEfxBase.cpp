#include "dsp/stretch/nvEfxBase.h"

int32_t nvEfxBase::setParameter(int32_t, float)
{
    return 0;
}

int32_t nvEfxBase::getParameter(int32_t, float*)
{
    return 0;
}

int32_t nvEfxBase::ask(intptr_t, intptr_t, intptr_t)
{
    return 0;
}

int32_t nvEfxBase::process(int32_t, float**, int64_t, int32_t)
{
    return 0;
}

void nvEfxBase::setCallback(void* user, nvEfxPullCallback callback)
{
    user_ = user;
    callback_ = callback;
}

int32_t nvEfxBase::pull(float** channels, int64_t position, int32_t count)
{
    if (callback_ == nullptr)
    {
        return 0;
    }
    return callback_(user_, channels, position, count);
}

int32_t nvEfxBase::initialise()
{
    return 0;
}

int32_t nvEfxBypass::process(int32_t, float** channels, int64_t position, int32_t count)
{
    pull(channels, position, count);
    return 1;
}
