#include "bus_object.h"

#include "create/add.h"
#include "modify/management_device.h"
#include "modify/modify.h"
#include "remove/delete_all.h"
#include "remove/delete_wan.h"
#include "service/policies.h"
#include "store/query.h"

namespace {

constinit ubus_method korvel_methods[] = {
    UBUS_METHOD("add", wan_handle_add, add_policy.rows),
    UBUS_METHOD_NOARG("addDev", wan_handle_add_dev),
    UBUS_METHOD_NOARG("all", wan_handle_all),
    UBUS_METHOD("del", wan_handle_del, wan_id_policy.rows),
    UBUS_METHOD_NOARG("delAll", wan_handle_del_all),
    UBUS_METHOD("get", wan_handle_get, wan_id_policy.rows),
    UBUS_METHOD("modify", wan_handle_modify, modify_policy.rows),
};

constinit ubus_object_type korvel_type = UBUS_OBJECT_TYPE("korvel", korvel_methods);
constinit ubus_object korvel_object = {};

} // namespace

int bus_object_register(ubus_context *bus)
{
    korvel_object.name = "korvel";
    korvel_object.type = &korvel_type;
    korvel_object.methods = korvel_methods;
    korvel_object.n_methods = ARRAY_SIZE(korvel_methods);
    return ubus_add_object(bus, &korvel_object);
}
