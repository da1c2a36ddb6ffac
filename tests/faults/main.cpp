// korvel-faults: tries the daemon's operations with one thing going wrong each time.
#include "faults/report.h"
#include "faults/trial.h"

#include "root/gateway_root.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <getopt.h>
#include <iostream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr char usage[] =
    R"(Usage: korvel-faults [OPTION]...

Tries the daemon's operations, each time with one thing going wrong, and judges
the files after its next start. Ends with 1 when one try is not whole.

  --all              every operation and fault; without it: the short form
  --operation TEXT   only operations whose name contains TEXT
  --fault TEXT       only faults whose name contains TEXT
  --page FILE        write the table there, as Markdown, if every try is whole
  --every N          only every N-th try of each kind, from the first on
  --details N        tell of at most N tries that went wrong of each kind (20)
  --leave-out CALL:N let the daemon's N-th call of that kind (rename, sync,
                     unlink ...) do nothing: a planted fault, which must show
  --calls            only print what each operation calls and allocates
  --workers N        private roots at the same time (as many as processors)
  --help             print this text
)";

constexpr int status_wrong = 1;
constexpr int status_usage = 2;

struct options {
    bool all = false, calls = false;
    std::string operation, fault, page;
    size_t details = 20, every = 1;
    left_out_call left_out;
    unsigned workers = std::max(1U, std::thread::hardware_concurrency());
};

left_out_call parse_left_out(const std::string &text)
{
    const size_t colon = text.find(':');
    const auto kind = kind_named(text.substr(0, colon));
    const size_t number = colon == std::string::npos ? 1 : strtoul(text.c_str() + colon + 1, nullptr, 10);
    if (!kind || number == 0)
        throw std::invalid_argument("no such call: " + text);
    return {*kind, number};
}

options parse(int argc, char *argv[])
{
    enum { all = 1, operation, fault, page, every, details, leave_out, calls, workers, help };
    constexpr option names[] = {{"all", no_argument, nullptr, all},
                                {"operation", required_argument, nullptr, operation},
                                {"fault", required_argument, nullptr, fault},
                                {"page", required_argument, nullptr, page},
                                {"every", required_argument, nullptr, every},
                                {"details", required_argument, nullptr, details},
                                {"leave-out", required_argument, nullptr, leave_out},
                                {"calls", no_argument, nullptr, calls},
                                {"workers", required_argument, nullptr, workers},
                                {"help", no_argument, nullptr, help},
                                {}};
    options parsed;
    opterr = 0;
    for (int code = 0; (code = getopt_long(argc, argv, "", names, nullptr)) != -1;) {
        switch (code) {
        case all:
            parsed.all = true;
            break;
        case operation:
            parsed.operation = optarg;
            break;
        case fault:
            parsed.fault = optarg;
            break;
        case page:
            parsed.page = optarg;
            break;
        case every:
            parsed.every = std::max(1UL, strtoul(optarg, nullptr, 10));
            break;
        case details:
            parsed.details = strtoul(optarg, nullptr, 10);
            break;
        case leave_out:
            parsed.left_out = parse_left_out(optarg);
            break;
        case calls:
            parsed.calls = true;
            break;
        case workers:
            parsed.workers = std::max(1U, static_cast<unsigned>(strtoul(optarg, nullptr, 10)));
            break;
        case help:
            (void)fputs(usage, stdout);
            exit(0);
        default:
            throw std::invalid_argument("unknown option");
        }
    }
    if (!parsed.page.empty() && (parsed.every > 1 || parsed.left_out.number > 0))
        throw std::invalid_argument("a page is of every try, without a planted fault");
    if (optind != argc)
        throw std::invalid_argument("no arguments are expected");
    return parsed;
}

bool is_wanted(const options &wanted, const operation &tried)
{
    return strstr(tried.name, wanted.operation.c_str()) &&
           (wanted.all || !wanted.operation.empty() || tried.in_short_form);
}

bool is_wanted(const options &wanted, const fault &wrong)
{
    if (!strstr(wrong.name, wanted.fault.c_str()))
        return false;
    return wanted.all || !wanted.fault.empty() || &wrong == &all_faults().front();
}

