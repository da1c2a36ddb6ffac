// Several writers at once: threads, processes, the configuration tool. Nobody's value is lost, and nothing
// is kept from one call to the next.
#include <mxuci.h>

#include "support/gateway.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <malloc.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const char base[] = "\nconfig globals 'g'\n\toption one '1'\n"
                    "\nconfig device\n\toption name 'first'\n\n";

class mxuci_neighbours_test : public gateway_test {
protected:
    mxuci_neighbours_test() { gateway.set_config("t", base); }

    // The values that writers 0..writers-1 have added; each in its own order.
    void expect_all_values(int writers, int values) const
    {
        const text_lines all = gateway.uci_list("t.g.many").value_or(text_lines{});
        EXPECT_EQ(all.size(), static_cast<size_t>(writers * values));
        for (int writer = 0; writer < writers; writer++) {
            const std::string start = std::to_string(writer) + "-";
            int next = 0;
            for (const std::string &value : all) {
                if (value.starts_with(start)) {
                    EXPECT_EQ(value, start + std::to_string(next++));
                }
            }
            EXPECT_EQ(next, values) << "of writer " << writer;
        }
    }
};

// Adds a writer's values; returns whether all calls succeeded.
bool add_values(int writer, int values)
{
    bool good = true;
    for (int i = 0; i < values; i++)
        good &=
            mxuci_add_list("t", "g", "many", (std::to_string(writer) + "-" + std::to_string(i)).c_str()) == 0;
    return good;
}

pid_t add_values_in_a_process(int writer, int values)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(add_values(writer, values) ? 0 : 1);
    return child;
}

int status_of(pid_t child)
{
    int status = -1;
    return waitpid(child, &status, 0) == child ? status : -1;
}

TEST_F(mxuci_neighbours_test, no_value_of_several_threads_is_lost)
{
    constexpr int writers = 4, values = 50;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; writer++)
        threads.emplace_back([&failures, writer] { failures += add_values(writer, values) ? 0 : 1; });
    std::atomic<bool> done{false};
    int wrong_reads = 0;
    std::thread reader([&done, &wrong_reads] {
        char buffer[16];
        while (!done)
            if (mxuci_get("t", "g", "one", buffer, sizeof(buffer)) != 0 || std::string(buffer) != "1")
                wrong_reads++;
    });

    for (std::thread &thread : threads)
        thread.join();
    done = true;
    reader.join();

    EXPECT_EQ(failures, 0);
    EXPECT_EQ(wrong_reads, 0);
    expect_all_values(writers, values);
}

TEST_F(mxuci_neighbours_test, no_value_of_several_processes_is_lost)
{
    constexpr int writers = 4, values = 50;
    std::vector<pid_t> children;
    for (int writer = 0; writer < writers; writer++)
        children.push_back(add_values_in_a_process(writer, values));

    for (const pid_t child : children)
        EXPECT_EQ(status_of(child), 0);

    expect_all_values(writers, values);
}

TEST_F(mxuci_neighbours_test, no_value_is_lost_beside_the_configuration_tool)
{
    constexpr int values = 25;
    const auto tool = [](const char *commit) {
        return child_process({"busybox", "ash", "-c",
                              std::string("i=0; while [ $i -lt 25 ]; do uci add_list t.g.many=1-$i") +
                                  commit + " || exit 1; i=$((i+1)); done"});
    };
    const pid_t beside = add_values_in_a_process(0, values);
    child_process committing = tool(" && uci commit t");

    EXPECT_EQ(status_of(beside), 0);
    EXPECT_EQ(committing.wait(std::chrono::seconds(60)), 0);
    expect_all_values(2, values);

    // Changes that are only left pending are committed by our writes.
    gateway.set_config("t", base);
    const pid_t again = add_values_in_a_process(0, values);
    child_process pending = tool("");
    EXPECT_EQ(status_of(again), 0);
    EXPECT_EQ(pending.wait(std::chrono::seconds(60)), 0);
    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0);
    EXPECT_EQ(run_program({"uci", "changes", "t"}).output, "");
    expect_all_values(2, values);
}

TEST_F(mxuci_neighbours_test, sections_added_at_once_all_get_their_options)
{
    constexpr int writers = 3, sections = 20;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; writer++)
        threads.emplace_back([writer] {
            for (int i = 0; i < sections; i++) {
                char name[16] = "";
                (void)mxuci_add_section("t", "device", name);
                (void)mxuci_set("t", name, "name",
                                (std::to_string(writer) + "-" + std::to_string(i)).c_str());
            }
        });
    for (std::thread &thread : threads)
        thread.join();

    text_lines names;
    for (int i = 1; i <= writers * sections; i++)
        names.push_back(gateway.uci_get("t.@device[" + std::to_string(i) + "].name").value_or("none"));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
    EXPECT_EQ(std::find(names.begin(), names.end(), "none"), names.end());
}

// All calls once, with success and without.
void make_every_call()
{
    char buffer[64];
    char name[16] = "";
    int count = 0;
    (void)mxuci_get("t", "g", "one", buffer, sizeof(buffer));
    (void)mxuci_get("t", "g", "none", buffer, sizeof(buffer));
    (void)mxuci_get("none", "g", "one", buffer, sizeof(buffer));
    (void)mxuci_get("broken", "g", "one", buffer, sizeof(buffer));
    (void)mxuci_set("t", "g", "one", "2");
    (void)mxuci_set("t", "g", "one", "1");
    (void)mxuci_set("t", "none", "one", "1");
    (void)mxuci_set("broken", "g", "one", "1");
    (void)mxuci_add_list("t", "g", "many", "a");
    (void)mxuci_total_list("t", "g", "many", &count);
    (void)mxuci_del_list("t", "g", "many", "a");
    (void)mxuci_del_list("t", "none", "many", "a");
    (void)mxuci_add_section("t", "device", name);
    (void)mxuci_del_section("t", name);
    (void)mxuci_del_section("t", "none");
    (void)mxuci_delete("t", "g", "none");
}

TEST_F(mxuci_neighbours_test, nothing_is_kept_between_calls)
{
    gateway.set_config("broken", "config device\n\toption 'unfinished\n");
    const auto open_files = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    for (int i = 0; i < 20; i++)
        make_every_call();
    const auto files = open_files();
    const size_t memory = mallinfo2().uordblks;

    for (int i = 0; i < 100; i++)
        make_every_call();

    EXPECT_EQ(open_files(), files);
    EXPECT_LT(mallinfo2().uordblks, memory + 4096) << "a leak of one call in sixteen would show tenfold";
    for (const std::string &left : gateway.list_directory("/etc/config"))
        EXPECT_FALSE(left.starts_with('.')) << left;
}

} // namespace
