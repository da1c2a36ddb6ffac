// Who may do what: the roles in the bus daemon's and the remote-procedure daemon's access files.
#include "package/recipe.h"
#include "support/daemon_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <grp.h>
#include <libubus.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned nobody = 65534;
constexpr unsigned role_group = 42001;
constexpr char operator_file[] = "/usr/share/acl.d/korvel-operator.json";
constexpr char provisioning_file[] = "/usr/share/acl.d/korvel-provisioning.json";
constexpr char remote_file[] = "/usr/share/rpcd/acl.d/korvel.json";

text_lines sorted(text_lines lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

text_lines texts(const json_value &list)
{
    text_lines result;
    for (size_t i = 0; i < list.size(); i++)
        result.push_back(list.at(i).string());
    return result;
}

// Does something on the bus as nobody of that group and returns the bus status.
int act_as(unsigned group, const std::function<int(ubus_context *)> &action)
{
    const pid_t child = fork();
    if (child == 0) {
        if (setgroups(0, nullptr) != 0 || setgid(group) != 0 || setuid(nobody) != 0)
            _exit(200);
        ubus_context *const bus = ubus_connect(nullptr);
        _exit(bus ? action(bus) : 201);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_LT(WEXITSTATUS(status), 200) << "no call was made";
    return WEXITSTATUS(status);
}

// Calls a method without arguments.
int call_as(unsigned group, uint32_t object, const std::string &method)
{
    return act_as(group, [&](ubus_context *bus) {
        blob_buf message{};
        (void)blob_buf_init(&message, 0);
        return ubus_invoke(bus, object, method.c_str(), message.head, nullptr, nullptr, 20000);
    });
}

int listen_as(unsigned group, const char *event)
{
    return act_as(group, [&](ubus_context *bus) {
        ubus_event_handler handler{};
        return ubus_register_event_handler(bus, &handler, event);
    });
}

bool may_become_nobody()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(setgroups(0, nullptr) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0 ? 0 : 1);
    int status = 0;
    (void)waitpid(child, &status, 0);
    return status == 0;
}

class access_test : public daemon_test {
protected:
    access_test()
    {
        silence_services();
        gateway.start_netd();
        gateway.start_korvel();
    }

    json_value parsed(const char *path) const { return json_value::parse(gateway.file(path)); }

    // The methods that the daemon offers, sorted.
    text_lines offered(const std::string &object = "korvel") const
    {
        text_lines names;
        std::istringstream lines(run_program({"ubus", "-v", "list", object}).output);
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with("\t\""))
                names.push_back(line.substr(2, line.find('"', 2) - 2));
        return sorted(names);
    }

    text_lines granted(const char *path, const char *object = "korvel") const
    {
        return texts(parsed(path).at("access").at(object).at("methods"));
    }

    static void name_group(const std::string &group_name)
    {
        std::ofstream("/etc/group", std::ios::app) << group_name << ":x:" << role_group << ":\n";
    }

    // The methods that are not refused to a user of a group of that name.
    text_lines reached_as(const std::string &group_name, const std::string &object = "korvel") const
    {
        name_group(group_name);
        std::string id = run_program({"ubus", "-v", "list", object}).output;
        id = id.substr(id.find('@') + 1, 8);
        text_lines reached;
        for (const std::string &method : offered(object))
            if (call_as(role_group, static_cast<uint32_t>(std::stoul(id, nullptr, 16)), method) !=
                UBUS_STATUS_PERMISSION_DENIED)
                reached.push_back(method);
        return reached;
    }
};

TEST_F(access_test, a_user_with_no_role_is_refused_everything)
{
    if (!may_become_nobody())
        GTEST_SKIP() << "this run has only one user";
    const std::string before = gateway.config("network");

    EXPECT_EQ(text_lines{}, reached_as("users-of-nothing"));
    EXPECT_EQ(text_lines{}, reached_as("users-of-nothing", "korvel.state"));
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, listen_as(role_group, "korvel.wan"));

    EXPECT_EQ(before, gateway.config("network"));
}

