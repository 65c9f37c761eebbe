#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

/**
 * A thread with a polled stop flag. A subclass puts its work in run(), which polls running() at
 * least every few milliseconds: that flag is the only means of stopping it.
 *
 * A subclass calls stop() in its own destructor, so that run() never outlives the object it works on;
 * this destructor stops too, as a last resort.
 */
class someThread
{
public:
    someThread() = default;
    someThread(const someThread&) = delete;
    someThread& operator=(const someThread&) = delete;
    virtual ~someThread();

    /**
     * Sets the running flag and starts the thread at once.
     * @return false, with the flag cleared again, when the thread can't be made
     */
    // [ui thread]
    bool start();
    /** Clears the running flag and waits, without a time limit, for the thread to end. */
    // [ui thread]
    void stop();

    /** Whether the thread is asked to keep running. */
    // [any thread]
    bool running() const { return running_.load(std::memory_order_relaxed) != 0; }

protected:
    /** The thread's body; returns when running() goes false. */
    // [disk thread]
    virtual void run() = 0;

private:
    std::thread thread_;
    /** Stop request polled by run(): relaxed, since the join orders everything that follows. */
    std::atomic<int32_t> running_{0};
};
