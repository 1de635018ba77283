/*
 * libduon-bridge: control of a bridge's ports and stream tables.
 *
 * Bridge and interface names are NUL-terminated and at most 15 characters long, MACs are 6 bytes, integers are in host
 * order. Unless said otherwise a call returns 0 on success.
 */
#ifndef DUON_BRIDGE_H
#define DUON_BRIDGE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The bridge as a whole. */
int bridgeSetBridgeMode(const char *bridge, int mode);
int bridgeSetTcpSP(const char *bridge, int value);
int bridgeSetFollowRE(const char *bridge, int value);

/* One port of the bridge. */
int bridgeSetIFGroup(const char *bridge, const char *ifname, int group, int group_again);
int bridgeSetIFType(const char *bridge, const char *ifname, int type);
int bridgeSetIFClass(const char *bridge, const char *ifname, int bcast_class);
int bridgeSetIFPath(const char *bridge, const char *ifname, int path);
int bridgeSetIFCompat(const char *bridge, const char *ifname, int compat_group);
int bridgeSetIFBroadcast(const char *bridge, const char *ifname, int allow);
int bridgeSetNeedha(const char *bridge, const char *ifname, int needha);
int bridgeSetCouple(const char *bridge, const char *ifname, const char *couple, int first);

/*
 * A message buffer of `size` payload bytes for `bridge`. The result points at the payload, behind a 52-byte header
 * that carries the bridge's name, or is null. The caller frees it with bridgeFreeTableBuf, which allows null.
 */
void *bridgeAllocTableBuf(uint32_t size, const char *bridge);
void bridgeFreeTableBuf(void *buf);

/*
 * Fetches a table into `buf`. *entries is the capacity on entry and the number of entries that the bridge has on
 * return; a table larger than the capacity is a failure (non-zero) that leaves the needed number in *entries.
 */
int bridgeTableAction(const char *bridge, int code, uint32_t *entries, void *buf, int zero);

/* Single entries of the high-data-rate (HD) and hash (HA) tables; -1 on failure. */
int bridgeAddHDTableEntries(const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                            const char *ifname, const char *ifname_again, int zero);
int bridgeDelHDTableEntriesByMAC(const char *bridge, const uint8_t *mac, const uint8_t *second_mac, const char *ifname);
int bridgeSetHATableEntries(const char *bridge, uint16_t hash, const uint8_t *src, const uint8_t *dst,
                            uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t stream_kind,
                            uint32_t carried_value);

int bridgeFlushHDTable(const char *bridge);
int bridgeFlushHATable(const char *bridge);

/* Forgets the forwarding entries of one port; the result means nothing. */
int bridgeDelFdbByName(const char *bridge, const char *ifname);

/* Registers process `pid` as the receiver of the bridge's events; negative on failure. */
int bridgeSetEventInfo(const char *bridge, int pid, int events, int protocol);

#ifdef __cplusplus
}
#endif

#endif
