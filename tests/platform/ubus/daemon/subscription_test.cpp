// Subscriptions: who is told what, and that they end with either side.
#include "platform/ubus/daemon_fixture.h"

namespace {

// Two clients: one offers an object, the other has an anonymous one that watches it.
class ubusd_subscription_test : public running_ubusd_test {
protected:
    static bytes edge(uint32_t from, uint32_t to)
    {
        return number_field(field_object, from) + number_field(field_target, to);
    }
    int subscribe() { return watcher.call(message(msg_subscribe, 1, 0, edge(eye, target))); }
    int unsubscribe() { return watcher.call(message(msg_unsubscribe, 1, 0, edge(eye, target))); }
    bytes notify_fields(const bytes &extra = {}) const
    {
        return number_field(field_object, target) + text_field(field_method, "news") + extra +
               attribute(field_data, named_number("x", 1));
    }
    std::string activity(bool active) const
    {
        return words(
            message(msg_notify, 0, 0, number_field(field_object, target) + flag_field(field_active, active)));
    }

    // The owner sends a notification and is told that the watcher alone gets it.
    void notify_the_watcher()
    {
        owner.send(message(msg_notify, 0x31, target, notify_fields()));

        EXPECT_EQ(words(message(msg_status, 0x31, target,
                                number_field(field_object, target) +
                                    attribute(field_subscribers, number_field(0, eye)) +
                                    number_field(field_status, 0))),
                  owner.receive());
    }

    raw_client owner = connect();
    raw_client watcher = connect();
    uint32_t target = owner.add_object("t");
    uint32_t eye = watcher.add_anonymous();
};

using answers = std::vector<std::string>;

TEST_F(ubusd_subscription_test, owner_is_told_of_the_first_and_after_the_last_subscriber)
{
    const uint32_t second = watcher.add_anonymous();

    EXPECT_EQ(0, subscribe());
    EXPECT_EQ(answers{activity(true)}, owner.pending());
    EXPECT_EQ(0, watcher.call(message(msg_subscribe, 1, 0, edge(second, target))));
    EXPECT_EQ(0, subscribe()); // again
    EXPECT_TRUE(owner.pending().empty());

    EXPECT_EQ(0, unsubscribe());
    EXPECT_TRUE(owner.pending().empty());
    EXPECT_EQ(0, watcher.call(message(msg_unsubscribe, 1, 0, edge(second, target))));
    EXPECT_EQ(answers{activity(false)}, owner.pending());
    EXPECT_EQ(4, unsubscribe());
}

TEST_F(ubusd_subscription_test, impossible_subscriptions_are_refused)
{
    const uint32_t own = watcher.add_object("own");
    const struct {
        const char *what;
        bytes fields;
        int status;
    } cases[] = {
        {"nothing", {}, 2},
        {"no target", number_field(field_object, eye), 2},
        {"no subscriber", number_field(field_target, target), 2},
        {"unknown subscriber", edge(eye + 1, target), 4},
        {"foreign subscriber", edge(target, target), 2},
        {"unknown target", edge(eye, target + 1), 4},
        {"target of the bus", edge(eye, event_object), 4},
        {"own target", edge(eye, own), 2},
        {"itself", edge(eye, eye), 2},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.status, watcher.call(message(msg_subscribe, 1, 0, row.fields)));
        EXPECT_EQ(row.status, watcher.call(message(msg_unsubscribe, 1, 0, row.fields)));
    }
    EXPECT_TRUE(owner.pending().empty());
}

TEST_F(ubusd_subscription_test, notification_reaches_the_subscribers_and_lists_them_to_the_owner)
{
    ASSERT_EQ(0, subscribe());
    owner.pending();

    notify_the_watcher();

    EXPECT_EQ(words(message(msg_invoke, 0x31, owner.id(),
                            number_field(field_object, eye) + text_field(field_method, "news") +
                                text_field(field_user, "root") + text_field(field_group, "root") +
                                attribute(field_data, named_number("x", 1)))),
              watcher.receive());

    // The subscriber's answer finds the owner.
    watcher.send(message(msg_status, 0x31, owner.id(),
                         number_field(field_status, 0) + number_field(field_object, eye)));
    EXPECT_EQ(words(message(msg_status, 0x31, eye,
                            number_field(field_status, 0) + number_field(field_object, eye))),
              owner.receive());
}

TEST_F(ubusd_subscription_test, subscribing_again_doubles_nothing)
{
    ASSERT_EQ(0, subscribe());
    ASSERT_EQ(0, subscribe());
    owner.pending();

    notify_the_watcher();

    EXPECT_EQ(1u, watcher.pending().size());
}

