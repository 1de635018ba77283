/*
 * A client of the platform libraries for the node's own tests: each command makes the calls that it is named after and
 * prints what came back, one value a line.
 */
#include <duon_bridge.h>
#include <eth_encap.h>

#include <errno.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { HEADER = 52, LENGTH_WORD = 8, SHOWN = 64, DATAGRAM = 16384 };

static const uint8_t MAC_A[6] = {2, 0, 0, 0, 0, 0xa};
static const uint8_t MAC_B[6] = {2, 0, 0, 0, 0, 0xb};

static void print_hex(const char *key, const void *data, size_t size) {
    const uint8_t *byte = data;
    printf("%s ", key);
    for (size_t i = 0; i < size; i++) {
        printf("%02x", byte[i]);
    }
    printf("\n");
}

static size_t parse_hex(const char *text, uint8_t *out, size_t capacity) {
    size_t used = 0;
    unsigned value;
    while (used < capacity && sscanf(text + 2 * used, "%2x", &value) == 1) {
        out[used++] = (uint8_t)value;
    }
    return used;
}

/* query TYPE BRIDGE PAYLOAD_SIZE: a bridge query as the daemon makes it. */
static int query(char **argv) {
    uint32_t size = (uint32_t)strtoul(argv[2], NULL, 10);
    uint8_t *payload = bridgeAllocTableBuf(size, argv[1]);
    if (payload == NULL) {
        printf("alloc null\n");
        return 0;
    }
    memset(payload, 0xee, size);
    printf("header_holds_name %d\n", memmem(payload - HEADER, HEADER, argv[1], strlen(argv[1]) + 1) != NULL);
    printf("result %d\n", netlink_msg(atoi(argv[0]), payload - HEADER, size, 38));
    uint32_t length;
    memcpy(&length, payload - LENGTH_WORD, sizeof(length));
    printf("length %u\n", length);
    print_hex("payload", payload, size);
    bridgeFreeTableBuf(payload);
    return 0;
}

/* table CODE BRIDGE CAPACITY ENTRY_SIZE */
static int table(char **argv) {
    uint32_t entries = (uint32_t)strtoul(argv[2], NULL, 10);
    uint32_t size = entries * (uint32_t)strtoul(argv[3], NULL, 10);
    uint8_t *payload = bridgeAllocTableBuf(size, argv[1]);
    if (payload == NULL) {
        printf("alloc null\n");
        return 0;
    }
    memset(payload, 0xee, size);
    printf("result %d\n", bridgeTableAction(argv[1], atoi(argv[0]), &entries, payload, 0));
    printf("entries %u\n", entries);
    print_hex("payload", payload, size);
    bridgeFreeTableBuf(payload);
    bridgeFreeTableBuf(NULL);
    return 0;
}

/* setters BRIDGE IFNAME: every call that only reports a result. */
static int setters(char **argv) {
    const char *br = argv[0], *port = argv[1];
    printf("bridgeSetBridgeMode %d\n", bridgeSetBridgeMode(br, 1));
    printf("bridgeSetTcpSP %d\n", bridgeSetTcpSP(br, 2));
    printf("bridgeSetFollowRE %d\n", bridgeSetFollowRE(br, 3));
    printf("bridgeSetIFGroup %d\n", bridgeSetIFGroup(br, port, 4, 5));
    printf("bridgeSetIFType %d\n", bridgeSetIFType(br, port, 6));
    printf("bridgeSetIFClass %d\n", bridgeSetIFClass(br, port, 7));
    printf("bridgeSetIFPath %d\n", bridgeSetIFPath(br, port, 8));
    printf("bridgeSetIFCompat %d\n", bridgeSetIFCompat(br, port, 9));
    printf("bridgeSetIFBroadcast %d\n", bridgeSetIFBroadcast(br, port, 10));
    printf("bridgeSetNeedha %d\n", bridgeSetNeedha(br, port, 11));
    printf("bridgeSetCouple %d\n", bridgeSetCouple(br, port, "couple0", 12));
    printf("bridgeAddHDTableEntries %d\n", bridgeAddHDTableEntries(br, MAC_A, MAC_B, port, port, 0));
    printf("bridgeDelHDTableEntriesByMAC %d\n", bridgeDelHDTableEntriesByMAC(br, MAC_A, MAC_B, port));
    printf("bridgeSetHATableEntries %d\n",
           bridgeSetHATableEntries(br, 64, MAC_A, MAC_B, 5000, 80, port, 1, 0xfedcba98u));
    printf("bridgeFlushHDTable %d\n", bridgeFlushHDTable(br));
    printf("bridgeFlushHATable %d\n", bridgeFlushHATable(br));
    printf("bridgeDelFdbByName %d\n", bridgeDelFdbByName(br, port));
    printf("bridgeSetEventInfo %d\n", bridgeSetEventInfo(br, 77, 3, 38));
    return 0;
}

/* flush BRIDGE TIMES */
static int flush(char **argv) {
    for (int i = 0; i < atoi(argv[1]); i++) {
        printf("result %d\n", bridgeFlushHATable(argv[0]));
    }
    return 0;
}

/* profile CAPACITY */
static int profile(char **argv) {
    char names[16][16] = {{0}};
    int count = -1;
    printf("names_result %d\n", uci_get_profile_eths(names, atoi(argv[0])));
    printf("ports_result %d\n", uci_get_eth_port_num(&count));
    printf("ports %d\n", count);
    for (int i = 0; i < 16 && names[i][0] != '\0'; i++) {
        printf("name %s\n", names[i]);
    }
    return 0;
}

