// Which records a call brings back.
#pragma once

#include "lib/records.h"
#include "lib/requests.h"

// The size of a record of that table; 0 for a code that is none.
constexpr uint32_t table_record_size(int32_t table) {
    switch (table) {
    case BRIDGE_TABLE_HD:
        return sizeof(bridge_hd_record);
    case BRIDGE_TABLE_FDB:
        return sizeof(bridge_fdb_record);
    case BRIDGE_TABLE_HA:
        return sizeof(bridge_ha_record);
    default:
        return 0;
    }
}

// The size of the records that a request asks for; 0 when it asks for none.
constexpr uint32_t requested_record_size(const call_request &request) {
    switch (request.call) {
    case CALL_GET_TABLE:
        return table_record_size(request.values[0]);
    case CALL_GET_PORTS:
        return sizeof(bridge_port_record);
    case CALL_GET_ETHERNETS:
        return sizeof(ethernet_name_record);
    default:
        return 0;
    }
}
