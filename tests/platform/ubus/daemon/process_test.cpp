// The daemon as a program: options, its socket, signals.
#include "platform/ubus/daemon_fixture.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr char bus_directory[] = "/var/run/ubus";

class ubusd_process_test : public ubusd_test {
protected:
    ubusd_process_test() { fs::remove_all(bus_directory); }
};

mode_t mode_of(const std::string &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_mode : 0;
}

ino_t inode_of(const std::string &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

TEST_F(ubusd_process_test, unknown_option_shows_the_usage)
{
    for (const char *option : {"-h", "-x", "-s", "-A", "--help"}) {
        SCOPED_TRACE(option);
        const program_result result = run_program({UBUSD_PROGRAM, option});

        EXPECT_EQ(1, result.status);
        EXPECT_EQ("", result.output);
        EXPECT_NE(std::string::npos, result.errors.find("Usage: " UBUSD_PROGRAM)) << result.errors;
    }
    EXPECT_FALSE(fs::exists(bus_directory));
}

TEST_F(ubusd_process_test, socket_is_open_to_everybody)
{
    start();

    EXPECT_EQ(mode_t{S_IFSOCK | 0666}, mode_of(socket_path));
}

TEST_F(ubusd_process_test, bus_directory_is_made_even_for_a_socket_elsewhere)
{
    start();

    EXPECT_EQ(mode_t{S_IFDIR | 0755}, mode_of(bus_directory));
}

TEST_F(ubusd_process_test, default_socket_is_in_the_bus_directory)
{
    socket_path = std::string(bus_directory) + "/ubus.sock";
    daemon = child_process({UBUSD_PROGRAM});

    ASSERT_TRUE(wait_until([&] { return S_ISSOCK(mode_of(socket_path)); }));
    EXPECT_EQ(mode_t{S_IFSOCK | 0666}, mode_of(socket_path));
    EXPECT_EQ(0, daemon.stop(SIGTERM));
    EXPECT_FALSE(fs::exists(socket_path));
}

TEST_F(ubusd_process_test, end_signals_remove_the_socket)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        start();
        raw_client client = connect();
        client.hello();

        EXPECT_EQ(0, daemon.stop(signal));

        EXPECT_FALSE(fs::exists(socket_path));
        EXPECT_EQ("closed", client.receive());
    }
}

TEST_F(ubusd_process_test, end_signal_during_the_start_is_not_lost)
{
    for (int i = 0; i < 20; i++) {
        daemon = child_process({UBUSD_PROGRAM, "-s", socket_path});
        ASSERT_TRUE(wait_until([&] { return fs::exists(socket_path); }));

        EXPECT_EQ(0, daemon.stop(SIGTERM));
    }
}

TEST_F(ubusd_process_test, hangup_and_broken_pipe_are_survived)
{
    start();
    raw_client client = connect();
    client.hello();

    kill(daemon.pid(), SIGHUP);
    kill(daemon.pid(), SIGPIPE);

    EXPECT_TRUE(client.pending().empty());
    EXPECT_TRUE(connect().pending().empty());
}

TEST_F(ubusd_process_test, socket_that_cannot_be_bound_ends_the_start)
{
    const struct {
        std::string path;
        const char *error;
    } cases[] = {
        {directory + "/missing/socket", "usock: No such file or directory\n"},
        {directory, "usock: Address already in use\n"},
        {directory + "/" + std::string(200, 'x'), "usock: File name too long\n"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.path);
        const program_result result = run_program({UBUSD_PROGRAM, "-s", row.path});

        EXPECT_EQ(255, result.status);
        EXPECT_EQ(row.error, result.errors);
        EXPECT_EQ("", result.output);
    }
}

TEST_F(ubusd_process_test, second_daemon_takes_the_path_over)
{
    start();
    raw_client old_client = connect();
    ASSERT_NE(0u, old_client.add_object("old"));
    child_process first = std::move(daemon);
    const ino_t old_socket = inode_of(socket_path);

    daemon = child_process({UBUSD_PROGRAM, "-s", socket_path});
    ASSERT_TRUE(wait_until([&] {
        const ino_t current = inode_of(socket_path);
        return current != 0 && current != old_socket;
    }));

    EXPECT_EQ(4, connect().call(message(msg_lookup, 1, 0, text_field(field_path, "old"))));
    EXPECT_TRUE(old_client.pending().empty());
    first.stop(SIGKILL);
}

TEST_F(ubusd_process_test, file_in_the_way_is_replaced)
{
    std::ofstream(socket_path) << "left by a crash";

    start();

    EXPECT_TRUE(S_ISSOCK(mode_of(socket_path)));
}

TEST_F(ubusd_process_test, daemon_out_of_descriptors_serves_its_clients_and_recovers)
{
    program_arguments args{"/bin/sh", "-c", "ulimit -n 24; exec \"$0\" -s \"$1\"", UBUSD_PROGRAM,
                           socket_path};
    daemon = child_process(args);
    ASSERT_TRUE(wait_until([&] { return fs::exists(socket_path); }));
    ASSERT_TRUE(connect().pending().empty());
    std::vector<raw_client> clients;
    for (int i = 0; i < 40; i++)
        clients.push_back(connect());

    EXPECT_TRUE(clients[0].pending().empty());
    // Those that did not get in are served as soon as others have left.
    clients.erase(clients.begin(), clients.begin() + 30);
    for (raw_client &client : clients)
        EXPECT_TRUE(client.pending().empty());
}

} // namespace