// Leaves a client room in the daemon for what takes `rest` bytes at most, by patterns of its object.
void use_up_storage(raw_client &client, uint32_t object, size_t rest)
{
    for (const size_t length : {size_t{100000}, rest}) {
        int status = 0;
        for (int i = 0; status == 0 && i < 10000; i++)
            status = client.listen(object, std::string(length, 'p'));
        ASSERT_EQ(11, status);
    }
}

TEST_F(ubusd_subscription_test, subscription_comes_out_of_the_subscribers_storage)
{
    use_up_storage(watcher, eye, 1);

    EXPECT_EQ(11, subscribe());
    EXPECT_TRUE(owner.pending().empty());
}

TEST_F(ubusd_subscription_test, storage_of_a_subscription_comes_back_with_its_end)
{
    use_up_storage(watcher, eye, 100);

    // There is room for two or three at a time.
    for (int round = 0; round < 5; round++) {
        SCOPED_TRACE(round);
        ASSERT_EQ(0, subscribe());
        ASSERT_EQ(0, unsubscribe());
        ASSERT_EQ(0, subscribe());
        ASSERT_EQ(0, owner.call(message(msg_remove_object, 1, 0, number_field(field_object, target))));
        target = owner.add_object("t");
    }
}

TEST_F(ubusd_subscription_test, notification_without_reply_says_so_first)
{
    ASSERT_EQ(0, subscribe());
    owner.pending();

    owner.send(message(msg_notify, 0x31, target, notify_fields(flag_field(field_no_reply, true))));

    EXPECT_TRUE(owner.pending().empty());
    const std::string call = watcher.receive();
    const std::string begin = words(flag_field(field_no_reply, true) + number_field(field_object, eye));
    EXPECT_EQ(begin, call.substr(27, begin.size()));
}

TEST_F(ubusd_subscription_test, notification_to_nobody_is_answered_with_an_empty_list)
{
    owner.send(message(msg_notify, 0x31, target, notify_fields()));

    EXPECT_EQ(words(message(msg_status, 0x31, target,
                            number_field(field_object, target) + attribute(field_subscribers, {}) +
                                number_field(field_status, 0))),
              owner.receive());
}

TEST_F(ubusd_subscription_test, impossible_notifications_are_refused)
{
    const bytes method = text_field(field_method, "news");
    EXPECT_EQ(2, owner.call(message(msg_notify, 1, 0, method)));
    EXPECT_EQ(2, owner.call(message(msg_notify, 1, 0, number_field(field_object, target))));
    EXPECT_EQ(4, owner.call(message(msg_notify, 1, 0, number_field(field_object, target + 1) + method)));
    EXPECT_EQ(6, watcher.call(message(msg_notify, 1, 0, number_field(field_object, target) + method)));
}

TEST_F(ubusd_subscription_test, subscriber_is_told_when_the_target_goes)
{
    const std::string news = words(message(msg_unsubscribe, 0, 0, edge(eye, target)));
    ASSERT_EQ(0, subscribe());

    ASSERT_EQ(0, owner.call(message(msg_remove_object, 1, 0, number_field(field_object, target))));
    EXPECT_EQ(answers{news}, watcher.pending());

    target = owner.add_object("t");
    ASSERT_EQ(0, subscribe());
    owner.disconnect();
    EXPECT_EQ(words(message(msg_unsubscribe, 0, 0, edge(eye, target))), watcher.receive());
    EXPECT_EQ(4, unsubscribe());
}

TEST_F(ubusd_subscription_test, owner_is_told_when_the_last_subscriber_goes)
{
    ASSERT_EQ(0, subscribe());
    owner.pending();
    ASSERT_EQ(0, watcher.call(message(msg_remove_object, 1, 0, number_field(field_object, eye))));
    EXPECT_EQ(answers{activity(false)}, owner.pending());

    eye = watcher.add_anonymous();
    ASSERT_EQ(0, subscribe());
    owner.pending();
    watcher.disconnect();
    EXPECT_EQ(activity(false), owner.receive());
}

TEST_F(ubusd_subscription_test, two_clients_may_watch_each_other_and_leave)
{
    const uint32_t other_target = watcher.add_object("u");
    const uint32_t other_eye = owner.add_anonymous();
    ASSERT_EQ(0, subscribe());
    ASSERT_EQ(0, owner.call(message(msg_subscribe, 1, 0, edge(other_eye, other_target))));

    owner.disconnect();
    watcher.disconnect();

    raw_client last = connect();
    EXPECT_TRUE(
        wait_until([&] { return last.call(message(msg_lookup, 1, 0, text_field(field_path, "*"))) == 4; }));
}

} // namespace
