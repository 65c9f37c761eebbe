#include "dsp/stretch/nvEfx.h"

#include "dsp/stretch/nvEfxImplPstsPoly.h"

namespace
{

// The table's pull callback: the user word is the host's source.
int32_t sourceReadThunk(void* user, float** channels, int64_t position, int32_t count)
{
    return static_cast<nvEfxSource*>(user)->read(channels, position, count);
}

constexpr int32_t kMainParameter = 100;

} // namespace

nvEfx::~nvEfx()
{
    nvEfxTable().destroy(handle_);
}

bool nvEfx::create(int32_t effectId, nvEfxSource* source)
{
    const nvEfxFunctions& table = nvEfxTable();
    table.destroy(handle_);
    effectId_ = -1;
    handle_ = table.create(effectId);
    if (handle_ == nullptr)
    {
        return false;
    }
    effectId_ = effectId;
    if (source != nullptr)
    {
        table.setSource(handle_, source, sourceReadThunk);
    }
    return true;
}

int32_t nvEfx::setParameter(int32_t id, float value)
{
    return nvEfxTable().setParameter(handle_, id, value);
}

int32_t nvEfx::getParameter(int32_t id, float* value)
{
    return nvEfxTable().getParameter(handle_, id, value);
}

int32_t nvEfx::ask(intptr_t a, intptr_t b, intptr_t c)
{
    return nvEfxTable().ask(handle_, a, b, c);
}

int32_t nvEfx::process(int32_t instance, float** channels, int64_t position, int32_t count)
{
    return nvEfxTable().process(handle_, instance, channels, position, count);
}

int32_t nvEfx::setMainParameter(float value)
{
    return setParameter(kMainParameter, value);
}

int32_t nvEfx::initialise()
{
    return nvEfxTable().initialise(handle_);
}

bool nvEfxPstsPoly::createPsts(nvEfxSource* source)
{
    return create(kEfxPstsPoly, source);
}

int32_t nvEfxPstsPoly::processBlock(float** channels, int64_t position, int32_t count)
{
    return process(0, channels, position, count);
}

int32_t nvEfxPstsPoly::setStretch(float stretch)
{
    return setParameter(nvEfxImplPstsPoly::kStretch, stretch);
}

int32_t nvEfxPstsPoly::setPitch(float factor)
{
    return setParameter(nvEfxImplPstsPoly::kPitchFactor, factor);
}
