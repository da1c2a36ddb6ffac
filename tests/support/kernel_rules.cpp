// Reading and taking back rules, with the machine's own programs: looking at a rule must leave no line in the
// journal.
#include "support/kernel_rules.h"

#include "support/gateway.h"

#include "root/find_program.h"

#include <net/if.h>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

program_result run(const program_arguments &args)
{
    program_result result = run_program(args);
    if (result.status)
        throw std::runtime_error(args[0] + " fails: " + result.errors);
    return result;
}

// The machine's program with these arguments.
std::string output_of(const char *program, program_arguments args)
{
    const std::string path = find_program(program);
    if (path.empty())
        throw std::runtime_error(std::string(program) + " is not installed");
    args.insert(args.begin(), path);
    return run(args).output;
}

text_lines tidy_lines(const std::string &text)
{
    text_lines result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        for (char &byte : line)
            byte = byte == '\t' ? ' ' : byte;
        while (line.ends_with(' '))
            line.pop_back();
        if (!line.empty())
            result.push_back(line);
    }
    return result;
}

// "Bridge chain: FORWARD, entries: 1, policy: ACCEPT" followed by the chain's rules.
text_lines with_chain_names(const std::string &listing)
{
    constexpr std::string_view chain_start = "Bridge chain: ";
    text_lines result;
    std::string chain;
    for (const std::string &line : tidy_lines(listing)) {
        if (line.starts_with(chain_start))
            chain = line.substr(chain_start.size(), line.find(',') - chain_start.size());
        else if (line.starts_with('-'))
            result.push_back(chain + " " + line);
    }
    return result;
}

// The gateway's own ebtables knows the tables that the kernel lacks.
std::string bridge_table(const std::string &table, const char *operation)
{
    return run({std::string(gateway_bin) + "/ebtables", "-t", table, operation}).output;
}

void delete_added_devices()
{
    struct if_nameindex *const devices = if_nameindex();
    for (const struct if_nameindex *device = devices; device && device->if_name; device++) {
        const std::string_view name = device->if_name;
        if (name.starts_with("pon.") || name.starts_with("pppoe-"))
            output_of("ip", {"link", "delete", std::string(name)});
    }
    if_freenameindex(devices);
}

void flush_route_tables()
{
    std::set<std::string> tables;
    std::istringstream routes(output_of("ip", {"route", "show", "table", "all"}));
    for (std::string word; routes >> word;)
        if (word == "table" && routes >> word && word != "local")
            tables.insert(word);
    for (const std::string &table : tables)
        output_of("ip", {"route", "flush", "table", table});
}

} // namespace

void reset_kernel_rules()
{
    static bool fresh = true;
    if (fresh) {
        fresh = false;
        return;
    }
    delete_added_devices();
    flush_route_tables();
    output_of("ip", {"rule", "flush"});
    output_of("ip", {"rule", "add", "pref", "32766", "lookup", "main"});
    output_of("ip", {"rule", "add", "pref", "32767", "lookup", "default"});
    output_of("iptables", {"-t", "mangle", "-F"});
    bridge_table("filter", "-F");
    bridge_table("broute", "-F");
}

text_lines gateway::ebtables_rules() const
{
    return with_chain_names(bridge_table("filter", "-L"));
}

text_lines gateway::broute_rules() const
{
    return with_chain_names(bridge_table("broute", "-L"));
}

text_lines gateway::ip_rules() const
{
    return tidy_lines(output_of("ip", {"rule", "show"}));
}

text_lines gateway::ip_routes(const std::string &table) const
{
    // A table that never had a route does not exist for the kernel.
    const program_result result = run_program({find_program("ip"), "route", "show", "table", table});
    if (result.status && result.errors.find("FIB table does not exist") == std::string::npos)
        throw std::runtime_error("ip route: " + result.errors);
    return tidy_lines(result.output);
}

text_lines gateway::iptables_mangle_output() const
{
    text_lines rules;
    for (const std::string &line : tidy_lines(output_of("iptables", {"-t", "mangle", "-S", "OUTPUT"})))
        if (line.starts_with("-A"))
            rules.push_back(line);
    return rules;
}
