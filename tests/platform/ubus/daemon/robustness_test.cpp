// Messages that no well-behaved client sends: whatever arrives, the daemon serves the others and keeps its
// memory.
#include "platform/ubus/daemon_fixture.h"

#include <csignal>
#include <fstream>

namespace {

class ubusd_robustness_test : public running_ubusd_test {
protected:
    // One valid message of every type, between an owner and the client that sends it.
    std::vector<bytes> valid_messages(raw_client &client, uint32_t own, uint32_t foreign)
    {
        const bytes to_foreign = number_field(field_object, foreign);
        const bytes from_own = number_field(field_object, own);
        const bytes data =
            attribute(field_data, named_number("x", 1) + named_table("t", named_text("a", "b")));
        const bytes registration = named_number("object", own) + named_text("pattern", "p*");
        const bytes event = named_text("id", "e") + named_table("data", named_number("x", 1));
        const bytes event_call = number_field(field_object, event_object);
        return {
            message(msg_ping, 1, 2, data),
            message(msg_lookup, 1, 0, text_field(field_path, "t*")),
            message(msg_lookup, 1, 0),
            message(msg_invoke, 1, foreign, to_foreign + text_field(field_method, "get") + data),
            message(msg_invoke, 1, event_object,
                    event_call + text_field(field_method, "register") + attribute(field_data, registration)),
            message(msg_invoke, 1, event_object,
                    event_call + text_field(field_method, "send") + attribute(field_data, event)),
            message(msg_data, 1, client.id(), from_own + data),
            message(msg_status, 1, client.id(), from_own + number_field(field_status, 0)),
            message(msg_add_object, 1, 0,
                    text_field(field_path, "new") + attribute(field_signature, test_signature())),
            message(msg_subscribe, 1, 0, from_own + number_field(field_target, foreign)),
            message(msg_notify, 1, 0, from_own + text_field(field_method, "n") + data),
            message(msg_unsubscribe, 1, 0, from_own + number_field(field_target, foreign)),
            message(msg_remove_object, 1, 0, from_own),
            message(msg_monitor, 1, 0),
        };
    }

    // Sends bytes that may end in the middle of a message, on a connection of their own.
    void send_and_leave(const bytes &data)
    {
        raw_client client = connect();
        client.id();
        client.send(data);
    }