void send(int pipe, const std::string &line)
{
    if (write(pipe, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        throw std::runtime_error("a worker's reader is gone");
}

told_try told(const operation &tried, const fault &wrong, size_t number, const verdict &given)
{
    told_try one{tried.name, wrong.name, "wrong", "", given.healed};
    if (given.wrong.empty())
        one.outcome = given.after ? "after" : "before";
    one.text = "try " + std::to_string(number + 1) + ", " + given.struck + ": " + given.wrong;
    return one;
}

void print_calls(const trial &trials, const operation &tried)
{
    std::cout << "== " << tried.name << '\n';
    for (size_t i = 0; i < trials.calls().size(); i++)
        std::cout << i + 1 << ' ' << trials.calls()[i] << '\n';
    std::cout << trials.allocations() << " allocations\n" << std::flush;
}

// A worker takes every so many-th try.
void work(const options &wanted, unsigned worker, int pipe)
{
    trial trials(wanted.left_out);
    for (const operation &tried : all_operations()) {
        if (!is_wanted(wanted, tried))
            continue;
        trials.prepare(tried);
        if (wanted.calls)
            print_calls(trials, tried);
        for (const fault &wrong : all_faults()) {
            if (!is_wanted(wanted, wrong) || wanted.calls)
                continue;
            const size_t count = trials.tries(wrong);
            for (size_t i = worker * wanted.every; i < count; i += wanted.workers * wanted.every)
                send(pipe, told(tried, wrong, i, trials.attempt(wrong, i)).line());
        }
    }
}

pid_t start_worker(const options &wanted, unsigned worker, int pipe)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    _exit(enter_gateway(gateway_root_options(), [&] {
        try {
            work(wanted, worker, pipe);
            return 0;
        } catch (const std::exception &failure) {
            (void)fprintf(stderr, "korvel-faults: %s\n", failure.what());
            return status_usage;
        }
    }));
}

// Tells of what has begun and of what goes wrong as it comes: all of it takes long.
void tell_progress(const told_try &one, std::string &begun)
{
    static const auto start = std::chrono::steady_clock::now();
    const std::string pair = one.operation + "; " + one.fault;
    if (pair != begun && one.text.starts_with("try 1,")) {
        const std::chrono::duration<double> now = std::chrono::steady_clock::now() - start;
        (void)fprintf(stderr, "%5.0f s  %s\n", now.count(), pair.c_str());
        begun = pair;
    }
    if (one.outcome == "wrong")
        (void)fprintf(stderr, "%s: %s\n", pair.c_str(), one.text.c_str());
}

void read_tries(int pipe, report &sum)
{
    std::string rest, begun;
    char buffer[65536];
    for (ssize_t count = 0; (count = read(pipe, buffer, sizeof(buffer))) > 0;) {
        rest.append(buffer, static_cast<size_t>(count));
        size_t end = 0;
        while ((end = rest.find('\n')) != std::string::npos) {
            const told_try one = told_try::from_line(rest.substr(0, end));
            tell_progress(one, begun);
            sum.add(one);
            rest.erase(0, end + 1);
        }
    }
}

constexpr char heading[] =
    R"(# What goes wrong, and what is then there

Written by `tools/faults --all`, from the daemon of this tree in the virtual gateway. In each try one thing goes wrong; then the
daemon is started again and everything in `/etc/config`, `/etc/korvel`, `/etc/hotplug.d/iface` and `/tmp` is compared, byte for
byte and mode for mode, with what the operation finds and what it leaves when nothing goes wrong. "By the restart" counts those
that were whole only after it. "Anything else" is a mixture of the two, a file left over, a secret that others can read, a reply
that is not true, a failure whose file and reason the log does not tell, a service that was not told, or a daemon that does not start or stop.

Calls are failed and counted from the moment of the request (for the import: from the opening of its list) on; what the daemon
reads elsewhere, as the bridge's address, is not failed. At a power cut what no sync covers may be kept, lost, kept in part or
mixed, each name and each write for itself, and what is below `/tmp` is lost. A second kill or power cut is tried at each point of
the next start; of an import, which the next start does again, at every 10th and 40th, another one after each first kill. What
a start makes of files that were there before, byte for byte, is not tried again.
)";

int run(options wanted)
{
    if (wanted.calls)
        wanted.workers = 1;
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    std::vector<pid_t> workers;
    const auto start = std::chrono::steady_clock::now();
    for (unsigned i = 0; i < wanted.workers; i++)
        workers.push_back(start_worker(wanted, i, ends[1]));
    (void)close(ends[1]);
    report sum;
    read_tries(ends[0], sum);
    bool complete = true;
    for (const pid_t worker : workers) {
        int status = 0;
        complete = waitpid(worker, &status, 0) == worker && status == 0 && complete;
    }
    if (wanted.calls)
        return complete ? 0 : status_usage;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::cout << sum.page("") << '\n' << sum.details(wanted.details);
    (void)printf("%zu tries, %zu not whole, %.0f s, %.1f tries a second\n", sum.tries(), sum.wrong(),
                 taken.count(), static_cast<double>(sum.tries()) / taken.count());
    if (!complete || sum.tries() == 0) {
        (void)fputs("korvel-faults: not everything was tried\n", stderr);
        return status_usage;
    }
    if (!wanted.page.empty() && sum.wrong() == 0)
        std::ofstream(wanted.page) << sum.page(heading);
    return sum.wrong() == 0 ? 0 : status_wrong;
}

} // namespace

int main(int argc, char *argv[])
{
    try {
        return run(parse(argc, argv));
    } catch (const std::invalid_argument &failure) {
        (void)fprintf(stderr, "korvel-faults: %s\n%s", failure.what(), usage);
    } catch (const std::exception &failure) {
        (void)fprintf(stderr, "korvel-faults: %s\n", failure.what());
    }
    return status_usage;
}
