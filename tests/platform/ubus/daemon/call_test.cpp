// Calls: forwarding to the owner, relaying its answers, and what the daemon answers by itself.
#include "platform/ubus/daemon_fixture.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

bytes invoke(uint32_t object, const bytes &fields, uint16_t seq = 0x21)
{
    return message(msg_invoke, seq, object, fields);
}

bytes call_fields(uint32_t object, std::string_view method)
{
    return number_field(field_object, object) + text_field(field_method, method);
}

const bytes no_data = attribute(field_data, {});

// An owner of one object and a caller.
class ubusd_call_test : public running_ubusd_test {
protected:
    // What the owner sends as an answer to the caller.
    bytes data_answer(uint32_t from, const bytes &members)
    {
        return message(msg_data, 0x21, caller.id(),
                       number_field(field_object, from) + attribute(field_data, members));
    }
    bytes status_answer(uint32_t from, uint32_t status)
    {
        return message(msg_status, 0x21, caller.id(),
                       number_field(field_status, status) + number_field(field_object, from));
    }

    raw_client owner = connect();
    raw_client caller = connect();
    uint32_t object = owner.add_object("test");
};

TEST_F(ubusd_call_test, call_reaches_the_owner_with_the_callers_name)
{
    caller.send(from_hex("00050021 " + word(object) + " 00000028 03000008 " + word(object) +
                         " 04000008 67657400 07000014 85000010 00057761 6e496400 00000001"));

    EXPECT_EQ("00050021 " + word(caller.id()) + " 00000040 03000008 " + word(object) +
                  " 04000008 67657400 0c000009 726f6f74 00000000 0d000009 726f6f74 00000000"
                  " 07000014 85000010 00057761 6e496400 00000001",
              owner.receive());
    EXPECT_TRUE(caller.pending().empty());
}

TEST_F(ubusd_call_test, wish_for_no_reply_and_strange_fields_stay_behind)
{
    const bytes expected = message(msg_invoke, 0x21, caller.id(),
                                   call_fields(object, "get") + text_field(field_user, "root") +
                                       text_field(field_group, "root") + no_data);

    caller.send(invoke(object, flag_field(field_no_reply, true) + call_fields(object, "get") +
                                   text_field(field_user, "somebody") + number_field(field_status, 5) +
                                   attribute(77, {1}) + no_data));

    EXPECT_EQ(words(expected), owner.receive());
}

TEST_F(ubusd_call_test, call_without_data_is_forwarded_without_data)
{
    caller.send(invoke(object, call_fields(object, "get")));

    EXPECT_EQ(words(message(msg_invoke, 0x21, caller.id(),
                            call_fields(object, "get") + text_field(field_user, "root") +
                                text_field(field_group, "root"))),
              owner.receive());
}

TEST_F(ubusd_call_test, object_is_taken_from_the_field_and_not_from_the_peer)
{
    caller.send(message(msg_invoke, 1, 99999, call_fields(object, "get") + no_data));

    EXPECT_EQ(object, number_in(owner.receive_bytes(), field_object));
}

TEST_F(ubusd_call_test, every_answer_of_the_owner_is_relayed_unchanged_and_in_order)
{
    caller.send(invoke(object, call_fields(object, "get") + no_data));
    owner.receive();
    const bytes members = named(7, "up", {1});

    owner.send(data_answer(object, members) + data_answer(object, {}) + status_answer(object, 5) +
               status_answer(object, 0));

    const bytes body = number_field(field_object, object) + attribute(field_data, members);
    EXPECT_EQ(words(message(msg_data, 0x21, object, body)), caller.receive());
    EXPECT_EQ(words(message(msg_data, 0x21, object, number_field(field_object, object) + no_data)),
              caller.receive());
    for (const uint32_t status : {5u, 0u}) {
        EXPECT_EQ(words(message(msg_status, 0x21, object,
                                number_field(field_status, status) + number_field(field_object, object))),
                  caller.receive());
    }
}

