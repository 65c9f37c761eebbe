#include "audiofiles/AudioFile.h"

AudioFile::~AudioFile() = default;

void AudioFile::prepare(uint32_t, uint32_t) {}
