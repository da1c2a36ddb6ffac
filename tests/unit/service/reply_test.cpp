// The reply convention: what fields look like on the bus, and that nothing of one reply reaches the next.
#include "service/reply.h"

#include "support/gateway.h"
#include "support/handler_call.h"

namespace {

bool memory_is_short = false;

} // namespace

extern "C" {
// The names are those that the linker gives to wrapped calls.
// NOLINTBEGIN(bugprone-reserved-identifier)
void *__real_realloc(void *memory, size_t size);
void *__wrap_realloc(void *memory, size_t size)
{
    return memory_is_short ? nullptr : __real_realloc(memory, size);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

int answer_without_memory(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                          blob_attr *)
{
    memory_is_short = true;
    const int status = reply_at_once(bus, request, 0, "korvel modify OK.");
    memory_is_short = false;
    return status;
}

int answer_twice(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    method_reply reply;
    EXPECT_TRUE(reply.begin());
    EXPECT_TRUE(reply.add_text("left", "over"));
    EXPECT_EQ(UBUS_STATUS_OK, reply.say(-4, "korvel %s ERR!", "modify"));
    return reply.send(bus, request);
}

int answer_numbers(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    method_reply reply;
    EXPECT_TRUE(reply.begin());
    EXPECT_TRUE(reply.add_number("small", BLOBMSG_TYPE_INT8, 300));
    EXPECT_TRUE(reply.add_number("large", BLOBMSG_TYPE_INT32, 4000000000));
    EXPECT_TRUE(reply.add_text("text", std::string_view("cut here").substr(0, 3)));
    EXPECT_TRUE(reply.add_text("none", ""));
    return reply.send(bus, request);
}

TEST(reply, an_operation_answers_with_status_and_then_info)
{
    const handled outcome = call_handler(answer_twice);

    EXPECT_EQ(1U, outcome.replies);
    EXPECT_EQ((text_lines{"status", "info"}), outcome.reply.names());
    EXPECT_EQ(BLOBMSG_TYPE_INT32, outcome.reply.at("status").type);
    EXPECT_EQ(-4, outcome.result());
    EXPECT_EQ(BLOBMSG_TYPE_STRING, outcome.reply.at("info").type);
    EXPECT_EQ("korvel modify ERR!", outcome.info());
    EXPECT_EQ(sizeof("korvel modify ERR!"), outcome.reply.at("info").length);
}

TEST(reply, numbers_are_widened_without_sign_and_texts_end_where_they_say)
{
    const handled outcome = call_handler(answer_numbers);

    EXPECT_EQ(BLOBMSG_TYPE_INT8, outcome.reply.at("small").type);
    EXPECT_EQ(44U, outcome.reply.at("small").number);
    EXPECT_EQ(BLOBMSG_TYPE_INT32, outcome.reply.at("large").type);
    EXPECT_EQ(4000000000U, outcome.reply.at("large").number);
    EXPECT_EQ("cut", outcome.reply.at("text").text);
    EXPECT_EQ(4U, outcome.reply.at("text").length);
    EXPECT_EQ("", outcome.reply.at("none").text);
    EXPECT_EQ(1U, outcome.reply.at("none").length);
}

TEST(reply, one_that_cannot_be_made_is_no_success)
{
    const handled outcome = call_handler(answer_without_memory);

    EXPECT_EQ(UBUS_STATUS_UNKNOWN_ERROR, outcome.status);
    EXPECT_EQ(0U, outcome.replies);
}

TEST(reply, without_a_reply_there_is_no_room_for_a_field)
{
    method_reply reply;

    EXPECT_FALSE(reply.add_number("late", BLOBMSG_TYPE_INT32, 1));
    EXPECT_FALSE(reply.add_text("late", "text"));
    EXPECT_EQ(UBUS_STATUS_UNKNOWN_ERROR, reply.send(nullptr, nullptr));
}

} // namespace
