#include "audiofiles/someThread.h"

#include <system_error>

someThread::~someThread()
{
    stop();
}

bool someThread::start()
{
    if (thread_.joinable())
        return false;
    running_.store(1, std::memory_order_relaxed);
    // std::thread reports a failure to start by an exception; it is turned into the result here.
    try
    {
        thread_ = std::thread([this] { run(); });
    }
    catch (const std::system_error&)
    {
        running_.store(0, std::memory_order_relaxed);
        return false;
    }
    return true;
}

void someThread::stop()
{
    running_.store(0, std::memory_order_relaxed);
    if (thread_.joinable())
        thread_.join();
}