    long resident_kilobytes() const
    {
        std::ifstream status("/proc/" + std::to_string(daemon.pid()) + "/status");
        std::string key;
        while (status >> key) {
            long value = 0;
            if (key == "VmRSS:" && status >> value)
                return value;
        }
        return 0;
    }
};

void set_length(bytes &data, size_t length)
{
    data[9] = static_cast<uint8_t>(length >> 16);
    data[10] = static_cast<uint8_t>(length >> 8);
    data[11] = static_cast<uint8_t>(length);
}

TEST_F(ubusd_robustness_test, every_message_may_be_cut_at_every_byte)
{
    raw_client witness = connect();
    const uint32_t foreign = witness.add_object("t");
    raw_client client = connect();
    const uint32_t own = client.add_object("own");
    for (const bytes &valid : valid_messages(client, own, foreign)) {
        SCOPED_TRACE(words(valid));
        for (size_t size = 0; size < valid.size(); size++)
            send_and_leave(bytes(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(size)));
        ASSERT_EQ(0, witness.call(message(msg_ping, 1, 0)));
    }
}

TEST_F(ubusd_robustness_test, every_message_may_claim_every_shorter_length)
{
    raw_client witness = connect();
    const uint32_t foreign = witness.add_object("t");
    raw_client first = connect();
    const uint32_t own = first.add_object("own");
    for (const bytes &valid : valid_messages(first, own, foreign)) {
        SCOPED_TRACE(words(valid));
        for (size_t size = 12; size < valid.size(); size++) {
            bytes cut(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(size));
            set_length(cut, size - 8);
            raw_client client = connect();
            client.add_object("own");
            client.send(cut);
            // The message is complete, so what follows is understood.
            client.pending();
        }
        ASSERT_EQ(0, witness.call(message(msg_ping, 1, 0)));
    }
}

TEST_F(ubusd_robustness_test, every_byte_of_every_message_may_be_wrong)
{
    raw_client witness = connect();
    const uint32_t foreign = witness.add_object("t");
    raw_client client = connect();
    const uint32_t own = client.add_object("own");
    const std::vector<bytes> messages = valid_messages(client, own, foreign);
    for (const bytes &valid : messages) {
        SCOPED_TRACE(words(valid));
        for (size_t place = 0; place < valid.size(); place++) {
            for (const uint8_t value : bytes{0x00, 0x01, 0x03, 0x04, 0x05, 0x7f, 0x80, 0xff}) {
                bytes wrong = valid;
                wrong[place] = value;
                // A longer head would only wait for more: give it what it asks for, up to a limit.
                wrong.resize(wrong.size() + 300);
                raw_client sender = connect();
                sender.id();
                sender.send(wrong);
            }
        }
        ASSERT_EQ(0, witness.call(message(msg_ping, 1, 0)));
    }
    witness.pending();
    EXPECT_TRUE(daemon.running());
}

TEST_F(ubusd_robustness_test, nested_lengths_that_lie_are_not_believed)
{
    raw_client client = connect();
    const uint32_t own = client.add_anonymous();
    const bytes to_events = number_field(field_object, event_object);
    const bytes names[] = {text_field(field_method, "register"), text_field(field_method, "send")};
    const std::string lies[] = {
        "83000000",                            // shorter than its own head
        "83000004",                            // no room for a name
        "83000006 0000",                       // nor for the name's NUL
        "83000008 ffff0000",                   // a name longer than everything
        "8300000c 0007 6f626a65 6374",         // the name's NUL is missing
        "83ffffff 00046e61 6d650000 78000000", // a value longer than everything
        "82000018 00046461 74610000 85ffffff 00017800 00000001",
    };
    for (const bytes &name : names) {
        for (const std::string &lie : lies) {
            SCOPED_TRACE(lie);
            const bytes data = attribute(field_data, named_number("object", own) + from_hex(lie));
            EXPECT_EQ(2, client.call(message(msg_invoke, 1, 1, to_events + name + data)));
            EXPECT_EQ(0,
                      client.call(message(msg_add_object, 1, 0, attribute(field_signature, from_hex(lie)))));
        }
    }
}

TEST_F(ubusd_robustness_test, storage_of_one_client_is_bounded)
{
    raw_client greedy = connect();
    raw_client witness = connect();
    int added = 0;
    int status = 0;
    while (status == 0 && added < 100000) {
        status = greedy.call(message(msg_add_object, 1, 0));
        added++;
    }
    EXPECT_EQ(11, status);
    EXPECT_GT(added, 1000);
    EXPECT_NE(0u, witness.add_object("t"));

    // Patterns and large signatures come out of the same purse; what is given back can be used again.
    raw_client second = connect();
    const uint32_t object = second.add_anonymous();
    const std::string pattern(100000, 'p');
    status = 0;
    for (int i = 0; status == 0 && i < 1000; i++)
        status = second.listen(object, pattern);
    EXPECT_EQ(11, status);
    EXPECT_EQ(0, second.call(message(msg_remove_object, 1, 0, number_field(field_object, object))));
    EXPECT_NE(0u, second.add_object("big", named_table(std::string(60000, 'm'))));
}

TEST_F(ubusd_robustness_test, shared_type_is_paid_for_by_each_of_its_objects)
{
    raw_client client = connect();
    std::vector<bytes> data;
    ASSERT_EQ(0, client.call(message(msg_add_object, 1, 0,
                                     attribute(field_signature, named_table(std::string(60000, 'm')))),
                             &data));
    const bytes again =
        message(msg_add_object, 1, 0, number_field(field_type, number_in(data[0], field_type)));

    int status = 0;
    int added = 0;
    while (status == 0 && added++ < 1000)
        status = client.call(again);

    EXPECT_EQ(11, status);
    EXPECT_LT(added, 100);
}

TEST_F(ubusd_robustness_test, announced_length_takes_no_memory)
{
    const long before = resident_kilobytes();
    std::vector<raw_client> clients;
    for (int i = 0; i < 100; i++) {
        clients.push_back(connect());
        clients.back().send(from_hex("00030001 00000000 00100000 00000000"));
    }
    EXPECT_TRUE(connect().pending().empty());

    EXPECT_LT(resident_kilobytes() - before, 10000);
}

TEST_F(ubusd_robustness_test, parked_lookups_are_bounded)
{
    raw_client owner = connect();
    ASSERT_NE(0u, owner.add_object("t", named_table(std::string(60000, 'm'))));
    raw_client silent = connect();
    silent.id();
    const long before = resident_kilobytes();
    const bytes request = message(msg_lookup, 1, 0, text_field(field_path, "t*"));
    bytes many;
    for (int i = 0; i < 1000; i++)
        many = many + request;

    for (int i = 0; i < 100; i++)
        silent.send(many);

    EXPECT_EQ(0, owner.call(message(msg_ping, 1, 0)));
    EXPECT_LT(resident_kilobytes() - before, 10000);
    // It is served as far as its requests were kept.
    for (int i = 0; i < 1000; i++)
        ASSERT_FALSE(silent.receive_bytes().empty());
}

TEST_F(ubusd_robustness_test, clients_that_come_and_go_leave_nothing_behind)
{
    // The address sanitizer keeps freed memory for a while, which would look like growth.
    daemon.stop(SIGTERM);
    start({}, {{"ASAN_OPTIONS", "quarantine_size_mb=0:thread_local_quarantine_size_kb=0"}});
    const auto come_and_go = [this](int times) {
        for (int i = 0; i < times; i++) {
            raw_client client = connect();
            const uint32_t object = client.add_object("t" + std::to_string(i));
            client.listen(object, "ubus.object.*");
        }
        EXPECT_TRUE(connect().pending().empty());
    };
    come_and_go(500);
    const long before = resident_kilobytes();

    come_and_go(3000);

    EXPECT_LT(resident_kilobytes() - before, 1000);
}

} // namespace
