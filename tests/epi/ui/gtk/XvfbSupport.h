#pragma once

// Real GTK windows under a private Xvfb: one X server per test program, started with -displayfd
// on a 1280x1024 screen, GTK opened on it (X11 only), GLib's warnings counted so that a test can
// require none, and xdotool run as another process while the test pumps the GTK loop.

#include "epi/ui/gtk/epiWindow.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace xvfb
{

/** Warnings and criticals that GLib, GDK or GTK logged since the display opened. */
inline int& warningCount()
{
    static int count = 0;
    return count;
}

inline GLogWriterOutput countingWriter(GLogLevelFlags level, const GLogField* fields, gsize count,
                                       gpointer data)
{
    if (level & (G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR))
        ++warningCount();
    return g_log_writer_default(level, fields, count, data);
}

/** Starts a process with `argv` (searched on PATH). @return its pid, -1 when it can't start */
inline pid_t spawn(const std::vector<std::string>& argv)
{
    std::vector<char*> args;
    for (const std::string& word : argv)
        args.push_back(const_cast<char*>(word.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0)
        return -1;
    return pid;
}

/** The X server of this test program; stopped when the program ends. */
class Server
{
public:
    static Server& instance()
    {
        static Server server;
        return server;
    }
    /** Whether the server runs and GTK opened it. */
    bool ready() const { return ready_; }
    const std::string& failure() const { return failure_; }
    ~Server()
    {
        if (pid_ > 0)
        {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
    }

private:
    Server()
    {
        int fds[2];
        if (pipe(fds) != 0)
        {
            failure_ = "no pipe";
            return;
        }
        pid_ = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "1280x1024x24",
                      "-nolisten", "tcp", "-noreset"});
        close(fds[1]);
        if (pid_ < 0)
        {
            close(fds[0]);
            failure_ = "Xvfb can't start";
            return;
        }
        // The server writes its display number once it accepts connections.
        std::string number;
        pollfd waitFor{fds[0], POLLIN, 0};
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline)
        {
            if (poll(&waitFor, 1, 100) <= 0)
                continue;
            char c = 0;
            if (read(fds[0], &c, 1) != 1 || c == '\n')
                break;
            number.push_back(c);
        }
        close(fds[0]);
        if (number.empty())
        {
            failure_ = "Xvfb gave no display number";
            return;
        }
        setenv("DISPLAY", (":" + number).c_str(), 1);
        setenv("GDK_BACKEND", "x11", 1);
        setenv("GSETTINGS_BACKEND", "memory", 1);
        setenv("NO_AT_BRIDGE", "1", 1);
        g_log_set_writer_func(countingWriter, nullptr, nullptr);
        int argc = 0;
        char** argv = nullptr;
        if (!epiGtk::openDisplay(&argc, &argv))
        {
            failure_ = "GTK can't open " + number;
            return;
        }
        ready_ = true;
    }

    pid_t pid_ = -1;
    bool ready_ = false;
    std::string failure_;
};

/** Runs the GTK loop until `done()` or `seconds` pass. @return done() */
inline bool pumpUntil(const std::function<bool()>& done, double seconds = 5.0)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        if (!g_main_context_iteration(nullptr, FALSE))
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

/** Runs `argv` to its end while the GTK loop goes on. @return its exit status, -1 on failure */
inline int run(const std::vector<std::string>& argv, double seconds = 10.0)
{
    const pid_t pid = spawn(argv);
    if (pid < 0)
        return -1;
    int status = 0;
    const bool ended = pumpUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, seconds);
    if (!ended)
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/** Another program, its output (stdout and stderr) read while the GTK loop goes on; stopped at the end. */
class Program
{
public:
    explicit Program(const std::vector<std::string>& argv)
    {
        int fds[2];
        if (pipe(fds) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        std::vector<char*> args;
        for (const std::string& word : argv)
            args.push_back(const_cast<char*>(word.c_str()));
        args.push_back(nullptr);
        if (posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        fd_ = fds[0];
        fcntl(fd_, F_SETFL, O_NONBLOCK);
    }
    ~Program()
    {
        stop();
        if (fd_ >= 0)
            close(fd_);
    }
    bool started() const { return pid_ > 0; }
    /** Everything it wrote so far. */
    const std::string& output()
    {
        char chunk[512];
        ssize_t got = 0;
        while (fd_ >= 0 && (got = read(fd_, chunk, sizeof chunk)) > 0)
            output_.append(chunk, size_t(got));
        return output_;
    }
    /** Pumps until the output holds `text`. @return it does */
    bool waitFor(const std::string& text, double seconds = 10.0)
    {
        return pumpUntil([&] { return output().find(text) != std::string::npos; }, seconds);
    }
    /** Pumps until it ends. @return its exit status, -1 when it didn't end or was killed */
    int wait(double seconds = 10.0)
    {
        int status = 0;
        if (pid_ <= 0 || !pumpUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, seconds))
            return -1;
        pid_ = -1;
        output();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void stop()
    {
        if (pid_ <= 0)
            return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string output_;
};

/** The screen's pixel at (x, y) as 0xRRGGBB, read back from the X server. */
inline uint32_t screenPixel(int x, int y)
{
    GdkPixbuf* shot = gdk_pixbuf_get_from_window(gdk_get_default_root_window(), x, y, 1, 1);
    const guchar* p = gdk_pixbuf_read_pixels(shot);
    const uint32_t rgb = (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
    g_object_unref(shot);
    return rgb;
}

/** The screen position of a widget's top-left corner. */
inline void screenOrigin(GtkWidget* widget, int& x, int& y)
{
    GtkWidget* top = gtk_widget_get_toplevel(widget);
    int inTopX = 0;
    int inTopY = 0;
    gtk_widget_translate_coordinates(widget, top, 0, 0, &inTopX, &inTopY);
    gdk_window_get_origin(gtk_widget_get_window(top), &x, &y);
    x += inTopX;
    y += inTopY;
}

} // namespace xvfb

/** Skips a test when no X server could be started for it. */
#define XVFB_REQUIRE()                                                                                       \
    do                                                                                                       \
    {                                                                                                        \
        if (!xvfb::Server::instance().ready())                                                               \
            GTEST_FAIL() << xvfb::Server::instance().failure();                                              \
    } while (0)
