/*
 * libeth_encap: bridge queries and the Ethernet port profile of the device. Every call returns 0 on success.
 */
#ifndef ETH_ENCAP_H
#define ETH_ENCAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Sends `message`, the address of a table buffer's 52-byte header, and overwrites it with the reply. The reply's
 * payload length is the 32-bit word 8 bytes before the payload.
 */
int netlink_msg(int type, void *message, uint32_t payload_size, int protocol);

/* The device profile's Ethernet interface names, at most `capacity` of them, and the number of Ethernet ports. */
int uci_get_profile_eths(char names[][16], int capacity);
int uci_get_eth_port_num(int *count);

#ifdef __cplusplus
}
#endif

#endif
