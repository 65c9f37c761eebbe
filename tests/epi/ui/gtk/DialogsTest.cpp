// The platform's dialogs through `epiview --ask`, another process: the open and folder choosers
// accept a path typed into their location field (Ctrl+L, the path, Enter) and print it, Escape cancels with
// nothing printed, and the window carries the exact title. Nothing is written on stderr.

#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace
{

std::string slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

struct Answer
{
    int status = -1;
    std::string out;
    std::string err;
};

/** Runs the dialog and, once it is shown under `title`, xdotool with each of `steps` in turn. */
Answer ask(const std::string& kind, const std::string& title,
           const std::vector<std::vector<std::string>>& steps)
{
    const std::string work =
        std::filesystem::temp_directory_path() / ("epiview_ask_" + std::to_string(getpid()));
    std::filesystem::create_directories(work);
    const std::string command = std::string("'") + EPIVIEW_PATH + "' --ask " + kind + " '" + title + "' >'" +
                                work + "/out' 2>'" + work + "/err'";
    const pid_t dialog = xvfb::spawn({"sh", "-c", command});
    Answer answer;
    if (dialog < 0)
        return answer;
    // The title must match exactly for the search to find the window.
    std::vector<std::string> script{"xdotool",         "search",      "--sync", "--name",
                                    "^" + title + "$", "windowfocus", "--sync"};
    int typed = xvfb::run(script, 15.0);
    // Each step is a run of its own: xdotool's "type" takes every word after it as text.
    for (const std::vector<std::string>& step : steps)
    {
        std::vector<std::string> command{"xdotool"};
        command.insert(command.end(), step.begin(), step.end());
        if (typed == 0)
            typed = xvfb::run(command, 15.0);
    }
    int status = 0;
    const bool ended = xvfb::pumpUntil([&] { return waitpid(dialog, &status, WNOHANG) == dialog; }, 10.0);
    if (!ended)
    {
        kill(dialog, SIGKILL);
        waitpid(dialog, nullptr, 0);
    }
    answer.status = typed == 0 && ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    answer.out = slurp(work + "/out");
    answer.err = slurp(work + "/err");
    std::filesystem::remove_all(work);
    return answer;
}

} // namespace

TEST(GtkDialogs, TypedPathsAreChosenAndEscapeCancels)
{
    XVFB_REQUIRE();
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("epiview_files_" + std::to_string(getpid()));
    std::filesystem::create_directories(folder / "inner");
    std::ofstream(folder / "take one.wav") << "x";
    const std::string existing = (folder / "take one.wav").string();

    struct Row
    {
        const char* kind;
        const char* title;
        std::string typed;
        std::string printed;
    };
    for (const Row& row :
         {Row{"open", "Open a take", existing, existing},
          Row{"folder", "Choose a folder", (folder / "inner").string() + "/", (folder / "inner").string()}})
    {
        const Answer chosen =
            ask(row.kind, row.title, {{"key", "ctrl+l"}, {"type", row.typed}, {"key", "Return"}});
        EXPECT_EQ(chosen.status, 0) << row.kind;
        EXPECT_EQ(chosen.out, row.printed + "\n") << row.kind;
        EXPECT_EQ(chosen.err, "") << row.kind;
    }
    const Answer cancelled = ask("open", "Open a take", {{"key", "Escape"}});
    EXPECT_EQ(cancelled.status, 0);
    EXPECT_EQ(cancelled.out, "");
    EXPECT_EQ(cancelled.err, "");
    std::filesystem::remove_all(folder);
}
