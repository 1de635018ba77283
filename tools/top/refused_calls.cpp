// What another driver's table of operations may name besides its reading ones, and what is kept for a count of
// coverage. Nothing here calls those, and if something did, it would be refused.
#include <duon_bridge.h>
#include <eth_encap.h>

namespace {

constexpr int REFUSED = -1;

} // namespace

int bridgeAddHDTableEntries(const char * /*bridge*/, const uint8_t * /*client_mac*/, const uint8_t * /*second_mac*/,
                            const char * /*ifname*/, const char * /*ifname_again*/, int /*zero*/) {
    return REFUSED;
}

int bridgeDelHDTableEntriesByMAC(const char * /*bridge*/, const uint8_t * /*mac*/, const uint8_t * /*second_mac*/,
                                 const char * /*ifname*/) {
    return REFUSED;
}

int bridgeSetHATableEntries(const char * /*bridge*/, uint16_t /*hash*/, const uint8_t * /*src*/,
                            const uint8_t * /*dst*/, uint16_t /*src_port*/, uint16_t /*dst_port*/,
                            const char * /*ifname*/, uint16_t /*stream_kind*/, uint32_t /*carried_value*/) {
    return REFUSED;
}

int bridgeFlushHDTable(const char * /*bridge*/) {
    return REFUSED;
}

int bridgeFlushHATable(const char * /*bridge*/) {
    return REFUSED;
}

int uci_get_profile_eths(char /*names*/[][16], int /*capacity*/) {
    return REFUSED;
}

int uci_get_eth_port_num(int * /*count*/) {
    return REFUSED;
}