static int open_netlink(int protocol, int flags, int port) {
    int fd = socket(AF_NETLINK, SOCK_RAW | flags, protocol);
    if (fd < 0) {
        printf("socket_error %d\n", errno);
        return -1;
    }
    struct sockaddr_nl own = {.nl_family = AF_NETLINK, .nl_pid = (uint32_t)port};
    printf("bind %d\n", bind(fd, (struct sockaddr *)&own, sizeof(own)) == 0 ? 0 : errno);
    return fd;
}

/* request HEX TIMEOUT TIMES: that many exchanges with the kernel on protocol 52, each on a socket of its own. */
static int request(char **argv) {
    uint8_t message[DATAGRAM];
    size_t size = parse_hex(argv[0], message, sizeof(message));
    struct sockaddr_nl kernel = {.nl_family = AF_NETLINK};
    for (int i = 0; i < atoi(argv[2]); i++) {
        int fd = open_netlink(52, 0, getpid());
        int room = (int)size;
        printf("nonblock %d\n", fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK));
        printf("sndbuf %d\n", setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room)));
        printf("rcvbuf %d\n", setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof(room)));
        printf("sent %zd\n", sendto(fd, message, size, 0, (struct sockaddr *)&kernel, sizeof(kernel)));
        struct pollfd ready = {.fd = fd, .events = POLLIN};
        printf("poll %d\n", poll(&ready, 1, atoi(argv[1])));
        uint8_t answer[DATAGRAM];
        ssize_t got = recv(fd, answer, sizeof(answer), MSG_WAITALL);
        print_hex("reply", answer, got > 0 ? (size_t)got : 0);
        close(fd);
    }
    return 0;
}

/* listen PROTOCOL COUNT: binds to its own pid and prints that many datagrams. */
static int listen_on(char **argv) {
    int fd = open_netlink(atoi(argv[0]), SOCK_CLOEXEC | SOCK_NONBLOCK, getpid());
    printf("cloexec %d nonblock %d\n", fcntl(fd, F_GETFD) & FD_CLOEXEC, (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0);
    fflush(stdout);
    for (int left = atoi(argv[1]); left > 0;) {
        struct pollfd ready = {.fd = fd, .events = POLLIN};
        uint8_t datagram[DATAGRAM];
        if (poll(&ready, 1, 5000) != 1) {
            printf("timeout\n");
            return 1;
        }
        ssize_t got = recv(fd, datagram, sizeof(datagram), MSG_DONTWAIT);
        printf("size %zd\n", got);
        print_hex("datagram", datagram, got > SHOWN ? SHOWN : got < 0 ? 0 : (size_t)got);
        left--;
    }
    return 0;
}

/* sockets: one socket of each kind that the daemon uses, and whether it could be had. */
static int sockets(char **argv) {
    (void)argv;
    const int kinds[][3] = {{AF_NETLINK, SOCK_RAW, 0},  {AF_NETLINK, SOCK_RAW, 39}, {AF_NETLINK, SOCK_DGRAM, 52},
                            {AF_NETLINK, SOCK_RAW, 53}, {AF_NETLINK, SOCK_RAW, 31}, {AF_INET, SOCK_DGRAM, 0},
                            {AF_PACKET, SOCK_RAW, 0},   {AF_UNIX, SOCK_STREAM, 0}};
    for (size_t i = 0; i < sizeof(kinds) / sizeof(kinds[0]); i++) {
        int fd = socket(kinds[i][0], kinds[i][1], kinds[i][2]);
        int error = fd < 0 ? errno : 0, domain = -1;
        socklen_t size = sizeof(domain);
        (void)getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size);
        printf("%d:%d error %d domain %d\n", kinds[i][0], kinds[i][2], error, domain);
        close(fd);
    }
    return 0;
}

/* frame IFNAME TIMES: sends a raw frame of 100 bytes. */
static int frame(char **argv) {
    uint8_t bytes[100] = {2, 0, 0, 0, 0, 0xa, 2, 0, 0, 0, 0, 0xb, 0x89, 0x3a};
    struct sockaddr_ll to = {.sll_family = AF_PACKET, .sll_ifindex = (int)if_nametoindex(argv[0]), .sll_halen = 6};
    memcpy(to.sll_addr, MAC_A, sizeof(MAC_A));
    int fd = socket(AF_PACKET, SOCK_RAW, 0);
    for (int i = 0; i < atoi(argv[1]); i++) {
        printf("sent %zd\n", sendto(fd, bytes, sizeof(bytes), 0, (struct sockaddr *)&to, sizeof(to)));
    }
    close(fd);
    return 0;
}

int main(int argc, char **argv) {
    static const struct {
        const char *name;
        int args;
        int (*run)(char **argv);
    } commands[] = {{"query", 3, query},      {"table", 4, table},     {"setters", 2, setters},
                    {"flush", 2, flush},      {"profile", 1, profile}, {"request", 3, request},
                    {"listen", 2, listen_on}, {"sockets", 0, sockets}, {"frame", 2, frame}};
    for (size_t i = 0; i < sizeof(commands) / sizeof(commands[0]); i++) {
        if (argc == commands[i].args + 2 && strcmp(argv[1], commands[i].name) == 0) {
            return commands[i].run(argv + 2);
        }
    }
    fprintf(stderr, "usage: %s COMMAND ARGUMENTS\n", argv[0]);
    return 2;
}
