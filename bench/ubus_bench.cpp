// How fast calls pass through the bus daemon, and whether that depends on the number of clients. Daemon,
// service and callers run in processes of their own, as on a gateway.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libubus.h>

#include "bus.h"
#include "server.h"

namespace {

constexpr int call_count = 10000;
constexpr int round_count = 5;
constexpr char object_path[] = "bench";

blob_buf reply = {};

int handle_get(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *content)
{
    return ubus_send_reply(bus, request, content);
}

int handle_all(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    return ubus_send_reply(bus, request, reply.head);
}

const ubus_method methods[] = {
    UBUS_METHOD_NOARG("get", handle_get),
    UBUS_METHOD_NOARG("all", handle_all),
};
ubus_object_type type = UBUS_OBJECT_TYPE(object_path, methods);

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "ubus_bench: %s\n", what);
    exit(EXIT_FAILURE);
}

[[noreturn]] void run_daemon(const std::string &path)
{
    uloop_init();
    const ubusd::access_rules access;
    ubusd::bus bus(access);
    ubusd::unique_fd listener = ubusd::listen_at(path.c_str());
    if (!listener)
        fail("cannot listen");
    const ubusd::server server(bus, std::move(listener));
    uloop_run();
    _exit(EXIT_SUCCESS);
}

ubus_context *connect_patiently(const std::string &path)
{
    for (int tries = 0; tries < 1000; tries++) {
        if (ubus_context *const bus = ubus_connect(path.c_str()))
            return bus;
        usleep(5000);
    }
    fail("cannot connect");
}

[[noreturn]] void run_service(const std::string &path)
{
    ubus_context *const bus = connect_patiently(path);
    static ubus_object object = {};
    object.name = object_path;
    object.type = &type;
    object.methods = methods;
    object.n_methods = type.n_methods;
    if (ubus_add_object(bus, &object) != UBUS_STATUS_OK)
        fail("cannot add the object");
    ubus_add_uloop(bus);
    uloop_run();
    _exit(EXIT_SUCCESS);
}

// About what a gateway with eight WANs replies to `all`.
void build_reply()
{
    blob_buf_init(&reply, 0);
    for (int i = 0; i < 8 * 60; i++)
        blobmsg_add_string(&reply, "someField", "a value of the usual size");
}

template <class Body> pid_t start(Body body)
{
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
    }
    return child;
}

struct subject {
    pid_t daemon = 0;
    uint32_t object = 0;
};

struct cost {
    double wall = 0; // seconds per call
    double cpu = 0;  // seconds per call that the daemon's process was busy
};

double cpu_seconds(pid_t process)
{
    clockid_t clock;
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
        fail("cannot read the daemon's clock");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The callers take turns.
cost measure_calls(const subject &subject, const std::vector<ubus_context *> &callers, const char *method,
                   int calls)
{
    blob_buf content = {};
    blob_buf_init(&content, 0);
    blobmsg_add_u32(&content, "wanId", 1);
    const double cpu_begin = cpu_seconds(subject.daemon);
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; i++) {
        ubus_context *const caller = callers[static_cast<size_t>(i) % callers.size()];
        if (ubus_invoke(caller, subject.object, method, content.head, nullptr, nullptr, 10000) !=
            UBUS_STATUS_OK)
            fail("a call failed");
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    blob_buf_free(&content);
    return {taken.count() / calls, (cpu_seconds(subject.daemon) - cpu_begin) / calls};
}

uint32_t find_service(ubus_context *caller)
{
    uint32_t object = 0;
    for (int tries = 0; tries < 1000 && object == 0; tries++) {
        if (ubus_lookup_id(caller, object_path, &object) != UBUS_STATUS_OK)
            usleep(5000);
    }
    if (object == 0)
        fail("the service does not come up");
    return object;
}

struct series {
    const char *method;
    size_t clients;
    int calls;
    cost best{1e9, 1e9};
};

// Rounds over all series, of which the best counts: what else the machine does comes and goes.
void measure(const std::string &path, pid_t daemon)
{
    std::vector<ubus_context *> callers{connect_patiently(path)};
    const subject subject{daemon, find_service(callers[0])};
    while (callers.size() < 100)
        callers.push_back(connect_patiently(path));

    series all[] = {{"get", 1, call_count},
                    {"get", 10, call_count},
                    {"get", 100, call_count},
                    {"all", 1, call_count / 10}};
    for (int round = 0; round < round_count; round++) {
        for (series &row : all) {
            const std::vector<ubus_context *> some(
                callers.begin(), callers.begin() + static_cast<std::ptrdiff_t>(row.clients));
            const cost cost = measure_calls(subject, some, row.method, row.calls);
            row.best = {std::min(row.best.wall, cost.wall), std::min(row.best.cpu, cost.cpu)};
        }
    }

    printf("best of %d rounds; replies of get: 20 bytes, of all: %zu bytes\n", round_count,
           blob_raw_len(reply.head));
    printf("method callers  calls   calls/s  ratio  daemon us/call  ratio\n");
    const cost &first = all[0].best;
    for (const series &row : all) {
        printf("%-6s %7zu %6d %9.0f %6.2f %15.2f %6.2f\n", row.method, row.clients, row.calls,
               1 / row.best.wall, row.best.wall / first.wall, row.best.cpu * 1e6, row.best.cpu / first.cpu);
    }
    for (ubus_context *caller : callers)
        ubus_free(caller);
}

} // namespace

int main()
{
    char directory[] = "/tmp/ubus-bench-XXXXXX";
    if (!mkdtemp(directory))
        fail("cannot make a directory");
    const std::string path = std::string(directory) + "/socket";
    build_reply();
    const pid_t daemon = start([&] { run_daemon(path); });
    const pid_t service = start([&] { run_service(path); });

    measure(path, daemon);

    for (const pid_t child : {service, daemon}) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    unlink(path.c_str());
    rmdir(directory);
    return EXIT_SUCCESS;
}
