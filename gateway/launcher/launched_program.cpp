// Starting and stopping the programs of a gateway.
#include "launcher/launched_program.h"

#include "tools/programs.h"

#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds poll_interval{5};
constexpr std::chrono::seconds stop_deadline{3};

std::string content(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

} // namespace

launched_program::launched_program(const command_words &words, const std::function<bool()> &serves)
    : name_(words.front()), output_path_("/gateway/" + name_ + ".out"),
      child_(start_program(words, output_path_))
{
    const auto deadline = steady_clock::now() + serving_deadline;
    while (!serves()) {
        if (has_ended())
            fail("has ended");
        if (steady_clock::now() > deadline)
            fail("does not serve");
        std::this_thread::sleep_for(poll_interval);
    }
}

launched_program::~launched_program()
{
    if (child_ <= 0)
        return;
    (void)kill(child_, SIGTERM);
    const auto deadline = steady_clock::now() + stop_deadline;
    while (!has_ended()) {
        if (steady_clock::now() > deadline)
            (void)kill(child_, SIGKILL);
        std::this_thread::sleep_for(poll_interval);
    }
}

bool launched_program::has_ended()
{
    if (child_ > 0 && waitpid(child_, nullptr, WNOHANG) == child_)
        child_ = 0;
    return child_ == 0;
}

void launched_program::fail(const std::string &what)
{
    if (child_ > 0) {
        (void)kill(child_, SIGKILL);
        (void)wait_for_program(child_);
    }
    throw std::runtime_error(name_ + " " + what + "\n" + content(output_path_));
}
