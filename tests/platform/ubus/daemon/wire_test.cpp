// The daemon's framing: greeting, ping, lengths, types, pieces.
#include "platform/ubus/daemon_fixture.h"

#include <sys/socket.h>

namespace {

using ubusd_wire_test = running_ubusd_test;

bytes ping(uint16_t seq)
{
    return message(msg_ping, seq, 0x12345678, text_field(field_path, "x"));
}

std::string echo(uint16_t seq)
{
    return words(message(msg_data, seq, 0x12345678, text_field(field_path, "x")));
}

std::string ping_end(uint16_t seq)
{
    return words(status_message(seq, 0x12345678, 0));
}

bytes with_length(uint32_t head)
{
    return from_hex("00030001 00000000" + word(head));
}

TEST_F(ubusd_wire_test, greeting_gives_every_connection_an_id_of_its_own)
{
    raw_client first = connect();
    raw_client second = connect();

    const std::string greeting = first.hello();

    EXPECT_EQ("00000000 " + word(first.id()) + " 00000004", greeting);
    EXPECT_GE(first.id(), 1024u);
    EXPECT_GE(second.id(), 1024u);
    EXPECT_NE(first.id(), second.id());
}

TEST_F(ubusd_wire_test, ping_is_echoed_with_its_body_and_then_answered)
{
    raw_client client = connect();

    client.send(from_hex("00030001 12345678 0000000c 02000006 78000000"));

    EXPECT_EQ("00020001 12345678 0000000c 02000006 78000000", client.receive());
    EXPECT_EQ("00010001 12345678 0000000c 01000008 00000000", client.receive());
}

TEST_F(ubusd_wire_test, ping_echo_keeps_the_version_byte)
{
    raw_client client = connect();

    client.send(from_hex("07030001 12345678 00000004"));

    EXPECT_EQ("07020001 12345678 00000004", client.receive());
    EXPECT_EQ("00010001 12345678 0000000c 01000008 00000000", client.receive());
}

TEST_F(ubusd_wire_test, message_may_arrive_byte_by_byte)
{
    raw_client client = connect();

    for (const uint8_t byte : ping(1))
        client.send({byte});

    EXPECT_EQ(echo(1), client.receive());
    EXPECT_EQ(ping_end(1), client.receive());
}

TEST_F(ubusd_wire_test, messages_in_one_write_are_answered_in_order)
{
    raw_client client = connect();

    client.send(ping(1) + ping(2));

    EXPECT_EQ(echo(1), client.receive());
    EXPECT_EQ(ping_end(1), client.receive());
    EXPECT_EQ(echo(2), client.receive());
    EXPECT_EQ(ping_end(2), client.receive());
}

TEST_F(ubusd_wire_test, next_message_follows_an_unpadded_one_at_once)
{
    raw_client client = connect();

    client.send(from_hex("00030001 12345678 00000009 0100000800") + ping(2));

    EXPECT_EQ("00020001 12345678 00000009 01000008 00", client.receive());
    EXPECT_EQ(ping_end(1), client.receive());
    EXPECT_EQ(echo(2), client.receive());
    EXPECT_EQ(ping_end(2), client.receive());
}

TEST_F(ubusd_wire_test, every_split_of_two_messages_gives_the_same_answers)
{
    const bytes both = from_hex("00030001 12345678 00000009 0100000800") + ping(2);
    for (size_t split = 1; split < both.size(); split++) {
        SCOPED_TRACE(split);
        raw_client client = connect();
        const auto middle = both.begin() + static_cast<std::ptrdiff_t>(split);

        client.send(bytes(both.begin(), middle));
        // An answer from the daemon to somebody else: by then it has seen the first piece.
        EXPECT_TRUE(connect().pending().empty());
        client.send(bytes(middle, both.end()));

        EXPECT_EQ("00020001 12345678 00000009 01000008 00", client.receive());
        EXPECT_EQ(ping_end(1), client.receive());
        EXPECT_EQ(echo(2), client.receive());
        EXPECT_EQ(ping_end(2), client.receive());
    }
}

TEST_F(ubusd_wire_test, impossible_length_closes_the_connection_without_an_answer)
{
    for (const uint32_t head : {0u, 1u, 2u, 3u, 1048577u, 0xffffffu}) {
        SCOPED_TRACE(head);
        raw_client client = connect();
        client.hello();

        client.send(with_length(head));

        EXPECT_EQ("closed", client.receive());
        EXPECT_TRUE(connect().pending().empty());
    }
}

TEST_F(ubusd_wire_test, greatest_length_is_taken)
{
    raw_client client = connect();
    const bytes fields(1048576 - 4, 0);

    EXPECT_EQ(0, client.call(message(msg_ping, 1, 0, fields)));
}

TEST_F(ubusd_wire_test, id_and_mark_of_the_head_do_not_matter)
{
    for (const char *head : {"ff00000c", "8000000c", "0500000c"}) {
        SCOPED_TRACE(head);
        raw_client client = connect();

        client.send(from_hex("00040001 00000000" + std::string(head) + "02000006 78000000"));

        EXPECT_EQ(words(status_message(1, 0, 4)), client.receive());
    }
}

TEST_F(ubusd_wire_test, unknown_types_are_refused_and_the_connection_stays)
{
    raw_client client = connect();
    for (const uint8_t type : bytes{0, 11, 12, 13, 127, 128, 255}) {
        SCOPED_TRACE(int{type});

        EXPECT_EQ(1, client.call(message(type, 1, 0x12345678)));
        EXPECT_EQ(0, client.call(ping(2)));
    }
}

TEST_F(ubusd_wire_test, status_repeats_sequence_and_peer_of_the_request)
{
    raw_client client = connect();

    client.send(message(msg_lookup, 0xfedc, 0x98765432, text_field(field_path, "nosuch")));

    EXPECT_EQ("0001fedc 98765432 0000000c 01000008 00000004", client.receive());
}

TEST_F(ubusd_wire_test, half_message_is_waited_for_while_others_are_served)
{
    raw_client slow = connect();
    const bytes request = ping(1);
    slow.send(bytes(request.begin(), request.begin() + 13));

    EXPECT_TRUE(connect().pending().empty());

    slow.send(bytes(request.begin() + 13, request.end()));
    EXPECT_EQ(echo(1), slow.receive());
    EXPECT_EQ(ping_end(1), slow.receive());
}

TEST_F(ubusd_wire_test, client_that_stops_writing_is_disconnected)
{
    raw_client client = connect();
    client.hello();

    client.finish_writing();

    EXPECT_EQ("closed", client.receive());
}

TEST_F(ubusd_wire_test, client_that_leaves_in_the_middle_of_a_message_is_forgotten)
{
    for (size_t size = 0; size < ping(1).size(); size++) {
        SCOPED_TRACE(size);
        raw_client client = connect();
        const bytes request = ping(1);
        client.send(bytes(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(size)));
        client.disconnect();

        EXPECT_TRUE(connect().pending().empty());
    }
}

} // namespace
