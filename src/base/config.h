// The configuration, for reading and writing: mxuci's calls and whole loaded packages.
//
// libuci's parser keeps static state, and a change may work on the configuration while a query is answered.
// So every load and every mxuci call of this process passes one lock.
#pragma once

#include "base/text.h"

#include <uci.h>

// Keeps the other threads of this process from reading and writing the configuration for its own lifetime, so
// that what was read (a generated section name, say) stays true. May be nested.
class config_hold {
public:
    config_hold();
    ~config_hold();
    config_hold(const config_hold &) = delete;
    config_hold &operator=(const config_hold &) = delete;
};

// mxuci's calls by (configuration, section, option); all return 0 on success. Any thread.
int config_get(const char *config, const char *section, const char *option, text_ref value_out);
int config_set(const char *config, const char *section, const char *option, const char *value);
int config_set_number(const char *config, const char *section, const char *option, int value);
int config_add_list(const char *config, const char *section, const char *option, const char *value);
int config_del_list(const char *config, const char *section, const char *option, const char *value);
// The number of values of a list option; 0 when it is missing, -1 when it cannot be read.
int config_total_list(const char *config, const char *section, const char *option);
// As mxuci_add_section: name_out must hold 16 bytes or more; empty, it receives the generated name.
int config_add_section(const char *config, const char *type, text_ref name_out);
int config_del_section(const char *config, const char *section);
int config_delete(const char *config, const char *section, const char *option);

// Why a call failed: from its result, and errno at that time where the system refused something.
const char *config_reason(int result, int error);

// Has this thread read each configuration once, at its first use, for its own lifetime: all of what is read
// is from one state, and reading more costs no load. Nothing may be written meanwhile, and no operation may
// begin. Without effect within an operation's work, and where the platform's mxuci does not gather. At its
// end the memory that it took goes back to the system: those who need one take their time.
class config_snapshot {
public:
    config_snapshot();
    ~config_snapshot();
    config_snapshot(const config_snapshot &) = delete;
    config_snapshot &operator=(const config_snapshot &) = delete;

private:
    bool begun_;
};

// One configuration as it is at this moment, with a context of its own. What it hands out lives as long as it
// does. While an operation's work runs it is what the operation has gathered: then it changes with every call
// above, and what a call deletes or replaces must not be touched any more. Within a snapshot it is the
// snapshot's, and must go before that.
class uci_loaded {
public:
    explicit uci_loaded(const char *config);
    ~uci_loaded();
    uci_loaded(const uci_loaded &) = delete;
    uci_loaded &operator=(const uci_loaded &) = delete;

    explicit operator bool() const { return package_ != nullptr; }
    // Why it is not there.
    const char *reason() const { return config_reason(result_, error_); }
    uci_list *sections() const { return &package_->sections; }
    // The section of exactly this name, or null.
    uci_section *section(const char *name) const;
    // The option of a section (which may be null), or null.
    uci_option *option(uci_section *section, const char *name) const;
    // The option's value; null when the section or the option is missing or the option is a list.
    const char *plain(uci_section *section, const char *name) const;
    // The option's values; null when the section or the option is missing or the option is plain.
    uci_list *list(uci_section *section, const char *name) const;
    // Reads an option as config_get does, from what is loaded: a list as its values joined by blanks, cut at
    // value_out.size - 1; 0, or UCI_ERR_NOTFOUND with value_out unchanged.
    int get(uci_section *section, const char *name, text_ref value_out) const;

private:
    uci_context *context_;
    uci_package *package_;
    int result_, error_;
    bool owned_;
};
