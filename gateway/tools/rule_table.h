// A bridge rule table that is kept in a file: the stand-in for tables which the kernel does not have.
#pragma once

#include "tools/journal.h"

#include <string>
#include <vector>

enum class rule_change { insert, append, remove };

// Tables are separate files; every call locks its file, so calls of concurrent programs follow one another. A
// rule is compared by its words. All throw std::system_error when the file cannot be used.
class rule_table {
public:
    // `chains` are the built-in chains of the table, in the order in which they are listed.
    rule_table(const std::string &name, const std::vector<std::string> &chains);
    ~rule_table();
    rule_table(const rule_table &) = delete;
    rule_table &operator=(const rule_table &) = delete;

    bool has_chain(const std::string &chain) const;

    // insert puts the rule first in its chain and append last. remove takes the first equal rule out and
    // returns false when there is none.
    bool change(rule_change what, const std::string &chain, const command_words &rule);
    void flush(const std::string &chain); // empty: all chains
    // The table, or one chain of it, as ebtables lists it.
    std::string listing(const std::string &chain) const;

private:
    struct entry {
        std::string chain;
        std::string rule;
        bool operator==(const entry &) const = default;
    };
    void load();
    void store() const;
    std::string chain_listing(const std::string &chain) const;

    const std::string name_;
    const std::vector<std::string> chains_;
    const std::string path_;
    int lock_;
    std::vector<entry> entries_;
};
