#pragma once

#include <jack/jack.h>

#include <chrono>
#include <functional>
#include <string>

/**
 * Connections to a JACK server that never block the interface thread for long. A stopped or
 * hung server makes `jack_client_open` and `jack_client_close` wait without end, so both run on a
 * helper thread that is given up on after a bounded wait; a given-up open closes its client itself
 * if it ever returns, and while one is still stuck no further attempt is started.
 */
namespace kv3jack
{

/** The server this process talks to: $JACK_DEFAULT_SERVER, or "default". */
std::string serverName();
/** The device name shown for the server: "JACK" for the default server, else the server's name. */
std::string deviceName();

/** How long the interface thread waits for a server to answer an open, and for a close. */
inline constexpr std::chrono::milliseconds kOpenWait{1500};
inline constexpr std::chrono::milliseconds kCloseWait{1000};

/**
 * Connects to the server without ever starting one.
 * @param clientName the client's name on the server
 * @param error set to a readable reason on failure
 * @returns the client, or null when there is no server, it refused, or it didn't answer in time
 */
jack_client_t* openClient(const char* clientName, std::string* error);

/**
 * Deactivates (when `deactivate`) and closes a client within the bounded wait.
 * @param lateCleanup when the server didn't answer in time, called with `arg` on the helper thread
 *        once the close has finally returned (the client's callbacks have then ended); may be null
 * @returns false when the server didn't answer and the close was left to a helper thread
 */
bool closeClient(jack_client_t* client, bool deactivate, void (*lateCleanup)(void*) = nullptr,
                 void* arg = nullptr);

/**
 * Deactivates a client within the bounded wait.
 * @param lateCleanup when the server didn't answer in time, the client is given up: once the
 *        deactivation finally returns on the helper thread, the helper closes the client and calls
 *        this with `arg`. No other call may then touch the client. May be null.
 * @returns false when the server didn't answer and the client was given up
 */
bool deactivateClient(jack_client_t* client, void (*lateCleanup)(void*) = nullptr, void* arg = nullptr);

/**
 * Runs one libjack request on a client within the bounded wait: a server that was frozen or hung
 * after the open never answers `jack_port_register`, `jack_activate`, `jack_connect` or
 * `jack_set_buffer_size`.
 * @param work the request, owning what it reads (it may outlive the caller's frame on a time-out);
 *        its result is written to `result` when it answers in time
 * @param lateCleanup when the server didn't answer in time, the client is given up: once the
 *        request finally returns on the helper thread, the helper closes the client and calls this
 *        with `arg`. No other call may then touch the client. May be null.
 * @returns false when the server didn't answer and the client was given up
 */
bool callClient(jack_client_t* client, std::function<int(jack_client_t*)> work, int* result,
                void (*lateCleanup)(void*) = nullptr, void* arg = nullptr);

/** Calls to libjack given up on and still running on their helper threads. While there are any,
    no new connection is tried. */
int pendingCalls();

/** Routes libjack's own error and info printing away from the terminal; the callers report. */
void silenceLibraryMessages();

} // namespace kv3jack
