// Bridge rules in a file, one line each: the chain, a blank, the rule's words.
#include "tools/rule_table.h"

#include "tools/places.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

rule_table::rule_table(const std::string &name, const std::vector<std::string> &chains)
    : name_(name), chains_(chains), path_(std::string(state_directory) + "/ebtables-" + name)
{
    std::filesystem::create_directories(state_directory);
    lock_ = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (lock_ < 0 || flock(lock_, LOCK_EX) != 0)
        throw std::system_error(errno, std::generic_category(), path_);
    load();
}

rule_table::~rule_table()
{
    (void)close(lock_);
}

void rule_table::load()
{
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);) {
        const size_t blank = line.find(' ');
        const bool bare = blank == std::string::npos;
        entries_.push_back({line.substr(0, blank), bare ? "" : line.substr(blank + 1)});
    }
}

// Written in place: a new file in the old one's place would not be the file that others wait to lock.
void rule_table::store() const
{
    std::ofstream file(path_, std::ios::trunc);
    for (const entry &stored : entries_)
        file << stored.chain << (stored.rule.empty() ? "" : " ") << stored.rule << '\n';
    if (!file.flush())
        throw std::system_error(errno, std::generic_category(), path_);
}

bool rule_table::has_chain(const std::string &chain) const
{
    return std::find(chains_.begin(), chains_.end(), chain) != chains_.end();
}

bool rule_table::change(rule_change what, const std::string &chain, const command_words &rule)
{
    const entry changed{chain, command_line(rule)};
    if (what == rule_change::insert) {
        entries_.insert(entries_.begin(), changed);
    } else if (what == rule_change::append) {
        entries_.push_back(changed);
    } else {
        const auto found = std::find(entries_.begin(), entries_.end(), changed);
        if (found == entries_.end())
            return false;
        entries_.erase(found);
    }
    store();
    return true;
}

void rule_table::flush(const std::string &chain)
{
    std::erase_if(entries_, [&chain](const entry &stored) { return chain.empty() || stored.chain == chain; });
    store();
}

std::string rule_table::chain_listing(const std::string &chain) const
{
    std::string rules;
    size_t count = 0;
    for (const entry &stored : entries_) {
        if (stored.chain == chain) {
            rules += stored.rule + "\n";
            count++;
        }
    }
    return "\nBridge chain: " + chain + ", entries: " + std::to_string(count) + ", policy: ACCEPT\n" + rules;
}

std::string rule_table::listing(const std::string &chain) const
{
    std::string text = "Bridge table: " + name_ + "\n";
    for (const std::string &listed : chains_) {
        if (chain.empty() || chain == listed)
            text += chain_listing(listed);
    }
    return text;
}
