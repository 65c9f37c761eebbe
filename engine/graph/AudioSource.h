#pragma once

#include "engine/graph/AudioData.h"

#include <cstdint>

/**
 * Base of every node of the pull graph. A node is asked for a block, never pushed to.
 *
 * The request model every node keeps:
 * - The caller fills frames and position of the request; a node never chooses them. Requests the engine
 *   builds have two channels.
 * - Position is authoritative and may jump between two requests (loop, locate, freeze start): a node
 *   assumes nothing about the next position.
 * - In the live path frames equals the blockSize last given to prepare, the largest block a node must
 *   be ready for; an offline render may ask for fewer in its last block.
 * - prepare is called with the stream stopped and is the only place a node allocates. provide and read
 *   run on the audio thread (or on the interface thread in an offline job, device stopped) and neither
 *   allocate, lock, wait nor call the system. They write or clear every frame they deliver.
 * - A node that wraps an input does not forward prepare to it: the owner of a chain prepares each node
 *   it holds.
 * - A false result means no audio was delivered. The caller leaves its own accumulation untouched for
 *   that source or, where a buffer has to hold something, silences it.
 *
 * The destructor is deliberately not virtual and is protected: nodes are owned by value by the object
 * that builds a chain and are never deleted through this base.
 */
class AudioSource
{
public:
    /**
     * Hands over a block by reference. On success the request's channel pointers point at samples this
     * source owns, valid until the next call on this source; the caller is done with them before it
     * returns. The request's frames and position are the caller's.
     * @return false when no audio was delivered
     */
    // [audio thread]
    virtual bool provide(AudioData& request) = 0;

    /**
     * Copies a block into the arrays that into already points at, over into.frames frames from
     * into.position.
     * @return false when no audio was delivered
     */
    // [audio thread]
    virtual bool read(AudioData& into) = 0;

    /** Channels the source delivers, 1 or 2. */
    virtual int32_t channels() { return 2; }

    /**
     * Announces the stream format; the node sizes its work buffers here for blocks of up to blockSize
     * frames.
     * @param sampleRate frames per second
     * @param blockSize largest frames of a request
     */
    // [ui thread, device stopped]
    virtual void prepare(uint32_t sampleRate, uint32_t blockSize) = 0;

protected:
    AudioSource() = default;
    AudioSource(const AudioSource&) = default;
    AudioSource& operator=(const AudioSource&) = default;
    ~AudioSource() = default;
};