TEST_F(ubusd_call_test, relayed_body_keeps_fields_that_the_daemon_does_not_know)
{
    const bytes body = attribute(99, {1, 2, 3}) + number_field(field_object, object) +
                       attribute(field_data, {9, 9, 9, 9}) + from_hex("0300ffff");

    owner.send(message(msg_data, 0xabcd, caller.id(), body));

    EXPECT_EQ(words(message(msg_data, 0xabcd, object, body)), caller.receive());
}

TEST_F(ubusd_call_test, answer_that_is_nobodys_is_dropped_in_silence)
{
    raw_client stranger = connect();
    const uint32_t other = stranger.add_object("other");
    const bytes from = number_field(field_object, object);
    const bytes status = number_field(field_status, 0);
    const struct {
        const char *what;
        bytes message;
    } cases[] = {
        {"data in another's name", data_answer(other, {})},
        {"status in another's name", status_answer(other, 0)},
        {"data of an unknown object", data_answer(object + 1, {})},
        {"data of the event object", data_answer(event_object, {})},
        {"data without object", message(msg_data, 1, caller.id(), no_data)},
        {"data without data", message(msg_data, 1, caller.id(), from)},
        {"data with a status only", message(msg_data, 1, caller.id(), from + status)},
        {"status without status", message(msg_status, 1, caller.id(), from)},
        {"status with data only", message(msg_status, 1, caller.id(), from + no_data)},
        {"status of two bytes", message(msg_status, 1, caller.id(), from + attribute(field_status, {0, 0}))},
        {"data to an unknown client", message(msg_data, 1, caller.id() + 1, from + no_data)},
        {"status to peer 0", message(msg_status, 1, 0, from + status)},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        owner.send(row.message);

        EXPECT_TRUE(owner.pending().empty());
        EXPECT_TRUE(caller.pending().empty());
    }
}

