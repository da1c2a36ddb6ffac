// Objects: adding, removing and looking them up.
#include "platform/ubus/daemon_fixture.h"

namespace {

using ubusd_object_test = running_ubusd_test;

bytes lookup(const bytes &fields = {})
{
    return message(msg_lookup, 7, 0, fields);
}

bytes lookup(std::string_view path)
{
    return lookup(text_field(field_path, path));
}

bytes add(const bytes &fields)
{
    return message(msg_add_object, 6, 0, fields);
}

bytes remove(const bytes &fields)
{
    return message(msg_remove_object, 16, 0, fields);
}

std::vector<std::string> found_paths(raw_client &client, const bytes &request, int *status = nullptr)
{
    std::vector<bytes> data;
    const int answered = client.call(request, &data);
    if (status)
        *status = answered;
    std::vector<std::string> paths;
    for (const bytes &found : data)
        paths.emplace_back(reinterpret_cast<const char *>(&found[16]));
    return paths;
}

// A client that hears of every object, and what it has heard.
struct listener {
    explicit listener(raw_client connection) : client(std::move(connection)), object(client.add_anonymous())
    {
        EXPECT_EQ(0, client.listen(object, "ubus.object.*"));
    }

    // The event's call as it is on the wire, with the sequence number, which is free, as zeros.
    std::vector<std::string> heard()
    {
        std::vector<std::string> events = client.pending();
        for (std::string &event : events)
            event.replace(4, 4, "0000");
        return events;
    }
    std::string event(std::string_view name, uint32_t id, std::string_view path) const
    {
        return words(message(msg_invoke, 0, 0,
                             number_field(field_object, object) + text_field(field_method, name) +
                                 attribute(field_data, named_number("id", id) + named_text("path", path))));
    }

