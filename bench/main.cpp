// korvel-bench: measures the daemon in the virtual gateway against what cannot be avoided.
#include "measure.h"

#include "root/gateway_root.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <stdexcept>

namespace {

constexpr char usage_text[] =
    "Usage: korvel-bench [--rounds N] [--requests N] [--wans N,N...] [--only WHAT] [--csv FILE] [--plot "
    "FILE]\n"
    "\n"
    "  --rounds N     of each comparison, 15\n"
    "  --requests N   before the memory is looked at, 20000\n"
    "  --wans N,N...  numbers of WANs, ascending: 8,32,128,250\n"
    "  --only WHAT    changes, queries, latency, start, script, memory or size; may be given again\n"
    "  --daemon PATH  what is measured instead of this build's, for latency and queries\n"
    "  --smallest DIR where the programs of the smallest build are, for size\n"
    "  --csv FILE     writes the table\n"
    "  --plot FILE    writes a plot (SVG)\n"
    "\n"
    "Files lie in the gateway's file system, which goes with it, unless they are in the build directory.\n";

struct options {
    effort work = {15, 20000};
    std::vector<int> wans = {8, 32, 128, 250};
    std::vector<std::string> only;
    std::string csv, plot;
    std::string daemon = "korvel";
};

constexpr struct {
    const char *name;
    void (*measure)(ground &, const effort &, figures &);
} parts[] = {
    {"changes", measure_changes}, {"queries", measure_queries}, {"latency", measure_latency},
    {"start", measure_start},     {"script", measure_script},   {"memory", measure_memory},
    {"size", measure_size},
};

[[noreturn]] void end_with_usage(int status)
{
    (void)fputs(usage_text, status ? stderr : stdout);
    exit(status);
}

std::vector<int> numbers(const char *text)
{
    std::vector<int> found;
    for (const char *at = text; at; at = strchr(at, ',') ? strchr(at, ',') + 1 : nullptr)
        found.push_back(atoi(at));
    return found;
}

options parse(int argc, char **argv)
{
    constexpr option known[] = {
        {"rounds", required_argument, nullptr, 'r'},   {"requests", required_argument, nullptr, 'q'},
        {"wans", required_argument, nullptr, 'w'},     {"only", required_argument, nullptr, 'o'},
        {"smallest", required_argument, nullptr, 's'}, {"csv", required_argument, nullptr, 'c'},
        {"plot", required_argument, nullptr, 'p'},     {"daemon", required_argument, nullptr, 'd'},
        {"help", no_argument, nullptr, 'h'},           {}};
    options parsed;
    for (int letter; (letter = getopt_long(argc, argv, "h", known, nullptr)) != -1;) {
        switch (letter) {
        case 'r':
            parsed.work.rounds = atoi(optarg);
            break;
        case 'q':
            parsed.work.requests = atoi(optarg);
            break;
        case 'w':
            parsed.wans = numbers(optarg);
            break;
        case 'o':
            parsed.only.push_back(optarg);
            break;
        case 's':
            parsed.work.smallest = optarg;
            break;
        case 'c':
            parsed.csv = optarg;
            break;
        case 'p':
            parsed.plot = optarg;
            break;
        case 'd':
            parsed.daemon = optarg;
            break;
        default:
            end_with_usage(letter == 'h' ? EXIT_SUCCESS : EXIT_FAILURE);
        }
    }
    if (optind != argc || parsed.work.rounds < 1)
        end_with_usage(EXIT_FAILURE);
    return parsed;
}

void run(const options &wanted)
{
    ground gateway(wanted.wans, wanted.daemon);
    figures found;
    for (const auto &part : parts)
        if (wanted.only.empty() || std::ranges::find(wanted.only, part.name) != wanted.only.end()) {
            fprintf(stderr, "measuring: %s\n", part.name);
            part.measure(gateway, wanted.work, found);
        }
    print_table(found, stdout);
    if (!wanted.csv.empty())
        write_csv(found, wanted.csv);
    if (!wanted.plot.empty())
        write_plot(found, wanted.plot);
}

} // namespace

int main(int argc, char **argv)
{
    const options wanted = parse(argc, argv);
    return enter_gateway(gateway_root_options(), [&] {
        try {
            run(wanted);
            return EXIT_SUCCESS;
        } catch (const std::exception &failure) {
            fprintf(stderr, "korvel-bench: %s\n", failure.what());
            return EXIT_FAILURE;
        }
    });
}