TEST_F(ubusd_call_test, call_that_cannot_be_forwarded_is_answered_with_the_requests_peer)
{
    const bytes to = number_field(field_object, object);
    const bytes method = text_field(field_method, "get");
    const struct {
        const char *what;
        bytes fields;
        int status;
    } cases[] = {
        {"no method", to + no_data, 2},
        {"no object", method + no_data, 2},
        {"nothing", {}, 2},
        {"method without its NUL", to + attribute(field_method, {'g', 'e', 't'}) + no_data, 2},
        {"empty method field", to + attribute(field_method, {}) + no_data, 2},
        {"object of two bytes", attribute(field_object, {0, 1}) + method, 2},
        {"object of eight bytes", attribute(field_object, bytes(8)) + method, 2},
        {"method behind a broken length", to + from_hex("080000ff") + method, 2},
        {"unknown object", number_field(field_object, object + 1) + method + no_data, 4},
        {"object 0", number_field(field_object, 0) + method + no_data, 4},
        {"last id below those of clients", number_field(field_object, 1023) + method + no_data, 4},
        {"access object", number_field(field_object, access_object) + method + no_data, 1},
        {"monitor object", number_field(field_object, monitor_object) + method + no_data, 4},
        {"event object, unknown method", number_field(field_object, event_object) + method + no_data, 1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        caller.send(message(msg_invoke, 0x77, 0x01020304, row.fields));

        EXPECT_EQ(words(status_message(0x77, 0x01020304, row.status)), caller.receive());
        EXPECT_TRUE(owner.pending().empty());
    }
}

TEST_F(ubusd_call_test, client_may_call_its_own_object)
{
    owner.send(invoke(object, call_fields(object, "get") + no_data));

    const bytes call = owner.receive_bytes();
    EXPECT_EQ(msg_invoke, call[1]);
    owner.send(message(msg_status, 0x21, owner.id(),
                       number_field(field_status, 0) + number_field(field_object, object)));
    EXPECT_EQ(words(message(msg_status, 0x21, object,
                            number_field(field_status, 0) + number_field(field_object, object))),
              owner.receive());
}

TEST_F(ubusd_call_test, caller_is_told_nothing_when_the_owner_leaves)
{
    raw_client watcher = connect();
    const uint32_t ear = watcher.add_anonymous();
    watcher.listen(ear, "ubus.object.remove");
    caller.send(invoke(object, call_fields(object, "slow") + no_data));
    owner.receive();

    owner.disconnect();

    EXPECT_EQ(ear, number_in(watcher.receive_bytes(), field_object));
    EXPECT_TRUE(caller.pending().empty());
    EXPECT_EQ(4, caller.call(invoke(object, call_fields(object, "slow") + no_data)));
}

TEST_F(ubusd_call_test, late_answer_of_a_removed_object_is_dropped)
{
    caller.send(invoke(object, call_fields(object, "get") + no_data));
    owner.receive();
    ASSERT_EQ(0, owner.call(message(msg_remove_object, 1, 0, number_field(field_object, object))));

    owner.send(status_answer(object, 0));

    EXPECT_TRUE(owner.pending().empty());
    EXPECT_TRUE(caller.pending().empty());
}

TEST_F(ubusd_call_test, answer_to_a_caller_that_has_left_is_dropped)
{
    caller.send(invoke(object, call_fields(object, "get") + no_data));
    owner.receive();
    const bytes answer = status_answer(object, 0);
    caller.disconnect();

    owner.send(answer);

    EXPECT_TRUE(owner.pending().empty());
}

TEST_F(ubusd_call_test, greatest_message_is_relayed)
{
    const bytes body = number_field(field_object, object) + attribute(field_data, bytes(1048576 - 4 - 8 - 4));

    std::vector<std::string> echoed;
    owner.send(message(msg_data, 1, caller.id(), body));

    EXPECT_EQ(words(message(msg_data, 1, object, body)), caller.receive());
}

TEST_F(ubusd_call_test, too_large_an_answer_disconnects_its_owner_only)
{
    caller.send(invoke(object, call_fields(object, "get") + no_data));
    owner.receive();

    // The daemon closes as soon as it has seen the length.
    try {
        owner.send(message(msg_data, 0x21, caller.id(),
                           number_field(field_object, object) + attribute(field_data, bytes(2000000))));
    } catch (const std::runtime_error &) {
    }

    EXPECT_EQ("closed", owner.receive());
    EXPECT_TRUE(caller.pending().empty());
    EXPECT_EQ(4, caller.call(invoke(object, call_fields(object, "get") + no_data)));
}

// A pipe whose reader sees its end when every copy of the writer is closed.
struct pipe_probe {
    pipe_probe() { EXPECT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK)); }
    ~pipe_probe()
    {
        close(ends[0]);
        drop_writer();
    }
    void drop_writer()
    {
        if (ends[1] >= 0)
            close(ends[1]);
        ends[1] = -1;
    }
    bool writer_is_gone() const
    {
        char byte;
        return read(ends[0], &byte, 1) == 0;
    }
    int ends[2];
};

TEST_F(ubusd_call_test, descriptor_travels_with_a_call_and_with_its_status)
{
    const struct {
        const char *what;
        bytes sent;
        raw_client &from, &to;
    } cases[] = {
        {"call", invoke(object, call_fields(object, "get") + no_data), caller, owner},
        {"status", status_answer(object, 0), owner, caller},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        pipe_probe probe;
        ASSERT_TRUE(send_with_fd(row.from.socket(), row.sent, probe.ends[1]));
        probe.drop_writer();

        int fd = -1;
        const bytes arrived = receive_with_fd(row.to.socket(), 4096, fd);

        EXPECT_FALSE(arrived.empty());
        ASSERT_GE(fd, 0);
        EXPECT_EQ(1, write(fd, "x", 1));
        close(fd);
        char byte = 0;
        EXPECT_EQ(1, read(probe.ends[0], &byte, 1));
        EXPECT_TRUE(wait_until([&] { return probe.writer_is_gone(); }));
    }
}

