#pragma once

// Real GTK windows under a private Xvfb: one X server per test program, started with -displayfd
// on a 1280x1024 screen, GTK opened on it (X11 only), GLib's warnings counted so that a test can
// require none, and xdotool run as another process while the test pumps the GTK loop.

#include "epi/ui/epiApplication.h"
#include "epi/ui/gtk/epiWindow.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace xvfb
{

/** Warnings and criticals that GLib, GDK or GTK logged since the display opened. */
inline int& warningCount()
{
    static int count = 0;
    return count;
}

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

/** Runs the GTK loop for `seconds`. */
inline void settle(double seconds = 0.1)
{
    pumpUntil([] { return false; }, seconds);
}

/** `argv` as the C strings that spawning takes, null-terminated; valid while `argv` is. */
inline std::vector<char*> cArguments(const std::vector<std::string>& argv)
{
    std::vector<char*> args;
    for (const std::string& word : argv)
        args.push_back(const_cast<char*>(word.c_str()));
    args.push_back(nullptr);
    return args;
}

/** Starts a process with `argv` (searched on PATH), writing where the test does. @return its pid, -1 when it
 * can't start */
inline pid_t spawn(const std::vector<std::string>& argv)
{
    GPid pid = -1;
    if (!g_spawn_async(nullptr, cArguments(argv).data(), nullptr,
                       GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD), nullptr, nullptr, &pid,
                       nullptr))
        return -1;
    return pid;
}

/** Another program (searched on PATH), its output read while the GTK loop goes on; stopped at the end. */
class Program
{
public:
    /** With `withErrors` its stderr joins the output; otherwise it keeps the test's. */
    explicit Program(const std::vector<std::string>& argv, bool withErrors = true)
    {
        const GSpawnChildSetupFunc joinErrors = [](gpointer) { dup2(STDOUT_FILENO, STDERR_FILENO); };
        if (g_spawn_async_with_pipes(nullptr, cArguments(argv).data(), nullptr,
                                     GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD),
                                     withErrors ? joinErrors : nullptr, nullptr, &pid_, nullptr, &fd_,
                                     nullptr, nullptr))
            fcntl(fd_, F_SETFL, O_NONBLOCK);
    }
    ~Program()
    {
        stop();
        if (fd_ >= 0)
            close(fd_);
    }
    void stop()
    {
        if (pid_ <= 0)
            return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
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
        if (pid_ <= 0 ||
            !pumpUntil([&] { return output(), waitpid(pid_, &status, WNOHANG) == pid_; }, seconds))
            return -1;
        pid_ = -1;
        output();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string output_;
};

/** Runs `argv` to its end while the GTK loop goes on. @return its exit status, -1 on failure */
inline int run(const std::vector<std::string>& argv, double seconds = 10.0)
{
    return Program(argv).wait(seconds);
}

/** `text` split into words as the shell splits it. */
inline std::vector<std::string> words(const std::string& text)
{
    gchar** list = nullptr;
    g_shell_parse_argv(text.c_str(), nullptr, &list, nullptr);
    std::vector<std::string> split(list, list + (list != nullptr ? g_strv_length(list) : 0));
    g_strfreev(list);
    return split;
}

/** Runs xdotool with `arguments`, split as the shell splits them. @return its exit status */
inline int xdotool(const std::string& arguments)
{
    return run(words("xdotool " + arguments));
}

/** The X server of this test program, with GTK opened on it; stopped when the program ends. */
class Server
{
public:
    static Server& instance()
    {
        static Server server;
        return server;
    }
    bool ready() const { return ready_; }
    const std::string& failure() const { return failure_; }

private:
    Server()
    {
        // The server writes its display number once it accepts connections.
        if (!xvfb_.waitFor("\n", 20.0))
        {
            failure_ = "Xvfb gave no display number";
            return;
        }
        const std::string number = xvfb_.output().substr(0, xvfb_.output().find('\n'));
        setenv("DISPLAY", (":" + number).c_str(), 1);
        setenv("GDK_BACKEND", "x11", 1);
        setenv("GSETTINGS_BACKEND", "memory", 1);
        setenv("NO_AT_BRIDGE", "1", 1);
        g_log_set_writer_func(
            [](GLogLevelFlags level, const GLogField* fields, gsize count, gpointer data)
            {
                if (level & (G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR))
                    ++warningCount();
                return g_log_writer_default(level, fields, count, data);
            },
            nullptr, nullptr);
        int argc = 0;
        char** argv = nullptr;
        ready_ = epiGtk::openDisplay(&argc, &argv);
        if (!ready_)
            failure_ = "GTK can't open " + number;
    }

    Program xvfb_{{"Xvfb", "-displayfd", "1", "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset"},
                  false};
    bool ready_ = false;
    std::string failure_;
};

} // namespace xvfb

/** Fails a test when no X server could be started for it. */
#define XVFB_REQUIRE() ASSERT_TRUE(xvfb::Server::instance().ready()) << xvfb::Server::instance().failure()

/**
 * A started application attached to GTK on the test program's X server. The windows open() gives
 * are closed at the end, and no warning may have been logged by then.
 */
template <class App = epiWindowApplication> class GtkAppTest : public testing::Test
{
protected:
    void SetUp() override
    {
        XVFB_REQUIRE();
        ASSERT_TRUE(app.start());
        epiGtk::attach(app);
    }
    void TearDown() override
    {
        for (epiWindow* window : windows_)
            window->notifyDestroyed();
        app.stop();
        EXPECT_EQ(xvfb::warningCount(), 0);
    }

    /** Opens a window from layout text, once it is copied to the screen; null (and a failure) if not. */
    template <class Window = epiWindow> Window* open(const std::string& text)
    {
        auto* window = dynamic_cast<Window*>(app.openWindowText(epiText(text)));
        if (window == nullptr || !xvfb::pumpUntil([&] { return window->lastCopiedPixels() > 0; }))
        {
            ADD_FAILURE() << "the window isn't shown";
            return nullptr;
        }
        windows_.push_back(window);
        return window;
    }

    /** The screen position of `window`'s client area, plus (`dx`, `dy`). */
    static std::pair<int, int> screenAt(epiWindow* window, int dx, int dy)
    {
        int x = 0;
        int y = 0;
        GtkWidget* top = gtk_widget_get_toplevel(window->clientWidget());
        gtk_widget_translate_coordinates(window->clientWidget(), top, dx, dy, &dx, &dy);
        gdk_window_get_origin(gtk_widget_get_window(top), &x, &y);
        return {x + dx, y + dy};
    }

    /** screenAt() as xdotool takes it: "X Y". */
    static std::string onScreen(epiWindow* window, int dx, int dy)
    {
        const auto [x, y] = screenAt(window, dx, dy);
        return std::to_string(x) + " " + std::to_string(y);
    }

    /** The screen's colour at screenAt(), as 0xRRGGBB. */
    static uint32_t pixel(epiWindow* window, int dx, int dy)
    {
        const auto [x, y] = screenAt(window, dx, dy);
        GdkPixbuf* shot = gdk_pixbuf_get_from_window(gdk_get_default_root_window(), x, y, 1, 1);
        const guchar* p = gdk_pixbuf_read_pixels(shot);
        const uint32_t rgb = (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
        g_object_unref(shot);
        return rgb;
    }

    App app;

private:
    std::vector<epiWindow*> windows_;
};
