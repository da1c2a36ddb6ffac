// Changes: how many files are replaced and synced, and the time compared with a program that knows beforehand
// which files to replace and which commands to run.
#include "measure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

constexpr int vid = 4000;
constexpr char bare_ending[] = "-bare"; // of the scripts of the program that is compared with

using files = std::map<std::string, std::string>;

files stored_files()
{
    files found;
    for (const char *const directory : {"/etc/config", "/etc/hotplug.d/iface", "/etc/korvel"})
        for (const fs::directory_entry &entry : fs::directory_iterator(directory))
            found[entry.path()] = file_text(entry.path());
    return found;
}

// A change: what the daemon is asked, and what must be done for it in any case.
struct change {
    const char *method;
    std::string name; // of its own
    std::vector<std::string> plan = {};
    std::map<std::string, std::string> prepared = {}; // files that are there before the plan is carried out
    // Files that the daemon replaced or removed; a configuration that it changes on either side of a reload,
    // which has to read one and leave the other, counts twice.
    int changed = 0;
    int replaced = 0, synced = 0;
};

bool is_config(const std::string &path)
{
    return fs::path(path).parent_path() == "/etc/config";
}

// Temporary files are hidden.
bool is_script(const std::string &path)
{
    const std::string directory = fs::path(path).parent_path();
    return (directory == "/etc/hotplug.d/iface" || directory == "/etc/korvel") &&
           fs::path(path).filename().string()[0] != '.';
}

// Makes the plan of a change from the calls that the daemon has made for it.
class planner {
public:
    planner(change &change, const files &before, const files &after)
        : change_(change), before_(before), after_(after)
    {}

    void take(const std::string &call, const std::string &first, const std::string &second)
    {
        if (call == "sync")
            change_.synced++;
        else if (call == "rename" && (is_config(second) || is_script(second)))
            take_replacement(second);
        else if (call == "remove" && is_script(first))
            take_removal(first);
        else if (call == "run")
            take_command(first);
    }

private:
    std::string bare(const std::string &path) { return path + bare_ending; }

    void add(const std::string &line, const std::string &needed = {})
    {
        change_.plan.push_back(line);
        if (!needed.empty())
            change_.prepared[bare(needed)] = before_.at(needed);
    }

    void take_removal(const std::string &path)
    {
        if (!before_.contains(path))
            return;
        count(path);
        add("remove " + bare(path), path);
    }

    void take_replacement(const std::string &path)
    {
        change_.replaced++;
        const bool is_first = count(path);
        if (is_config(path)) {
            if (is_first)
                add("replace " + fs::path(path).filename().string());
            return;
        }
        const std::string source =
            std::string(bench_directory) + "/" + change_.name + "-" + fs::path(path).filename().string();
        write_text(source, after_.at(path));
        add("put " + bare(path) + " " + source);
    }

    void take_command(const std::string &command)
    {
        const std::string path = command.substr(0, command.find(' '));
        if (path.starts_with("/etc/init.d/"))
            std::erase_if(counted_, is_config);
        if (before_.contains(path))
            add("run " + bare(path) + command.substr(path.size()), path);
        else
            add("run " + command);
    }

    // Returns false for a file that counts already.
    bool count(const std::string &path)
    {
        const bool is_first = counted_.insert(path).second;
        change_.changed += is_first;
        return is_first;
    }

    change &change_;
    const files &before_, &after_;
    std::set<std::string> counted_; // since the last reload, of configurations
};

// One kind of WAN that is added, modified and deleted again.
class change_cycle {
public:
    change_cycle(ground &gateway, const wan_kind &kind) : gateway_(gateway), kind_(kind) {}

    // Learns from a watched daemon what each change takes among so many WANs.
    void learn(int wans)
    {
        const std::string calls = std::string(bench_directory) + "/calls";
        gateway_.lay_down(wans);
        gateway_.start_watched_daemon(calls);
        for (const char *const method : {"add", "modify", "del"}) {
            change &added = changes_[wans].emplace_back(
                change{method, std::string(method) + std::to_string(&kind_ - wan_kinds.data()) + "-" +
                                   std::to_string(wans)});
            const files before = stored_files();
            fs::remove(calls);
            (void)time_of_daemon(added);
            const files after = stored_files();
            planner planner(added, before, after);
            std::istringstream lines(file_text(calls));
            for (std::string line; std::getline(lines, line);) {
                std::istringstream words(line);
                std::string call, first, second;
                std::getline(words, call, '\t');
                std::getline(words, first, '\t');
                std::getline(words, second, '\t');
                planner.take(call, first, second);
            }
        }
        gateway_.stop_daemon();
    }

