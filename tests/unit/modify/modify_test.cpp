// The method `modify` without a bus, when memory is short. All else is looked at over the bus.
#include "modify/modify.h"

#include "modify/pending.h"
#include "support/code_test.h"
#include "support/handler_call.h"

namespace {

bool memory_is_short = false;

} // namespace

// The names are those that the linker gives to wrapped calls.
extern "C" {

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size)
{
    return memory_is_short && count * size > sizeof(wan_config) ? nullptr : __real_calloc(count, size);
}
}

namespace {

using modify_test = code_test;

TEST_F(modify_test, a_change_for_which_there_is_no_memory_is_refused_and_takes_no_slot)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 101}));
    load_settings();
    const std::string before = gateway.config("network");
    for (const char *const request :
         {R"({"wanId":1,"mtu":1300,"wait":1})", R"({"wanId":1,"wanMode":1,"mtu":1300})"}) {
        SCOPED_TRACE(request);
        memory_is_short = true;
        const handled outcome = call_handler(wan_handle_modify, request);
        memory_is_short = false;

        EXPECT_EQ(UBUS_STATUS_UNKNOWN_ERROR, outcome.status);
        EXPECT_EQ(1U, outcome.replies);
        EXPECT_EQ(-1, outcome.result());
        EXPECT_EQ("korvel modify ERR! Memory allocate failed.", outcome.info());
    }
    pending_change waiting[most_pending];
    EXPECT_EQ(0U, wan_pending_changes(waiting));
    EXPECT_EQ(before, gateway.config("network"));
}

} // namespace
