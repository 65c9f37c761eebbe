#include "host/ui/ValueLookup.h"

#include "epi/epiObject.h"

#include <cmath>

namespace Korvalind3Host
{

namespace
{

const MetronomeList kMetronomeLists[] = {
    {epiCode("meTe"), 60.0f, 240.1f, 0.1f, "%1.1f", "120"},
    {epiCode("meVo"), 0.0f, 100.0f, 1.0f, "%1.0f", "100"},
    {epiCode("meSn"), 2.0f, 8.0f, 1.0f, "%1.0f", "4"},
    {epiCode("meSd"), 2.0f, 8.0f, 1.0f, "%1.0f", "4"},
};

epiText printed(const char* format, float value)
{
    epiText text;
    text.appendFormatFloat(format, value);
    return text;
}

} // namespace

float ValueLookup::toSource(float value) const
{
    if (targetMaximum_ == targetMinimum_)
        return sourceMinimum_;
    return sourceMinimum_ +
           (value - targetMinimum_) * (sourceMaximum_ - sourceMinimum_) / (targetMaximum_ - targetMinimum_);
}

float ValueLookup::toTarget(float value) const
{
    if (sourceMaximum_ == sourceMinimum_)
        return targetMinimum_;
    return targetMinimum_ +
           (value - sourceMinimum_) * (targetMaximum_ - targetMinimum_) / (sourceMaximum_ - sourceMinimum_);
}

void ValueLookup::setRange(void* owner, float targetMinimum, float targetMaximum, float sourceMaximum)
{
    owner_ = owner;
    targetMinimum_ = targetMinimum;
    targetMaximum_ = targetMaximum;
    sourceMaximum_ = sourceMaximum;
}

float ValueLookupNumericLinear::valueOfText(const epiText& text) const
{
    return toSource(text.toFloat());
}

epiText ValueLookupNumericLinear::textOfValue(float value) const
{
    return printed("%g", toTarget(value));
}

float ValueLookupTextOrdinals::valueOfText(const epiText& text) const
{
    const int32_t n = count();
    for (int32_t i = 0; i < n; ++i)
        if (*texts_.textAt(i) == text)
            return sourceMinimum_ + float(i) * (sourceMaximum_ - sourceMinimum_) / float(n);
    return sourceMinimum_;
}

epiText ValueLookupTextOrdinals::textOfValue(float value) const
{
    const epiText* entry = texts_.textAt(int32_t(std::lround(value)));
    return entry != nullptr ? *entry : epiText();
}

void ValueLookupTextOrdinals::addText(const epiText& text)
{
    texts_.appendCopy(&text);
    sourceMinimum_ = 0;
    sourceMaximum_ = float(count() - 1);
}

int32_t ValueLookupTextOrdinals::indexOfText(const epiText& text) const
{
    const int32_t n = count();
    for (int32_t i = 0; i < n; ++i)
        if (*texts_.textAt(i) == text)
            return i;
    return 0;
}

int32_t ValueLookupTextOrdinals::indexOfFloat(float value) const
{
    return indexOfText(printed(format_.empty() ? "%g" : format_.cstr(), value));
}

float ValueLookupTextOrdinals::numberAt(int32_t index) const
{
    const epiText* entry = texts_.textAt(index);
    return entry != nullptr ? entry->toFloat() : 0.0f;
}

epiText ValueLookupTextOrdinals::joined() const
{
    epiText all;
    for (int32_t i = 0; i < count(); ++i)
    {
        if (i > 0)
            all.push_back('\n');
        all.appendText(texts_.textAt(i));
    }
    return all;
}

void ValueLookupTextLinear::fill(float start, float end, float step, const char* format, float minimum,
                                 float maximum)
{
    texts_.clear();
    // The sum is kept in 32-bit float on purpose: its rounding decides the last entry.
    if (step > 0.0f)
        for (float x = start; x <= end; x += step)
            addText(printed(format, x));
    format_ = format;
    targetMinimum_ = minimum;
    targetMaximum_ = maximum;
}

const MetronomeList* metronomeList(uint32_t control)
{
    for (const MetronomeList& list : kMetronomeLists)
        if (list.control == control)
            return &list;
    return nullptr;
}

void fillMetronomeList(ValueLookupTextLinear& lookup, const MetronomeList& list)
{
    lookup.fill(list.start, list.end, list.step, list.format, list.start, list.end);
}

} // namespace Korvalind3Host