TEST_F(access_test, an_operator_sees_and_changes_nothing)
{
    if (!may_become_nobody())
        GTEST_SKIP() << "this run has only one user";
    const std::string before = gateway.config("network");

    EXPECT_EQ((text_lines{"all", "get"}), reached_as("korvel-operator"));
    EXPECT_EQ((text_lines{"last", "pending", "version"}), reached_as("korvel-operator", "korvel.state"));
    EXPECT_EQ(UBUS_STATUS_OK, listen_as(role_group, "korvel.wan"));
    for (const char *const event : {"korvel.*", "*", "network.interface"})
        EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, listen_as(role_group, event)) << event;

    EXPECT_EQ(before, gateway.config("network"));
}

TEST_F(access_test, provisioning_may_do_everything)
{
    if (!may_become_nobody())
        GTEST_SKIP() << "this run has only one user";

    EXPECT_EQ(offered(), reached_as("korvel-provisioning"));
    EXPECT_EQ(offered("korvel.state"), reached_as("korvel-provisioning", "korvel.state"));
    EXPECT_EQ(UBUS_STATUS_OK, listen_as(role_group, "korvel.wan"));
}

TEST_F(access_test, the_roles_name_the_methods_that_there_are)
{
    ASSERT_EQ(7U, offered().size());
    EXPECT_EQ(offered(), sorted(granted(provisioning_file)));
    EXPECT_EQ((text_lines{"all", "get"}), granted(operator_file));
    ASSERT_EQ(4U, offered("korvel.state").size());
    EXPECT_EQ(offered("korvel.state"), sorted(granted(provisioning_file, "korvel.state")));
    EXPECT_EQ((text_lines{"last", "pending", "version"}), granted(operator_file, "korvel.state"));
}

// The bus daemon passes over a file that anybody but root could have written.
TEST_F(access_test, the_bus_daemon_may_trust_its_files)
{
    for (const char *path : {operator_file, provisioning_file}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(0644U, gateway.mode(path));
    }
}

TEST_F(access_test, an_installation_on_a_running_gateway_makes_the_roles_known)
{
    if (!may_become_nobody())
        GTEST_SKIP() << "this run has only one user";
    const char added[] = "/usr/share/acl.d/added.json";
    gateway.write_file(added, R"({"group":"testers","access":{"korvel":{"methods":["get"]}}})");
    gateway.write_file("/etc/init.d/rpcd", "#!/bin/sh\nexec gateway-tool journal \"$0\" \"$@\"\n", 0755);
    ASSERT_EQ(text_lines{}, reached_as("testers"));
    gateway.clear_commands();

    EXPECT_EQ(0, run_control(gateway, "postinst").status);

    EXPECT_EQ((text_lines{"/etc/init.d/rpcd reload"}), gateway.commands());
    EXPECT_EQ((text_lines{"get"}), reached_as("testers"));
    gateway.remove(added);
    gateway.remove("/etc/init.d/rpcd");
}

TEST_F(access_test, remote_callers_have_the_same_roles)
{
    const json_value roles = parsed(remote_file);
    ASSERT_EQ((text_lines{"korvel-operator", "korvel-provisioning"}), roles.keys());

    for (const char *const object : {"korvel", "korvel.state"}) {
        SCOPED_TRACE(object);
        const json_value seeing = roles.at("korvel-operator");
        EXPECT_EQ((text_lines{"description", "read"}), seeing.keys());
        EXPECT_EQ(granted(operator_file, object), texts(seeing.at("read").at("ubus").at(object)));

        const json_value changing = roles.at("korvel-provisioning");
        text_lines both = texts(changing.at("read").at("ubus").at(object));
        for (const std::string &method : texts(changing.at("write").at("ubus").at(object)))
            both.push_back(method);
        EXPECT_EQ(offered(object), sorted(both));
    }
}

} // namespace
