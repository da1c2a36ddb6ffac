#include "faults/judgement.h"

#include "faults/text_list.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace {

// A message's priority is that of an error of a daemon.
constexpr char error_mark[] = "<27>";

file_tree on_disk(file_tree files, bool memory_lost)
{
    if (memory_lost)
        std::erase_if(files, [](const auto &entry) { return entry.first.starts_with("/tmp/"); });
    return files;
}

// Says which of the two states the files are, or else in what they differ from either.
void judge_files(verdict &given, const observation &seen, const whole_states &states)
{
    const auto to_before =
        differences(on_disk(seen.present, seen.memory_lost), on_disk(states.before, seen.memory_lost));
    const auto to_after =
        differences(on_disk(seen.present, seen.memory_lost), on_disk(states.after, seen.memory_lost));
    given.before = to_before.empty();
    given.after = to_after.empty();
    if (!given.before && !given.after)
        given.wrong =
            "is neither; against before: " + joined(to_before) + "; against after: " + joined(to_after);
}

std::string judge_secrets(const observation &seen)
{
    for (const file_tree *const files : {&seen.at_once, &seen.present})
        if (const auto readable = readable_with(*files, secret_word); !readable.empty())
            return "a secret can be read in " + joined(readable);
    return {};
}

std::string judge_reply(const verdict &given, const observation &seen, const whole_states &states)
{
    const heard_reply &reply = seen.reply;
    if (!reply.answered || states.meaning == success::promises)
        return {};
    const bool binding = states.meaning == success::means_done || !seen.call_failed;
    if (reply.succeeded && binding && !given.after)
        return "was answered as done and is as before: " + reply.text;
    if (!reply.succeeded && !given.before)
        return "was answered as failed and is as after: " + reply.text;
    return {};
}

// Who is as after has told every service so, before or since the next start.
std::string judge_reloads(const verdict &given, const observation &seen, const whole_states &states)
{
    std::set<std::string> missing(states.reloads.begin(), states.reloads.end());
    for (const std::string &service : seen.reloads)
        missing.erase(service);
    if (!seen.must_reload || !given.after || missing.empty())
        return {};
    return "is as after, but not reloaded: " + joined({missing.begin(), missing.end()});
}

// The name of what a temporary file is to replace, as a log line should give it.
std::string plain_name(const std::string &path)
{
    std::string name = path.substr(path.rfind('/') + 1);
    if (name.starts_with("."))
        name.erase(0, 1);
    for (const char *const mark : {".uci-", ".korvel-", ".new"})
        name = name.substr(0, name.find(mark));
    return name;
}

bool names_one(const std::string &message, const std::vector<std::string> &paths)
{
    return std::any_of(paths.begin(), paths.end(), [&message](const std::string &path) {
        return message.find(plain_name(path)) != std::string::npos;
    });
}

// The library passes over pending changes that it cannot open: then only that they are missing can be told.
bool gives_reason(const std::string &message, int error)
{
    return message.find(strerror(error)) != std::string::npos ||
           message.find("it would not read back as what is meant") != std::string::npos;
}

// A call that failed and kept the operation from being done has to be told of, with file and reason.
std::string judge_log(const verdict &given, const observation &seen)
{
    if (!seen.call_failed || given.after)
        return {};
    std::string told;
    bool named = seen.failed_paths.empty();
    for (const std::string &message : seen.messages) {
        if (!message.starts_with(error_mark))
            continue;
        told = message;
        named = named || (names_one(message, seen.failed_paths) && gives_reason(message, seen.error));
    }
    if (told.empty())
        return "failed without a word in the log";
    return named ? "" : "the log does not name file and reason: " + told;
}

} // namespace

verdict judge(const observation &seen, const whole_states &states)
{
    verdict given;
    given.wrong = seen.wrong;
    if (given.wrong.empty())
        judge_files(given, seen, states);
    if (given.wrong.empty())
        given.wrong = judge_secrets(seen);
    if (given.wrong.empty())
        given.wrong = judge_reply(given, seen, states);
    if (given.wrong.empty())
        given.wrong = judge_reloads(given, seen, states);
    if (given.wrong.empty())
        given.wrong = judge_log(given, seen);
    given.healed = given.wrong.empty() && seen.at_once != states.before && seen.at_once != states.after;
    return given;
}
