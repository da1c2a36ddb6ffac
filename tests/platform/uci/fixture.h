// Directories, contexts and the tool for tests of the configuration library. Every test has an empty
// /tmp/.uci.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <uci.h>

#include "support/process.h"

// A configuration with two named and two anonymous sections, as the library writes it, less the outer empty
// lines.
extern const std::string base_config;
// What a commit makes of it.
extern const std::string written_base;

struct free_uci_context {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using context_owner = std::unique_ptr<uci_context, free_uci_context>;

// A ptr as a caller fills it in.
uci_ptr named(const char *package, const char *section, const char *option = nullptr,
              const char *value = nullptr);

// The text of the latest error, with prefix "p".
std::string error_text(uci_context *ctx);

// The export of a package, or of all if it is null.
std::string exported(uci_context *ctx, uci_package *p, bool header = false);

// The values of a list option; a string is one value.
std::vector<std::string> values_of(uci_context *ctx, uci_section *s, const char *option);

// Runs body in a forked process and expects it to end without a failed expectation.
void expect_in_child(const std::function<void()> &body);

class uci_test : public testing::Test {
protected:
    uci_test();
    ~uci_test() override;

    // Files; a missing one reads as no text.
    std::string config_path(const std::string &name = "n") const { return config_dir + "/" + name; }
    std::string delta_path(const std::string &name = "n") const { return save_dir + "/" + name; }
    static void write(const std::string &path, const std::string &text);
    static std::optional<std::string> read(const std::string &path);
    std::optional<std::string> config() const { return read(config_path()); }
    std::optional<std::string> delta() const { return read(delta_path()); }
    void write_config(const std::string &text) const { write(config_path(), text); }
    void write_delta(const std::string &text) const;

    // A context on this test's directories, overrides off.
    context_owner new_context() const;

    // The tool with words on this test's directories.
    program_result run(const program_arguments &words) const;
    // The same for words without blanks, in one text.
    program_result uci(const std::string &words) const;
    // Output of a command that must succeed in silence otherwise.
    std::string output_of(const std::string &words) const;
    // Commands that must succeed without any output.
    void quietly(const std::vector<std::string> &commands) const;

    std::string root;
    std::string config_dir, save_dir;
};

// The same with the base configuration as "n", loaded by nobody.
class uci_base_test : public uci_test {
protected:
    uci_base_test() { write_config(base_config); }

    context_owner owner = new_context();
    uci_context *const ctx = owner.get();

    // Loads "n", which must succeed.
    uci_package *load();
};
