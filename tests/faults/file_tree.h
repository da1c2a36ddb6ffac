// The files that a gateway keeps its WANs in, as they are at one moment: taken, put back, and compared.
#pragma once

#include <compare>
#include <map>
#include <string>
#include <vector>

struct kept_file {
    unsigned mode = 0; // permission bits
    std::string content;
    auto operator<=>(const kept_file &) const = default;
};

using file_tree = std::map<std::string, kept_file>; // by absolute path

// Everything in the directories of configuration, scripts and provisioning, hidden files included. Pending
// changes of which nothing is left count as none.
file_tree take_files();

// Makes these the only files there.
void put_files(const file_tree &files);

// In what `present` differs from `wanted`, one text per file: "extra /etc/…", "no /etc/…", "other /etc/…",
// "mode /etc/…".
std::vector<std::string> differences(const file_tree &present, const file_tree &wanted);

// Paths of files that hold the word and may be read by others than their owner.
std::vector<std::string> readable_with(const file_tree &files, const std::string &word);

// Whether the path lies in one of the directories.
bool is_kept(const std::string &path);
