#include "devices/jack/JackClient.h"

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

namespace kv3jack
{
namespace
{

/** Attempts still blocked inside libjack; while one is, the server is taken as not answering.
    Relaxed: it is a count read only to decide whether to try, with no data published through it. */
std::atomic<int> stuckCalls{0};

/** The state of one bounded call, shared by the waiting thread and the helper thread. */
struct BoundedCall
{
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    bool abandoned = false;
    jack_client_t* client = nullptr;
    jack_status_t status = jack_status_t(0);
    int result = 0;
};

void quietThunk(const char*) {}

/** Runs `work` on a helper thread, waits at most `wait`. On a time-out the call is marked
    abandoned; `work` then finishes on its own and `cleanup` runs on its result. */
template <typename Work, typename Cleanup>
bool runBounded(const std::shared_ptr<BoundedCall>& call, std::chrono::milliseconds wait, Work work,
                Cleanup cleanup)
{
    stuckCalls.fetch_add(1, std::memory_order_relaxed);
    std::thread helper(
        [call, work, cleanup]
        {
            work(*call);
            bool abandoned = false;
            {
                std::lock_guard<std::mutex> lock(call->mutex);
                call->finished = true;
                abandoned = call->abandoned;
                // Counted off before the waiter wakes, so that its next attempt isn't refused.
                if (!abandoned)
                {
                    stuckCalls.fetch_sub(1, std::memory_order_relaxed);
                }
            }
            call->done.notify_all();
            if (abandoned)
            {
                cleanup(*call);
                stuckCalls.fetch_sub(1, std::memory_order_relaxed);
            }
        });
    helper.detach();
    std::unique_lock<std::mutex> lock(call->mutex);
    if (!call->done.wait_for(lock, wait, [&] { return call->finished; }))
    {
        call->abandoned = true;
        return false;
    }
    return true;
}

} // namespace

std::string serverName()
{
    const char* env = std::getenv("JACK_DEFAULT_SERVER");
    return (env && *env) ? std::string(env) : std::string("default");
}

std::string deviceName()
{
    const std::string server = serverName();
    return server == "default" ? std::string("JACK") : server;
}

int pendingCalls()
{
    return stuckCalls.load(std::memory_order_relaxed);
}

void silenceLibraryMessages()
{
    jack_set_error_function(quietThunk);
    jack_set_info_function(quietThunk);
}

namespace
{

void ignoreBrokenPipes()
{
    // libjack writes to the server's socket without asking to be spared SIGPIPE, so a server that
    // dies between two requests would end the whole program. A broken pipe is reported to libjack
    // as an error instead, which reaches us as a failed call and the reset path. Left alone if the
    // program has chosen a handler of its own.
    struct sigaction current;
    std::memset(&current, 0, sizeof current);
    if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL)
    {
        signal(SIGPIPE, SIG_IGN);
    }
}

} // namespace

jack_client_t* openClient(const char* clientName, std::string* error)
{
    silenceLibraryMessages();
    ignoreBrokenPipes();
    if (stuckCalls.load(std::memory_order_relaxed) > 0)
    {
        if (error)
        {
            *error = "the JACK server \"" + serverName() + "\" does not answer";
        }
        return nullptr;
    }
    auto call = std::make_shared<BoundedCall>();
    const std::string name = clientName;
    const std::string server = serverName();
    const bool answered = runBounded(
        call, kOpenWait,
        [name, server](BoundedCall& c)
        {
            jack_status_t status = jack_status_t(0);
            jack_client_t* client = jack_client_open(
                name.c_str(), jack_options_t(JackNoStartServer | JackServerName), &status, server.c_str());
            std::lock_guard<std::mutex> lock(c.mutex);
            c.client = client;
            c.status = status;
        },
        [](BoundedCall& c)
        {
            if (c.client)
            {
                jack_client_close(c.client);
            }
        });
    if (!answered)
    {
        if (error)
        {
            *error = "the JACK server \"" + server + "\" does not answer";
        }
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(call->mutex);
    if (!call->client && error)
    {
        *error = (call->status & JackServerFailed)
                     ? "no JACK server \"" + server + "\" is running"
                     : "the JACK server \"" + server + "\" refused the connection";
    }
    return call->client;
}

bool callClient(jack_client_t* client, std::function<int(jack_client_t*)> work, int* result,
                void (*lateCleanup)(void*), void* arg)
{
    auto call = std::make_shared<BoundedCall>();
    const bool answered = runBounded(
        call, kCloseWait,
        [client, work](BoundedCall& c)
        {
            const int r = work(client);
            std::lock_guard<std::mutex> lock(c.mutex);
            c.result = r;
        },
        [client, lateCleanup, arg](BoundedCall&)
        {
            // Given up: no other thread touches the client any more, so it is closed here, after
            // the request, never beside it.
            jack_client_close(client);
            if (lateCleanup)
            {
                lateCleanup(arg);
            }
        });
    if (answered && result)
    {
        std::lock_guard<std::mutex> lock(call->mutex);
        *result = call->result;
    }
    return answered;
}

bool deactivateClient(jack_client_t* client, void (*lateCleanup)(void*), void* arg)
{
    if (!client)
    {
        return true;
    }
    auto call = std::make_shared<BoundedCall>();
    return runBounded(
        call, kCloseWait, [client](BoundedCall& c) { c.result = jack_deactivate(client); },
        [client, lateCleanup, arg](BoundedCall&)
        {
            // Given up: no other thread touches the client any more, so it is closed here, after
            // the deactivation, never beside it.
            jack_client_close(client);
            if (lateCleanup)
            {
                lateCleanup(arg);
            }
        });
}

bool closeClient(jack_client_t* client, bool deactivate, void (*lateCleanup)(void*), void* arg)
{
    if (!client)
    {
        return true;
    }
    auto call = std::make_shared<BoundedCall>();
    return runBounded(
        call, kCloseWait,
        [client, deactivate](BoundedCall&)
        {
            if (deactivate)
            {
                jack_deactivate(client);
            }
            jack_client_close(client);
        },
        [lateCleanup, arg](BoundedCall&)
        {
            if (lateCleanup)
            {
                lateCleanup(arg);
            }
        });
}

} // namespace kv3jack
