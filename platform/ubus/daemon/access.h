// Who a client is and what the access files let it do.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace ubusd {

struct caller {
    std::string user;
    std::string group;
    // Everything is allowed. Root is trusted, and so is the user this daemon runs as, which differs from a
    // gateway: there only root runs it, on a development host anybody does.
    bool trusted = false;
};

// Who is at the other end of a connected socket; nothing if the user database knows its user or group not.
std::optional<caller> identify_peer(int socket);

// Whether text is what pattern names: equal, or begins with it when the pattern ends in '*'.
bool matches(std::string_view pattern, std::string_view text);

class access_rules {
public:
    // Reads <directory>/*.json in place of what was read before. A file that does not belong to root and
    // root's group (nor to the user this daemon runs as, when that is another), that others may write or
    // execute, or that is no valid rule file is reported on standard error and left out.
    void load(const char *directory);

    bool may_call(const caller &who, std::string_view path, std::string_view method) const;
    bool may_publish(const caller &who, std::string_view path) const;
    bool may_subscribe(const caller &who, std::string_view path) const;
    bool may_listen(const caller &who, std::string_view pattern) const;
    bool may_send(const caller &who, std::string_view event) const;

private:
    struct call_rule {
        std::string path;
        std::vector<std::string> methods;
    };
    using patterns = std::vector<std::string>;
    struct grant {
        std::string user, group; // one of both is set
        std::vector<call_rule> calls;
        patterns publish, subscribe, listen, send;

        bool applies_to(const caller &who) const;
    };

    static std::optional<grant> read_file(const std::string &path);
    bool allowed(const caller &who, patterns grant::*list, std::string_view name) const;

    std::vector<grant> rules_;
};

} // namespace ubusd
