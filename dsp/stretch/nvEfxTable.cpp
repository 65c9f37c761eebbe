#include "dsp/stretch/nvEfxTable.h"

#include "dsp/stretch/nvEfxImplPstsPoly.h"

#include <new>

namespace
{

nvEfxHandle createThunk(int32_t effectId)
{
    switch (effectId)
    {
    case kEfxPstsPoly:
        return new (std::nothrow) nvEfxImplPstsPoly();
    case kEfxBypass:
        return new (std::nothrow) nvEfxBypass();
    default:
        return nullptr;
    }
}

int32_t destroyThunk(nvEfxHandle handle)
{
    delete handle;
    return 1;
}

int32_t setParameterThunk(nvEfxHandle handle, int32_t id, float value)
{
    return handle != nullptr ? handle->setParameter(id, value) : 0;
}

int32_t getParameterThunk(nvEfxHandle handle, int32_t id, float* value)
{
    return handle != nullptr ? handle->getParameter(id, value) : 0;
}

int32_t askThunk(nvEfxHandle handle, intptr_t a, intptr_t b, intptr_t c)
{
    return handle != nullptr ? handle->ask(a, b, c) : 0;
}

int32_t processThunk(nvEfxHandle handle, int32_t instance, float** channels, int64_t position, int32_t count)
{
    return handle != nullptr ? handle->process(instance, channels, position, count) : 0;
}

int32_t initialiseThunk(nvEfxHandle handle)
{
    return handle != nullptr ? handle->initialise() : 0;
}

int32_t setSourceThunk(nvEfxHandle handle, void* user, nvEfxPullCallback callback)
{
    if (handle == nullptr)
    {
        return 0;
    }
    handle->setCallback(user, callback);
    return 1;
}

constexpr nvEfxFunctions kTable{createThunk, destroyThunk, setParameterThunk, getParameterThunk,
                                askThunk,    processThunk, initialiseThunk,   setSourceThunk};

} // namespace

const nvEfxFunctions& nvEfxTable()
{
    return kTable;
}
