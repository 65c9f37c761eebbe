#pragma once

#include "epi/epiText.h"

#include <cstdint>

namespace Korvalind3Host
{

/**
 * Maps between a control's range (the source: a rotary's index) and what the user reads (the
 * target: a tempo, a beat count), linearly or through a list of texts.
 */
class ValueLookup
{
public:
    virtual ~ValueLookup() = default;

    /** A target value in the source range, linearly; the source minimum when the target range is empty. */
    virtual float toSource(float value) const;
    /** A source value in the target range, linearly; the target minimum when the source range is empty. */
    virtual float toTarget(float value) const;
    /** The source value that `text` stands for; the source minimum when it stands for none. */
    virtual float valueOfText(const epiText& text) const = 0;
    /** The text of a source value; empty when there is none. */
    virtual epiText textOfValue(float value) const = 0;
    /** Stores the owner and the target range and source maximum (the source minimum stays). */
    virtual void setRange(void* owner, float targetMinimum, float targetMaximum, float sourceMaximum);
    virtual void clear() {}
    virtual void addText(const epiText&) {}
    float valueOfTextChars(const char* chars) const { return valueOfText(epiText(chars)); }

    float sourceMinimum() const { return sourceMinimum_; }
    float sourceMaximum() const { return sourceMaximum_; }
    float targetMinimum() const { return targetMinimum_; }
    float targetMaximum() const { return targetMaximum_; }

protected:
    void* owner_ = nullptr;
    float sourceMinimum_ = 0;
    float targetMinimum_ = 0;
    float targetMaximum_ = 1;
    float sourceMaximum_ = 1;
};

/** The linear mapping alone: texts are the target's numbers. */
class ValueLookupNumericLinear : public ValueLookup
{
public:
    float valueOfText(const epiText& text) const override;
    epiText textOfValue(float value) const override;
};

/** A list of texts, the source value being an entry's ordinal. */
class ValueLookupTextOrdinals : public ValueLookup
{
public:
    /** Entry i of n stands for sourceMinimum + i * (sourceMaximum - sourceMinimum) / n. */
    float valueOfText(const epiText& text) const override;
    /** The entry at the rounded value. */
    epiText textOfValue(float value) const override;
    /** Empties the format. */
    void clear() override { format_.clear(); }
    /** Appends an entry; the source range becomes 0 to the last index. */
    void addText(const epiText& text) override;

    /** The index of the entry equal to `text`; 0 when there is none. */
    int32_t indexOfText(const epiText& text) const;
    /** indexOfText() of `value` printed with the format. */
    int32_t indexOfFloat(float value) const;
    int32_t indexOfInt(int32_t value) const { return indexOfFloat(float(value)); }
    int32_t indexOfName(const char* name) const { return indexOfText(epiText(name)); }
    /** The entry at `index` read as a number; 0 outside the list. */
    float numberAt(int32_t index) const;
    /** Every entry, one a line: a rolling text's 'cont'. */
    epiText joined() const;

    int32_t count() const { return int32_t(texts_.size()); }
    const epiTextsList& texts() const { return texts_; }
    const epiText& format() const { return format_; }

protected:
    epiTextsList texts_;
    epiText format_;
};

/** A list of numbers that follows a rule: start, end and step, printed with a format. */
class ValueLookupTextLinear : public ValueLookupTextOrdinals
{
public:
    /**
     * Replaces the list by `start`, `start` + `step`, ... while not above `end`, adding in 32-bit
     * float as it goes, each printed with `format`; `minimum` and `maximum` become the target range.
     */
    void fill(float start, float end, float step, const char* format, float minimum, float maximum);
};

/** The rule of one of the metronome's value lists, and the text it starts on. */
struct MetronomeList
{
    uint32_t control;
    float start;
    float end;
    float step;
    const char* format;
    const char* defaultText;
};

/** The rule for the metronome control `control` ('meTe', 'meVo', 'meSn', 'meSd'); null for another. */
const MetronomeList* metronomeList(uint32_t control);

/** Fills `lookup` by the rule of `list`. */
void fillMetronomeList(ValueLookupTextLinear& lookup, const MetronomeList& list);

} // namespace Korvalind3Host