TEST_F(ubusd_call_test, descriptor_belongs_to_the_message_it_came_with)
{
    pipe_probe probe;
    const bytes before = invoke(object, call_fields(object, "before") + no_data);
    const bytes after = invoke(object, call_fields(object, "after") + no_data);
    caller.send(before);
    ASSERT_TRUE(
        send_with_fd(caller.socket(), invoke(object, call_fields(object, "with") + no_data), probe.ends[1]));
    caller.send(after);

    int fd = -1;
    std::vector<int> descriptors;
    for (int i = 0; i < 3; i++) {
        // The head of each message in a read of its own.
        bytes prefix = receive_with_fd(owner.socket(), 12, fd);
        ASSERT_EQ(12u, prefix.size());
        descriptors.push_back(fd);
        const size_t rest = static_cast<size_t>(prefix[10] << 8 | prefix[11]) - 4;
        ASSERT_EQ(rest, receive_with_fd(owner.socket(), rest, fd).size());
        EXPECT_EQ(-1, fd);
    }

    EXPECT_EQ(-1, descriptors[0]);
    EXPECT_GE(descriptors[1], 0);
    EXPECT_EQ(-1, descriptors[2]);
    close(descriptors[1]);
}

// One whole message, and the descriptor that came with it or -1.
bytes receive_message_with_fd(raw_client &client, int &fd_out)
{
    bytes message = receive_with_fd(client.socket(), 12, fd_out);
    const size_t size = 8 + (static_cast<size_t>(message.at(9)) << 16 |
                             static_cast<size_t>(message.at(10)) << 8 | message.at(11));
    while (message.size() < size) {
        int none = -1;
        message = message + receive_with_fd(client.socket(), size - message.size(), none);
        EXPECT_EQ(-1, none);
    }
    return message;
}

TEST_F(ubusd_call_test, descriptors_wait_with_their_calls_and_eight_at_most)
{
    // The fillers are more than the kernel holds for a client that does not read, and less than the daemon
    // queues. What has been read makes room again.
    constexpr int fillers = 4, with_descriptor = 10, kept = 8;
    pipe_probe probe;
    for (int round = 0; round < 2; round++) {
        SCOPED_TRACE(round);
        for (int i = 0; i < fillers; i++)
            caller.send(
                invoke(object, call_fields(object, "fill") + attribute(field_data, bytes(200000)), 1));
        for (uint16_t seq = 2; seq < 2 + with_descriptor; seq++) {
            ASSERT_TRUE(send_with_fd(
                caller.socket(), invoke(object, call_fields(object, "take") + no_data, seq), probe.ends[1]));
        }
        EXPECT_TRUE(caller.pending().empty());

        int fd = -1;
        for (int i = 0; i < fillers; i++) {
            EXPECT_EQ(1, receive_message_with_fd(owner, fd).at(3));
            EXPECT_EQ(-1, fd);
        }
        for (int i = 0; i < kept; i++) {
            EXPECT_EQ(2 + i, receive_message_with_fd(owner, fd).at(3));
            EXPECT_GE(fd, 0);
            close(fd);
        }
        EXPECT_TRUE(owner.pending().empty()) << "the calls beyond were dropped";
    }
    probe.drop_writer();
    EXPECT_TRUE(wait_until([&] { return probe.writer_is_gone(); })) << "the daemon kept none";
}

TEST_F(ubusd_call_test, descriptor_with_any_other_message_is_closed)
{
    const bytes requests[] = {
        message(msg_ping, 1, 0),
        message(msg_lookup, 1, 0),
        message(msg_add_object, 1, 0),
        data_answer(object, {}),
        invoke(object + 1, call_fields(object + 1, "get") + no_data),
        from_hex("00030001 00000000 00000008"),
    };
    for (const bytes &request : requests) {
        SCOPED_TRACE(words(request));
        pipe_probe probe;
        raw_client client = connect();
        client.hello();
        ASSERT_TRUE(send_with_fd(client.socket(), request, probe.ends[1]));
        probe.drop_writer();
        if (request.size() == 12 && request[11] == 8)
            client.disconnect(); // in the middle of a message

        EXPECT_TRUE(wait_until([&] { return probe.writer_is_gone(); }));
    }
}

} // namespace