    raw_client client;
    uint32_t object;
};

TEST_F(ubusd_object_test, empty_bus_answers_each_kind_of_lookup)
{
    raw_client client = connect();

    EXPECT_EQ(0, client.call(lookup()));
    EXPECT_EQ(4, client.call(lookup("*")));
    EXPECT_EQ(2, client.call(lookup("")));
    EXPECT_EQ(4, client.call(lookup("nosuch")));
    EXPECT_TRUE(client.pending().empty());
}

TEST_F(ubusd_object_test, object_with_a_type_is_added_and_found_byte_for_byte)
{
    raw_client client = connect();
    client.send(from_hex(
        "00060006 00000000 0000003c 02000009 74657374 00000000 0600002c"
        "8200001c 00036765 74000000 85000010 00057761 6e496400 00000005 8200000c 0003616c 6c000000"));
    const bytes added = client.receive_bytes();
    const std::string object = word(number_in(added, field_object));
    const std::string type = word(number_in(added, field_type));

    EXPECT_EQ("00020006 00000000 00000014 03000008 " + object + " 05000008 " + type, words(added));
    EXPECT_EQ("00010006 00000000 0000000c 01000008 00000000", client.receive());

    const std::string found = "00020007 00000000 0000004c 02000009 74657374 00000000 03000008 " + object +
                              " 05000008 " + type +
                              " 0600002c 8200001c 00036765 74000000 85000010 00057761 6e496400 00000005"
                              " 8200000c 0003616c 6c000000";
    for (const bytes &request : {lookup("test"), lookup("te*"), lookup("test*"), lookup("*"), lookup()}) {
        SCOPED_TRACE(words(request));
        client.send(request);
        EXPECT_EQ(found, client.receive());
        EXPECT_EQ("00010007 00000000 0000000c 01000008 00000000", client.receive());
    }
}

TEST_F(ubusd_object_test, ids_are_above_those_of_the_bus)
{
    raw_client client = connect();
    std::vector<bytes> data;

    client.call(add(text_field(field_path, "test") + attribute(field_signature, test_signature())), &data);

    EXPECT_GE(number_in(data.at(0), field_object), 1024u);
    EXPECT_GE(number_in(data.at(0), field_type), 1024u);
}

TEST_F(ubusd_object_test, known_type_is_shared_and_not_told_again)
{
    raw_client client = connect();
    std::vector<bytes> data;
    client.call(add(text_field(field_path, "test") + attribute(field_signature, test_signature())), &data);
    const uint32_t type = number_in(data.at(0), field_type);

    client.send(
        message(msg_add_object, 0x0b, 0, text_field(field_path, "test2") + number_field(field_type, type)));

    const bytes added = client.receive_bytes();
    EXPECT_EQ("0002000b 00000000 0000000c 03000008 " + word(number_in(added, field_object)), words(added));
    EXPECT_EQ(words(status_message(0x0b, 0, 0)), client.receive());
    data.clear();
    EXPECT_EQ(0, client.call(lookup("test2"), &data));
    EXPECT_EQ(type, number_in(data.at(0), field_type));
}

TEST_F(ubusd_object_test, type_wins_over_a_signature)
{
    raw_client client = connect();
    std::vector<bytes> data;
    client.call(add(text_field(field_path, "one") + attribute(field_signature, test_signature())), &data);
    const uint32_t type = number_in(data.at(0), field_type);

    EXPECT_EQ(0, client.call(add(text_field(field_path, "two") + number_field(field_type, type) +
                                 attribute(field_signature, named_table("other")))));

    data.clear();
    client.call(lookup("two"), &data);
    EXPECT_EQ(type, number_in(data.at(0), field_type));
}

TEST_F(ubusd_object_test, object_without_methods_has_an_empty_signature)
{
    raw_client client = connect();
    ASSERT_NE(0u, client.add_object("empty", {}));

    client.send(lookup("empty"));

    const std::string found = client.receive();
    EXPECT_TRUE(found.ends_with(" 06000004")) << found;
}

TEST_F(ubusd_object_test, taken_path_is_refused_without_event_or_object)
{
    raw_client owner = connect();
    ASSERT_NE(0u, owner.add_object("test"));
    raw_client other = connect();
    listener listener(connect());

    other.send(add(text_field(field_path, "test") + attribute(field_signature, test_signature())));

    EXPECT_EQ(words(status_message(6, 0, 2)), other.receive());
    EXPECT_TRUE(other.pending().empty());
    EXPECT_TRUE(listener.heard().empty());
    EXPECT_EQ(std::vector<std::string>{"test"}, found_paths(other, lookup()));
}

TEST_F(ubusd_object_test, object_without_a_usable_type_takes_its_path_but_is_never_found)
{
    const std::string_view path = "test";
    const struct {
        const char *what;
        bytes fields;
    } cases[] = {
        {"no signature", {}},
        {"unknown type", number_field(field_type, 99999)},
        {"unknown type beside a signature",
         number_field(field_type, 99999) + attribute(field_signature, test_signature())},
        {"method without a name", attribute(field_signature, named_table(""))},
        {"plain attribute for a method", attribute(field_signature, attribute(2, {0}))},
        {"number of three bytes", attribute(field_signature, named(5, "get", {0, 0, 1}))},
        {"second method broken", attribute(field_signature, named_table("get") + named(3, "x", {65}))},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        raw_client client = connect();
        std::vector<bytes> data;

        EXPECT_EQ(0, client.call(add(text_field(field_path, path) + row.fields), &data));

        ASSERT_EQ(1u, data.size());
        EXPECT_EQ(20u, data[0].size()); // OBJID alone
        EXPECT_NE(0u, number_in(data[0], field_object));
        int status = -1;
        EXPECT_TRUE(found_paths(client, lookup(path), &status).empty());
        EXPECT_EQ(0, status);
        EXPECT_TRUE(found_paths(client, lookup(), &status).empty());
        EXPECT_EQ(0, status);
        EXPECT_EQ(2, client.call(add(text_field(field_path, path))));
        EXPECT_EQ(0, client.call(remove(number_field(field_object, number_in(data[0], field_object)))));
    }
}

TEST_F(ubusd_object_test, anonymous_object_is_neither_announced_nor_listed)
{
    raw_client client = connect();
    listener listener(connect());
    std::vector<bytes> data;

    EXPECT_EQ(0, client.call(message(msg_add_object, 0x0c, 0), &data));

    ASSERT_EQ(1u, data.size());
    EXPECT_EQ("0002000c 00000000 0000000c 03000008 " + word(number_in(data[0], field_object)),
              words(data[0]));
    EXPECT_TRUE(listener.heard().empty());
    EXPECT_TRUE(found_paths(client, lookup()).empty());
}

TEST_F(ubusd_object_test, path_may_be_empty)
{
    raw_client client = connect();

    EXPECT_NE(0u, client.add_object(""));

    EXPECT_EQ(std::vector<std::string>{""}, found_paths(client, lookup()));
    EXPECT_EQ(std::vector<std::string>{""}, found_paths(client, lookup("*")));
    EXPECT_EQ(2, client.call(add(text_field(field_path, ""))));
}

TEST_F(ubusd_object_test, objects_are_listed_in_the_order_of_their_bytes)
{
    raw_client client = connect();
    for (const char *path : {"b", "a.b", "a", "B", "a-b", "\xc3\xa4", "ab"})
        ASSERT_NE(0u, client.add_object(path));

    EXPECT_EQ((std::vector<std::string>{"B", "a", "a-b", "a.b", "ab", "b", "\xc3\xa4"}),
              found_paths(client, lookup()));
    EXPECT_EQ((std::vector<std::string>{"a", "a-b", "a.b", "ab"}), found_paths(client, lookup("a*")));
}

TEST_F(ubusd_object_test, star_is_special_only_at_the_end_of_a_lookup)
{
    raw_client client = connect();
    ASSERT_NE(0u, client.add_object("a*c"));
    ASSERT_NE(0u, client.add_object("abc"));

    EXPECT_EQ(std::vector<std::string>{"a*c"}, found_paths(client, lookup("a*c")));
    EXPECT_EQ(std::vector<std::string>{"a*c"}, found_paths(client, lookup("a**")));
    EXPECT_EQ(4, client.call(lookup("*c")));
    EXPECT_EQ(4, client.call(lookup("x*")));
}

TEST_F(ubusd_object_test, last_valid_path_of_a_lookup_counts)
{
    raw_client client = connect();
    ASSERT_NE(0u, client.add_object("one"));
    ASSERT_NE(0u, client.add_object("two"));
    const bytes one = text_field(field_path, "one");
    const bytes two = text_field(field_path, "two");
    const bytes two_without_nul = attribute(field_path, {'t', 'w', 'o'});

    EXPECT_EQ(std::vector<std::string>{"two"}, found_paths(client, lookup(one + two)));
    EXPECT_EQ(std::vector<std::string>{"one"}, found_paths(client, lookup(one + two_without_nul)));
}

TEST_F(ubusd_object_test, malformed_path_of_a_lookup_counts_as_none)
{
    raw_client client = connect();
    ASSERT_NE(0u, client.add_object("one"));
    const bytes broken_cases[] = {
        attribute(field_path, {}),
        attribute(field_path, {'x'}),
        from_hex("02000003"),
        from_hex("020000ff 78000000"),
        from_hex("02"),
        from_hex("020000ff 78000000") + text_field(field_path, "lost behind a broken length"),
    };
    for (const bytes &broken : broken_cases) {
        SCOPED_TRACE(words(broken));
        EXPECT_EQ(std::vector<std::string>{"one"}, found_paths(client, lookup(broken)));
    }
}

TEST_F(ubusd_object_test, fields_that_no_lookup_has_are_ignored)
{
    raw_client client = connect();
    ASSERT_NE(0u, client.add_object("one"));
    bytes strange = attribute(0, {1}) + attribute(14, {1, 2}) + attribute(127, {});
    strange = strange + number_field(field_object, 77);

    EXPECT_EQ(std::vector<std::string>{"one"},
              found_paths(client, lookup(strange + text_field(field_path, "one"))));
}

TEST_F(ubusd_object_test, removing_answers_by_owner_and_id)
{
    raw_client owner = connect();
    const uint32_t object = owner.add_object("test");
    raw_client other = connect();

    EXPECT_EQ(6, other.call(remove(number_field(field_object, object))));
    EXPECT_EQ(6, other.call(remove(number_field(field_object, event_object))));
    EXPECT_EQ(6, other.call(remove(number_field(field_object, access_object))));
    EXPECT_EQ(6, other.call(remove(number_field(field_object, monitor_object))));
    EXPECT_EQ(4, other.call(remove(number_field(field_object, 0))));
    EXPECT_EQ(4, other.call(remove(number_field(field_object, object + 1))));
    EXPECT_EQ(2, other.call(remove({})));
    EXPECT_EQ(2, other.call(remove(attribute(field_object, {0, 1}))));
    EXPECT_EQ(std::vector<std::string>{"test"}, found_paths(other, lookup()));
}

TEST_F(ubusd_object_test, removing_names_the_type_that_goes_with_its_last_object)
{
    raw_client client = connect();
    std::vector<bytes> data;
    client.call(add(text_field(field_path, "one") + attribute(field_signature, test_signature())), &data);
    const uint32_t one = number_in(data.at(0), field_object);
    const uint32_t type = number_in(data.at(0), field_type);
    data.clear();
    client.call(add(text_field(field_path, "two") + number_field(field_type, type)), &data);
    const uint32_t two = number_in(data.at(0), field_object);

    client.send(remove(number_field(field_object, one)));
    EXPECT_EQ("00020010 00000000 0000000c 03000008 " + word(one), client.receive());
    EXPECT_EQ(words(status_message(16, 0, 0)), client.receive());

    client.send(remove(number_field(field_object, two)));
    EXPECT_EQ("00020010 00000000 00000014 03000008 " + word(two) + " 05000008 " + word(type),
              client.receive());
    EXPECT_EQ(words(status_message(16, 0, 0)), client.receive());

    EXPECT_EQ(4, client.call(remove(number_field(field_object, two))));
    EXPECT_EQ(4, client.call(lookup("two")));
}

TEST_F(ubusd_object_test, coming_and_going_is_announced_to_the_owner_too)
{
    listener listener(connect());
    raw_client &owner = listener.client;

    owner.send(add(text_field(field_path, "test") + attribute(field_signature, test_signature())));

    std::string event = owner.receive();
    event.replace(4, 4, "0000");
    const bytes added = owner.receive_bytes();
    const uint32_t id = number_in(added, field_object);
    EXPECT_EQ(listener.event("ubus.object.add", id, "test"), event);
    EXPECT_EQ(words(status_message(6, 0, 0)), owner.receive());

    owner.send(remove(number_field(field_object, id)));

    EXPECT_EQ("0002", owner.receive().substr(0, 4));
    event = owner.receive();
    event.replace(4, 4, "0000");
    EXPECT_EQ(listener.event("ubus.object.remove", id, "test"), event);
    EXPECT_EQ(words(status_message(16, 0, 0)), owner.receive());
}

TEST_F(ubusd_object_test, objects_of_a_client_that_leaves_are_announced_and_gone)
{
    listener listener(connect());
    raw_client owner = connect();
    const uint32_t one = owner.add_object("one");
    const uint32_t two = owner.add_object("two");
    owner.add_anonymous();
    listener.heard();

    owner.disconnect();

    std::vector<std::string> events;
    ASSERT_TRUE(wait_until([&] {
        for (std::string &event : listener.heard())
            events.push_back(event);
        return events.size() >= 2;
    }));
    EXPECT_EQ((std::vector<std::string>{listener.event("ubus.object.remove", one, "one"),
                                        listener.event("ubus.object.remove", two, "two")}),
              events);
    EXPECT_TRUE(found_paths(listener.client, lookup()).empty());
}

TEST_F(ubusd_object_test, long_list_reaches_a_client_that_reads_slowly)
{
    raw_client owner = connect();
    // About 3 MB of answers, three times what the daemon queues for a client.
    constexpr int count = 300;
    const bytes signature = named_table(std::string(10000, 'm'));
    for (int i = 0; i < count; i++)
        ASSERT_NE(0u, owner.add_object("object" + std::to_string(1000 + i), signature));
    raw_client reader = connect();
    reader.hello();

    reader.send(lookup() + lookup("object12*") + message(msg_ping, 8, 0));
    EXPECT_TRUE(connect().pending().empty());

    std::vector<std::string> first, second;
    bool pinged = false;
    for (int statuses = 0; statuses < 3;) {
        const bytes answer = reader.receive_bytes();
        ASSERT_FALSE(answer.empty());
        pinged = pinged || answer[3] == 8;
        if (answer[1] == msg_status)
            statuses++;
        else if (answer[3] == 7)
            (first.size() < count ? first : second).push_back(words(answer));
    }
    EXPECT_EQ(static_cast<size_t>(count), first.size());
    EXPECT_EQ(100u, second.size());
    EXPECT_TRUE(pinged);
}

} // namespace
