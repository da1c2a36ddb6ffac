#include "platform/ubus/tool/fixture.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace {

// A terminal whose other side this process reads.
class terminal {
public:
    terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
    {
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0)
            throw std::runtime_error("cannot make a terminal");
        path_ = ptsname(master_);
        // Held open so that what was written stays readable after the program has ended.
        slave_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios mode;
        tcgetattr(slave_, &mode);
        mode.c_oflag &= ~static_cast<tcflag_t>(OPOST);
        tcsetattr(slave_, TCSANOW, &mode);
    }
    ~terminal()
    {
        close(slave_);
        close(master_);
    }
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;

    const std::string &path() const { return path_; }
    std::string written() const
    {
        std::string text;
        std::array<char, 4096> part;
        for (ssize_t got; (got = read(master_, part.data(), part.size())) > 0;)
            text.append(part.data(), static_cast<size_t>(got));
        return text;
    }

private:
    int master_;
    int slave_ = -1;
    std::string path_;
};

} // namespace

std::string file_content(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

ubus_tool_test::~ubus_tool_test()
{
    if (service_input >= 0)
        close(service_input);
}

void ubus_tool_test::start_service()
{
    const std::string input = directory + "/input";
    if (mkfifo(input.c_str(), 0600) != 0)
        throw std::runtime_error("cannot make " + input);
    service_input = open(input.c_str(), O_RDWR | O_CLOEXEC);
    service =
        child_process({"/bin/sh", "-c", "exec \"$0\" \"$1\" <\"$2\"", UBUS_TEST_SERVICE, socket_path, input},
                      {}, directory + "/said");
    raw_client client = connect();
    const bytes lookup = message(msg_lookup, 1, 0, text_field(field_path, "t"));
    if (!wait_until([&] { return client.call(lookup) == 0; }))
        throw std::runtime_error("the service does not come up");
}

void ubus_tool_test::poke_service()
{
    if (write(service_input, "\n", 1) != 1)
        throw std::runtime_error("cannot write to the service");
}

bool ubus_tool_test::service_says(const std::string &text) const
{
    return wait_until([&] { return file_content(directory + "/said") == text; });
}

program_arguments ubus_tool_test::command(const std::vector<std::string> &args) const
{
    program_arguments whole{UBUS_PROGRAM, "-s", socket_path};
    whole.insert(whole.end(), args.begin(), args.end());
    return whole;
}

program_result ubus_tool_test::run(const std::vector<std::string> &args) const
{
    return run_program(command(args));
}

program_result ubus_tool_test::run_on_terminal(const std::vector<std::string> &args) const
{
    const terminal errors;
    const std::string output = directory + "/output";
    child_process tool(command(args), {}, output, errors.path());
    const int status = tool.wait();
    return {status, file_content(output), errors.written()};
}
