#include "plugin/AudioFxKV3Unit.h"

#include "epi/epiXmlChunk.h"
#include "plugin/AudioFxKV3Manager.h"

#include <chrono>
#include <thread>

namespace
{

/** `dst` becomes a copy of `src`, an empty one included (copyFrom refuses an empty source). */
void assignDump(epiFileDump& dst, const epiFileDump& src)
{
    if (&dst == &src)
    {
        return;
    }
    if (src.size() == 0)
    {
        dst.free();
    }
    else
    {
        dst.copyFrom(src);
    }
}

/** The text of the element "Program" of a state, at the top or inside its first element. */
epiText programOf(const epiFileDump& dump)
{
    if (dump.size() == 0)
    {
        return {};
    }
    const char* begin = reinterpret_cast<const char*>(dump.data());
    const epiXmlChunk all(begin, begin + dump.size());
    epiXmlChunk program;
    if (all.findElementChars("Program", &program, nullptr))
    {
        return program.text();
    }
    epiXmlChunk root;
    if (all.findElement(nullptr, &root, nullptr) && root.findElementChars("Program", &program, nullptr))
    {
        return program.text();
    }
    return {};
}

/** Seconds of the wall clock, whole. */
std::int64_t wholeSeconds()
{
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

AudioFxKV3Unit::~AudioFxKV3Unit()
{
    setEnabled(false);
}

AudioData* AudioFxKV3Unit::run(AudioData& request, bool zeroOnFailure)
{
    if (request.frames > input_.capacity() || request.frames < 0)
    {
        return nullptr;
    }
    input_.adoptRange(request);
    output_.adoptRange(request);
    const bool got = source_ != nullptr && source_->read(input_);
    if (!got && (zeroOnFailure || source_ == nullptr))
    {
        input_.silence();
    }
    AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire);
    if (instance != nullptr && instance->isActive() &&
        instance->process(input_.channel, output_.channel, static_cast<std::int32_t>(input_.frames)))
    {
        return &output_;
    }
    return &input_;
}

bool AudioFxKV3Unit::provide(AudioData& request)
{
    AudioData* result = run(request, false);
    if (result == nullptr)
    {
        return false;
    }
    request.adopt(*result);
    return true;
}

bool AudioFxKV3Unit::read(AudioData& into)
{
    AudioData* result = run(into, true);
    if (result == nullptr)
    {
        return false;
    }
    into.copyFrom(*result);
    return true;
}

void AudioFxKV3Unit::prepare(std::uint32_t sampleRate, std::uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    input_.alloc(blockSize, 2);
    output_.alloc(blockSize, 2);
    warmUp_.alloc(blockSize, 2);
    warmUpOut_.alloc(blockSize, 2);
    if (AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire); instance != nullptr)
    {
        instance->stopInstance();
        instance->startInstance(sampleRate_, blockSize_, 2);
    }
}

void AudioFxKV3Unit::setEnabled(bool enabled)
{
    const bool on = instance_.load(std::memory_order_acquire) != nullptr;
    if (enabled && !on)
    {
        enable();
    }
    else if (!enabled && on)
    {
        disable();
    }
}

void AudioFxKV3Unit::enable()
{
    if (manager_ == nullptr || !manager_->isLoaded())
    {
        return; // no library: the unit stays a pass-through
    }
    auto* instance = new AudioFxKV3Instance(&manager_->plugin());
    instance->create();
    instance->setState(defaultState_.data(), defaultState_.size());
    if (userState_.size() == 0)
    {
        assignDump(userState_, defaultState_);
    }
    else
    {
        instance->setState(userState_.data(), userState_.size());
    }
    instance->startInstance(sampleRate_, blockSize_, 2);
    if (blockSize_ != 0 && warmUp_.capacity() >= static_cast<std::int64_t>(blockSize_))
    {
        // Flush the library's start-up transients before the first block anyone hears: one block
        // of silence and a hundred more. The engine may be running and using the unit's own
        // buffers as a pass-through meanwhile, so the warm-up has a pair of its own.
        warmUp_.frames = blockSize_;
        warmUpOut_.frames = blockSize_;
        warmUp_.silence();
        instance->process(warmUp_.channel, warmUpOut_.channel, static_cast<std::int32_t>(blockSize_));
        for (int i = 0; i < 100; ++i)
        {
            instance->process(warmUp_.channel, warmUpOut_.channel, static_cast<std::int32_t>(blockSize_));
        }
    }
    instance->setActive(true);
    instance_.store(instance, std::memory_order_release);
    if (editorParent_ != 0)
    {
        instance->openEditor(editorParent_);
    }
}

void AudioFxKV3Unit::disable()
{
    AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire);
    saveState(userState_);
    instance->setActive(false);
    instance_.store(nullptr, std::memory_order_release);

    // Wait for the audio thread to leave the instance: three more blocks, or, with the engine
    // stopped, until the wall clock has moved on by more than one whole second.
    const std::uint32_t startTick = tick_.load(std::memory_order_acquire);
    const std::int64_t startSecond = wholeSeconds();
    while (tick_.load(std::memory_order_acquire) - startTick < 3 && wholeSeconds() <= startSecond + 1)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }

    instance->stopInstance();
    if (editorParent_ != 0)
    {
        instance->closeEditor();
        editorParent_ = 0;
    }
    delete instance;
}

void AudioFxKV3Unit::setEditorParent(WindowHandle parent)
{
    if (editorParent_ != 0)
    {
        return;
    }
    editorParent_ = parent;
    if (AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire); instance != nullptr)
    {
        instance->openEditor(parent);
    }
}

void AudioFxKV3Unit::closeEditor()
{
    if (AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire); instance != nullptr)
    {
        instance->closeEditor();
    }
    editorParent_ = 0;
}

void AudioFxKV3Unit::forwardMidi(const std::uint32_t* words, std::int32_t count)
{
    AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire);
    if (instance != nullptr && instance->isActive() && count > 0)
    {
        instance->sendMidiEvents(words, count);
    }
}

void AudioFxKV3Unit::forwardMidi(const MidiEventBlock& block)
{
    static_assert(sizeof(MidiEvent) == 2 * sizeof(std::uint32_t), "an event is a pair of words");
    const auto count = static_cast<std::int32_t>(
        block.count < MidiEventBlock::kCapacity ? block.count : MidiEventBlock::kCapacity);
    forwardMidi(reinterpret_cast<const std::uint32_t*>(block.events), count);
}

void AudioFxKV3Unit::saveState(epiFileDump& file)
{
    AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire);
    if (instance == nullptr)
    {
        assignDump(file, userState_);
        return;
    }
    instance->captureState(file);
    assignDump(userState_, file);
}

void AudioFxKV3Unit::loadState(const epiFileDump& file)
{
    AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire);
    if (instance == nullptr)
    {
        assignDump(userState_, file);
        return;
    }
    const epiFileDump& chosen = file.size() != 0 ? file : defaultState_;
    instance->setState(chosen.data(), chosen.size());
    assignDump(userState_, chosen);
}

bool AudioFxKV3Unit::isStateChanged()
{
    AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire);
    if (instance == nullptr)
    {
        return false; // without an instance the present state is the stored one
    }
    epiFileDump present;
    instance->captureState(present);
    return programOf(present) != programOf(userState_);
}
