// Owns a libuci context and all that was loaded into it.
#pragma once

extern "C" {
#include <uci.h>
}

class context_owner {
public:
    context_owner() : context_(uci_alloc_context()) {}
    ~context_owner()
    {
        if (context_)
            uci_free_context(context_);
    }
    context_owner(const context_owner &) = delete;
    context_owner &operator=(const context_owner &) = delete;
    explicit operator bool() const { return context_ != nullptr; }
    uci_context *get() const { return context_; }

private:
    uci_context *context_;
};