    // Takes one round among so many WANs.
    void measure(int wans)
    {
        gateway_.lay_down(wans);
        const std::vector<change> &changes = changes_.at(wans);
        for (size_t i = 0; i < changes.size(); i++)
            results_[wans][i].measure([&] { return time_of_daemon(changes[i]); },
                                      [&] { return time_of_bare(changes[i]); });
        network_bytes_[wans] = static_cast<double>(fs::file_size("/etc/config/network"));
    }

    void report(figures &out) const;

private:
    std::string request(const change &change) const
    {
        const std::string method = change.method;
        if (method == "add")
            return wan_request(kind_, vid);
        const int id = listed_ids().back();
        return method == "del" ? "{\"wanId\":" + std::to_string(id) + "}" : wan_request(kind_, vid + 1, id);
    }

    // What has become of it is looked at, since a refusal would be fast.
    double time_of_daemon(const change &change)
    {
        const std::string json = request(change);
        const double time = time_of([&] { gateway_.client().must_call("korvel", change.method, json); });
        const std::string network = file_text("/etc/config/network");
        const auto has = [&](int tag) {
            return network.find("'pon." + std::to_string(tag) + "'") != network.npos;
        };
        const std::string method = change.method;
        if (has(vid) != (method == "add") || has(vid + 1) != (method == "modify"))
            throw std::runtime_error("the daemon does not " + method);
        return time;
    }

    double time_of_bare(const change &change)
    {
        for (const auto &[path, text] : change.prepared) {
            write_text(path, text);
            fs::permissions(path, fs::perms(0755));
        }
        gateway_.plan(change.plan);
        const double time = time_of([&] { gateway_.client().must_call("bare", "go"); });
        for (const char *const directory : {"/etc/hotplug.d/iface", "/etc/korvel"})
            for (const fs::directory_entry &entry : fs::directory_iterator(directory))
                if (entry.path().string().ends_with(bare_ending))
                    fs::remove(entry);
        return time;
    }

    ground &gateway_;
    const wan_kind &kind_;
    std::map<int, std::vector<change>> changes_; // by number of WANs
    std::map<int, std::array<comparison, 3>> results_;
    std::map<int, double> network_bytes_;
};

spread plain(double value)
{
    return {value, value, value};
}

// The power of the file's size with which a time grows.
spread growth(const spread &few, const spread &many, double bytes_ratio)
{
    const auto power = [&](double from, double to) { return std::log(to / from) / std::log(bytes_ratio); };
    return {power(few.high, many.low), power(few.median, many.median), power(few.low, many.high)};
}

void change_cycle::report(figures &out) const
{
    constexpr double most_ratio = 1.3, most_power = 1.05;
    const std::vector<change> &changes = changes_.rbegin()->second;
    for (size_t i = 0; i < changes.size(); i++) {
        const change &each = changes[i];
        const std::string name = std::string(each.method) + ", " + kind_.name;
        const double f = each.changed;
        const std::string files_text = " for " + std::to_string(each.changed) + " files";
        out.push_back({"replacements, " + name, -1, "the files that it changes", plain(each.replaced / f),
                       1.0, std::to_string(each.replaced) + files_text});
        out.push_back({"syncs, " + name, -1, "twice these files and 4", plain(each.synced / (2 * f + 4)), 1.0,
                       std::to_string(each.synced) + files_text});
        for (const auto &[wans, results] : results_)
            out.push_back({name, wans, "the bare program", results[i].ratio(), most_ratio});
        const auto &[few, few_results] = *results_.begin();
        const auto &[many, many_results] = *results_.rbegin();
        if (few != many)
            out.push_back({"growth of " + name, -1, "the bytes of network (a power)",
                           growth(few_results[i].subject_time(), many_results[i].subject_time(),
                                  network_bytes_.at(many) / network_bytes_.at(few)),
                           most_power});
    }
}

} // namespace

void measure_changes(ground &gateway, const effort &effort, figures &out)
{
    std::vector<change_cycle> cycles;
    for (const size_t kind : {size_t{0}, size_t{1}, bridged_kind})
        cycles.emplace_back(gateway, wan_kinds[kind]);
    for (change_cycle &cycle : cycles)
        for (const int wans : gateway.sizes())
            cycle.learn(wans);
    gateway.lay_down(gateway.sizes().back());
    gateway.start_daemon();
    gateway.start_bare();
    for (int round = 0; round < effort.rounds; round++)
        for (change_cycle &cycle : cycles)
            for (const int wans : gateway.sizes())
                cycle.measure(wans);
    for (const change_cycle &cycle : cycles)
        cycle.report(out);
}
