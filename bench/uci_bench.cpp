// How fast configurations are parsed and exported, and how the cost grows with their length. A ratio of 10
// between a line of the table and the one before is linear growth.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

#include <uci.h>

namespace {

constexpr int lengths[] = {10, 100, 1000, 10000};
constexpr int rounds = 7;

struct free_context {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using context_owner = std::unique_ptr<uci_context, free_context>;

double now()
{
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void require(bool condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "uci_bench: %s\n", what);
    exit(1);
}

// ---- the configurations, of so many lines ----

std::string interfaces(int lines)
{
    std::string text;
    for (int i = 0; i < lines / 5; i++) {
        const std::string number = std::to_string(i);
        text += "config interface 'wan_" + number + "'\n\toption proto 'dhcp'\n\toption device 'pon." +
                number + "'\n\toption mtu '1500'\n\tlist dns '192.0.2.1'\n";
    }
    return text;
}

std::string devices(int lines)
{
    std::string text;
    for (int i = 0; i < lines / 2; i++)
        text += "config device\n\toption name 'eth0." + std::to_string(i) + "'\n";
    return text;
}

std::string one_section(int lines)
{
    std::string text = "config korvel 'settings'\n";
    for (int i = 1; i < lines; i++)
        text += "\toption field_" + std::to_string(i) + " 'value'\n";
    return text;
}

std::string one_list(int lines)
{
    std::string text = "config korvel 'settings'\n";
    for (int i = 1; i < lines; i++)
        text += "\tlist wanList '" + std::to_string(i) + "'\n";
    return text;
}

struct shape {
    const char *name;
    std::string (*make)(int lines);
};

constexpr shape shapes[] = {
    {"named sections", interfaces},
    {"anonymous sections", devices},
    {"options of one section", one_section},
    {"values of one list", one_list},
};

// ---- the measurement ----

struct cost {
    double parse, write; // seconds
};

uci_package *parse(uci_context *ctx, const std::string &text)
{
    FILE *const stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    require(stream != nullptr, "no memory");
    uci_package *p = nullptr;
    require(uci_import(ctx, stream, "bench", &p, true) == UCI_OK, "the import failed");
    fclose(stream);
    return p;
}

void write(uci_context *ctx, uci_package *p)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&data, &size);
    require(stream != nullptr && uci_export(ctx, stream, p, true) == UCI_OK, "the export failed");
    fclose(stream);
    free(data);
}

// The least of several rounds, each repeated until it takes long enough to be measured.
cost measure(const std::string &text)
{
    const int repeats = std::max(1, static_cast<int>(200000 / text.size()));
    cost least = {1e9, 1e9};
    for (int round = 0; round < rounds; round++) {
        cost sum = {0, 0};
        for (int i = 0; i < repeats; i++) {
            const context_owner ctx(uci_alloc_context());
            const double start = now();
            uci_package *const p = parse(ctx.get(), text);
            const double parsed = now();
            write(ctx.get(), p);
            sum.parse += parsed - start;
            sum.write += now() - parsed;
        }
        least.parse = std::min(least.parse, sum.parse / repeats);
        least.write = std::min(least.write, sum.write / repeats);
    }
    return least;
}

void print_shape(const shape &what)
{
    printf("%s\n%8s %12s %12s %10s %12s %12s %10s\n", what.name, "lines", "parse/us", "lines/s", "growth",
           "export/us", "lines/s", "growth");
    cost before = {0, 0};
    for (const int lines : lengths) {
        const cost now_taken = measure(what.make(lines));
        printf("%8d %12.1f %12.0f %10.1f %12.1f %12.0f %10.1f\n", lines, now_taken.parse * 1e6,
               lines / now_taken.parse, before.parse > 0 ? now_taken.parse / before.parse : 0,
               now_taken.write * 1e6, lines / now_taken.write,
               before.write > 0 ? now_taken.write / before.write : 0);
        before = now_taken;
    }
    putchar('\n');
}

} // namespace

int main()
{
    for (const shape &what : shapes)
        print_shape(what);
    return 0;
}
