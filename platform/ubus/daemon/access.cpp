// Access files: JSON, one user or group each.
#include "access.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include <glob.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <json-c/json.h>

namespace ubusd {

namespace {

constexpr mode_t refused_modes = S_IWGRP | S_IWOTH | S_IXOTH;

using json_owner =
    std::unique_ptr<json_object, decltype([](json_object *object) { json_object_put(object); })>;

bool is_trustworthy(const std::string &path)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        return false;
    const bool roots = info.st_uid == 0 && info.st_gid == 0;
    const bool ours = geteuid() != 0 && info.st_uid == geteuid();
    return (roots || ours) && S_ISREG(info.st_mode) && !(info.st_mode & refused_modes);
}

std::string text_member(json_object *object, const char *key)
{
    json_object *member = nullptr;
    if (!json_object_object_get_ex(object, key, &member) || !json_object_is_type(member, json_type_string))
        return {};
    return json_object_get_string(member);
}

std::vector<std::string> list_member(json_object *object, const char *key)
{
    std::vector<std::string> values;
    json_object *list = nullptr;
    if (!json_object_object_get_ex(object, key, &list) || !json_object_is_type(list, json_type_array))
        return values;
    for (size_t i = 0; i < json_object_array_length(list); i++) {
        json_object *const value = json_object_array_get_idx(list, i);
        if (json_object_is_type(value, json_type_string))
            values.emplace_back(json_object_get_string(value));
    }
    return values;
}

bool any_matches(const std::vector<std::string> &patterns, std::string_view text)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [text](const std::string &pattern) { return matches(pattern, text); });
}

} // namespace

std::optional<caller> identify_peer(int socket)
{
    ucred credentials;
    socklen_t size = sizeof(credentials);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return std::nullopt;
    const passwd *const user = getpwuid(credentials.uid);
    const group *const group = getgrgid(credentials.gid);
    if (!user || !group)
        return std::nullopt;
    return caller{user->pw_name, group->gr_name, credentials.uid == 0 || credentials.uid == geteuid()};
}

bool matches(std::string_view pattern, std::string_view text)
{
    if (pattern.empty() || pattern.back() != '*')
        return pattern == text;
    pattern.remove_suffix(1);
    return text.starts_with(pattern);
}

void access_rules::load(const char *directory)
{
    rules_.clear();
    glob_t found{};
    if (glob((std::string(directory) + "/*.json").c_str(), 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc; i++) {
            if (auto rule = read_file(found.gl_pathv[i]))
                rules_.push_back(std::move(*rule));
            else
                fprintf(stderr, "ubusd: %s is no usable access file\n", found.gl_pathv[i]);
        }
    }
    globfree(&found);
}

std::optional<access_rules::grant> access_rules::read_file(const std::string &path)
{
    if (!is_trustworthy(path))
        return std::nullopt;
    const json_owner file(json_object_from_file(path.c_str()));
    if (!json_object_is_type(file.get(), json_type_object))
        return std::nullopt;

    grant read;
    read.user = text_member(file.get(), "user");
    read.group = text_member(file.get(), "group");
    if (read.user.empty() && read.group.empty())
        return std::nullopt;
    read.publish = list_member(file.get(), "publish");
    read.subscribe = list_member(file.get(), "subscribe");
    read.listen = list_member(file.get(), "listen");
    read.send = list_member(file.get(), "send");
    json_object *access = nullptr;
    if (json_object_object_get_ex(file.get(), "access", &access) &&
        json_object_is_type(access, json_type_object)) {
        json_object_object_foreach(access, object_path, entry)
        {
            if (json_object_is_type(entry, json_type_object))
                read.calls.push_back({object_path, list_member(entry, "methods")});
        }
    }
    return read;
}

bool access_rules::grant::applies_to(const caller &who) const
{
    return user.empty() ? group == who.group : user == who.user;
}

bool access_rules::may_call(const caller &who, std::string_view path, std::string_view method) const
{
    if (who.trusted)
        return true;
    for (const grant &rule : rules_) {
        if (!rule.applies_to(who))
            continue;
        for (const call_rule &call : rule.calls) {
            if (matches(call.path, path) && any_matches(call.methods, method))
                return true;
        }
    }
    return false;
}

bool access_rules::allowed(const caller &who, patterns grant::*list, std::string_view name) const
{
    return who.trusted || std::any_of(rules_.begin(), rules_.end(), [&](const grant &rule) {
               return rule.applies_to(who) && any_matches(rule.*list, name);
           });
}

bool access_rules::may_publish(const caller &who, std::string_view path) const
{
    return allowed(who, &grant::publish, path);
}

bool access_rules::may_subscribe(const caller &who, std::string_view path) const
{
    return allowed(who, &grant::subscribe, path);
}

bool access_rules::may_listen(const caller &who, std::string_view pattern) const
{
    return allowed(who, &grant::listen, pattern);
}

bool access_rules::may_send(const caller &who, std::string_view event) const
{
    return allowed(who, &grant::send, event);
}

} // namespace ubusd
