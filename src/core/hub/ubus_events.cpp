// Parsing what the bus delivers; the attributes of a wrong type count as missing.
#include "core/hub/ubus_events.h"

#include "core/container_of.h"
#include "core/hub/dispatch.h"
#include "core/hub/netlink_sockets.h"
#include "core/log.h"
#include "core/pause.h"
#include "probes/node_state.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr char PREFIX[] = "kolt.";
constexpr size_t PREFIX_LENGTH = sizeof PREFIX - 1;

constexpr uint32_t DEFAULT_LOG_LEVEL = 1;
constexpr uint32_t HIGHEST_LOG_LEVEL = 3;

enum link_state_attribute { ATTR_WIFI_2G, ATTR_WIFI_5G, ATTR_WIFI_5G_2, ATTR_PLC, ATTR_ETH, LINK_STATE_ATTRS };

constexpr std::array<blobmsg_policy, 1> CONFIGURE_POLICY = {{{.name = "mode", .type = BLOBMSG_TYPE_STRING}}};
constexpr std::array<blobmsg_policy, 1> DEBUG_POLICY = {{{.name = "dbg_level", .type = BLOBMSG_TYPE_INT32}}};
constexpr std::array<blobmsg_policy, LINK_STATE_ATTRS> LINK_STATE_POLICY = {{
    {.name = "LINK_WIFI_2G", .type = BLOBMSG_TYPE_INT32},
    {.name = "LINK_WIFI_5G", .type = BLOBMSG_TYPE_INT32},
    {.name = "LINK_WIFI_5G_2", .type = BLOBMSG_TYPE_INT32},
    {.name = "LINK_PLC", .type = BLOBMSG_TYPE_INT32},
    {.name = "LINK_ETH", .type = BLOBMSG_TYPE_INT32},
}};

uint32_t last_eth_state; // of the last event that told it

template <size_t Count> using attributes = std::array<blob_attr *, Count>;

template <size_t Count>
[[nodiscard]] bool parse(const std::array<blobmsg_policy, Count> &policy, attributes<Count> *found,
                         blob_attr *message) {
    if (message == nullptr)
        return false;
    return blobmsg_parse(policy.data(), static_cast<int>(Count), found->data(), blob_data(message),
                         static_cast<unsigned int>(blob_len(message))) == 0;
}

void deliver(kolt_event_ctx *ev, kolt_event_kind kind, uint32_t type) {
    kolt_event event{.type = type};
    event_run_cb(ev, kind, &event);
}

void receive_configure(kolt_event_ctx *ev, blob_attr *message) {
    attributes<1> found{};
    if (!parse(CONFIGURE_POLICY, &found, message))
        return;
    // A bridge that came up since the last registration must be registered too.
    event_bridge_set_event(event_config(ev));
    const kolt_work_mode mode = found[0] ? kolt_work_mode_from_string(blobmsg_get_string(found[0])) : KOLT_MODE_UNKNOWN;
    deliver(ev, KOLT_EVENT_CONFIGURE, mode);
}

void receive_debug(kolt_event_ctx *ev, blob_attr *message) {
    attributes<1> found{};
    if (!parse(DEBUG_POLICY, &found, message))
        return;
    uint32_t level = found[0] ? std::min(blobmsg_get_u32(found[0]), HIGHEST_LOG_LEVEL) : DEFAULT_LOG_LEVEL;
    deliver(ev, KOLT_EVENT_DEBUG, level);
}

// Stores the value of a present attribute; false when it is absent.
bool store_state(blob_attr *attribute, uint32_t *state) {
    if (attribute == nullptr)
        return false;
    *state = blobmsg_get_u32(attribute);
    return true;
}

// Remembers the Ethernet state; true when it differs from the last one seen.
bool eth_state_changed(uint32_t state) {
    if (state == last_eth_state)
        return false;
    last_eth_state = state;
    return true;
}

} // namespace

void event_ubus_receive_link_state(kolt_event_ctx *ev, blob_attr *message) {
    uint32_t need_reconfig = 0;
    attributes<LINK_STATE_ATTRS> found{};
    bool parsed = parse(LINK_STATE_POLICY, &found, message);
    KOLT_DEBUG("link_state parse ");
    if (!parsed) {
        KOLT_DEBUG("link_state parse failed");
        return;
    }
    if (store_state(found[ATTR_WIFI_2G], &ev->wifi_2g_state))
        KOLT_DEBUG("wifi 2g state %d", static_cast<int>(ev->wifi_2g_state));
    if (store_state(found[ATTR_WIFI_5G], &ev->wifi_5g_state))
        KOLT_DEBUG("wifi 5g state %d", static_cast<int>(ev->wifi_5g_state));
    if (store_state(found[ATTR_WIFI_5G_2], &ev->wifi_5g_2_state))
        KOLT_DEBUG("wifi 5g2 state %d", static_cast<int>(ev->wifi_5g_2_state));
    if (store_state(found[ATTR_ETH], &ev->eth_state)) {
        KOLT_DEBUG("eth state %d", static_cast<int>(ev->eth_state));
        if (eth_state_changed(ev->eth_state)) {
            need_reconfig = 1;
            KOLT_DEBUG("eth link state change, need_reconfig");
        }
    }
    if (store_state(found[ATTR_PLC], &ev->plc_state)) {
        KOLT_DEBUG("plc state %d", static_cast<int>(ev->plc_state));
        // The event can overtake the link's runtime file, which the modules are about to read.
        if (ev->plc_state == 0 && kolt_check_link_state(KOLT_LINK_PLC) == 1)
            kolt_pause_one_second();
    }
    deliver(ev, KOLT_EVENT_LINK_STATE, need_reconfig);
}

void event_ubus_receive_cb(ubus_context * /*context*/, ubus_event_handler *handler, const char *type,
                           blob_attr *message) {
    auto *ev = KOLT_CONTAINER_OF(handler, kolt_event_ctx, ubus_handler);
    if (strncmp(type, PREFIX, PREFIX_LENGTH) != 0) {
        KOLT_ERROR("wrong type");
        return;
    }
    const char *subtype = type + PREFIX_LENGTH;
    if (strcmp(subtype, "configure") == 0)
        return receive_configure(ev, message);
    if (strcmp(subtype, "link_state") == 0)
        return event_ubus_receive_link_state(ev, message);
    if (strcmp(subtype, "debug") == 0)
        return receive_debug(ev, message);
    KOLT_INFO("unknown subtype");
}
