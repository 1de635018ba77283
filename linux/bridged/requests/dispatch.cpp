#include "bridged/requests/dispatch.h"

#include "bridged/requests/table_writer.h"
#include "lib/record_size.h"

#include <cerrno>

namespace {

constexpr int FAILED = -1;

template <class... Parameters, class... Arguments>
int invoke(const request_handlers &handlers, int (*handler)(void *, Parameters...), const Arguments &...arguments) {
    return handler != nullptr ? handler(handlers.context, arguments...) : FAILED;
}

// The calls that differ in nothing but their name.
struct bridge_call {
    call_code code;
    int (*request_handlers::*handler)(void *, const char *);
};
constexpr bridge_call BRIDGE_CALLS[] = {
    {CALL_FLUSH_HD_TABLE, &request_handlers::flush_hd_table},
    {CALL_FLUSH_HA_TABLE, &request_handlers::flush_ha_table},
    {CALL_CHECK_BRIDGE, &request_handlers::check_bridge},
};

struct bridge_setter {
    call_code code;
    int (*request_handlers::*handler)(void *, const char *, int32_t);
};
constexpr bridge_setter BRIDGE_SETTERS[] = {
    {CALL_SET_BRIDGE_MODE, &request_handlers::set_bridge_mode},
    {CALL_SET_TCP_SP, &request_handlers::set_tcp_sp},
    {CALL_SET_FOLLOW_RE, &request_handlers::set_follow_re},
};

struct port_setter {
    call_code code;
    int (*request_handlers::*handler)(void *, const char *, const char *, int32_t);
};
constexpr port_setter PORT_SETTERS[] = {
    {CALL_SET_IF_TYPE, &request_handlers::set_if_type},
    {CALL_SET_IF_CLASS, &request_handlers::set_if_class},
    {CALL_SET_IF_PATH, &request_handlers::set_if_path},
    {CALL_SET_IF_COMPAT, &request_handlers::set_if_compat},
    {CALL_SET_IF_BROADCAST, &request_handlers::set_if_broadcast},
    {CALL_SET_NEEDHA, &request_handlers::set_needha},
};

template <class Row, size_t Count> const Row *find(const Row (&rows)[Count], uint16_t call) {
    for (const Row &row : rows) {
        if (row.code == call)
            return &row;
    }
    return nullptr;
}

int change(const request_handlers &to, const call_request &request) {
    const int32_t *values = request.values;
    switch (request.call) {
    case CALL_SET_IF_GROUP:
        return invoke(to, to.set_if_group, request.bridge, request.ifname, values[0], values[1]);
    case CALL_SET_COUPLE:
        return invoke(to, to.set_couple, request.bridge, request.ifname, request.other_name, values[0]);
    case CALL_ADD_HD_ENTRY:
        return invoke(to, to.add_hd_entry, request.bridge, request.mac, request.second_mac, request.ifname,
                      request.other_name);
    case CALL_DELETE_HD_ENTRIES:
        return invoke(to, to.delete_hd_entries, request.bridge, request.mac, request.second_mac, request.ifname);
    case CALL_SET_HA_ENTRY:
        return invoke(to, to.set_ha_entry, request.bridge, request.mac, request.second_mac, request.stream,
                      request.ifname);
    case CALL_FLUSH_FDB:
        return invoke(to, to.flush_fdb, request.bridge, request.ifname);
    case CALL_SET_EVENT_INFO:
        return invoke(to, to.set_event_info, request.bridge, values[0], values[1], values[2]);
    default:
        return FAILED;
    }
}

int perform(const request_handlers &handlers, const call_request &request) {
    if (const bridge_call *row = find(BRIDGE_CALLS, request.call))
        return invoke(handlers, handlers.*row->handler, request.bridge);
    if (const bridge_setter *row = find(BRIDGE_SETTERS, request.call))
        return invoke(handlers, handlers.*row->handler, request.bridge, request.values[0]);
    if (const port_setter *row = find(PORT_SETTERS, request.call))
        return invoke(handlers, handlers.*row->handler, request.bridge, request.ifname, request.values[0]);
    return change(handlers, request);
}

int produce(const request_handlers &handlers, const call_request &request, table_writer *table) {
    switch (request.call) {
    case CALL_GET_PORTS:
        return invoke(handlers, handlers.get_ports, request.bridge, table);
    case CALL_GET_ETHERNETS:
        return invoke(handlers, handlers.get_ethernets, table);
    default:
        return invoke(handlers, handlers.get_table, request.bridge, static_cast<bridge_table>(request.values[0]),
                      table);
    }
}

} // namespace

call_answer dispatch_call(const request_handlers &handlers, const call_request &request) {
    call_answer answer;
    answer.reply.sequence = request.sequence;
    const uint32_t record_size = requested_record_size(request);
    if (record_size == 0) {
        answer.reply.result = perform(handlers, request);
        return answer;
    }
    table_writer table(record_size, request.capacity);
    answer.reply.result = produce(handlers, request, &table);
    if (answer.reply.result != 0)
        return answer;
    if (!table.finish()) {
        answer.reply.result = FAILED;
        return answer;
    }
    answer.reply.count = table.count();
    answer.reply.record_size = record_size;
    answer.table = table.take_file();
    return answer;
}

int dispatch_netlink_request(const request_handlers &handlers, const netlink_request &request) {
    int result = FAILED;
    switch (request.header.nlmsg_type) {
    case NETLINK_REGISTER_NEIGHBOURS:
        result = invoke(handlers, handlers.register_neighbours, static_cast<int32_t>(request.pid));
        break;
    case NETLINK_MOVED_STREAM:
        result = invoke(handlers, handlers.moved_stream, request.stream);
        break;
    default:
        return -EOPNOTSUPP;
    }
    return result == 0 ? 0 : -EINVAL;
}
