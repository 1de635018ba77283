// Which stream a frame belongs to, and how many frames of a wire it stands for.
#pragma once

#include "records.h"

#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/in.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#define IPV4_HEADER 20
#define IPV6_HEADER 40
#define IPV4_NO_OPTIONS 0x45
#define IPV4_FRAGMENT 0x3fff // more fragments, or an offset
#define PORTS_SIZE 4
#define UDP_HEADER 8
#define TCP_HEADER 20
#define TCP_LENGTH_BYTE 12

#define IPV4_HEAD (ETH_HLEN + IPV4_HEADER + PORTS_SIZE)
#define IPV6_HEAD (ETH_HLEN + IPV6_HEADER + PORTS_SIZE)

// The half words of a word, in the order in which they stand in memory.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define FIRST_HALF(word) ((word)&0xffff)
#define SECOND_HALF(word) ((word) >> 16)
#define JOIN_HALVES(first, second) ((__u32)(first) | (__u32)(second) << 16)
#else
#define FIRST_HALF(word) ((word) >> 16)
#define SECOND_HALF(word) ((word)&0xffff)
#define JOIN_HALVES(first, second) ((__u32)(first) << 16 | (__u32)(second))
#endif

enum direction { FORWARD, REVERSED };

// A stream's key in the words in which the hash reads it: halves written one by one would have it wait for them.
struct flow {
    union {
        struct kolt_stream_key key;
        __u32 words[sizeof(struct kolt_stream_key) / sizeof(__u32)];
    };
    __u32 transport; // offset of the transport header
    __u32 protocol;
};

// Loads are aligned as frames are: the IP header stands on a multiple of 4.
static __always_inline __u32 load16(const __u8 *at) {
    return *(const __u16 *)at;
}

static __always_inline __u32 load32(const __u8 *at) {
    return *(const __u32 *)at;
}

static __always_inline void set_addresses(struct flow *flow, const __u8 *head, enum direction direction) {
    const __u32 dst_first = load16(head), dst_rest = load32(head + 2);
    const __u32 src_first = load32(head + ETH_ALEN), src_rest = load16(head + ETH_ALEN + 4);
    if (direction == FORWARD) {
        flow->words[0] = src_first;
        flow->words[1] = JOIN_HALVES(src_rest, dst_first);
        flow->words[2] = dst_rest;
        return;
    }
    flow->words[0] = JOIN_HALVES(dst_first, FIRST_HALF(dst_rest));
    flow->words[1] = JOIN_HALVES(SECOND_HALF(dst_rest), FIRST_HALF(src_first));
    flow->words[2] = JOIN_HALVES(SECOND_HALF(src_first), src_rest);
}

// The same in both directions; other pairs of addresses with the same sum have another product.
static __always_inline __u32 address_hash(__u32 one, __u32 other) {
    return ((one + other) * 0x9e3779b1u ^ one * other * 0x85ebca6bu) >> 16;
}

static __always_inline void set_flow(struct flow *flow, const __u8 *head, __u32 hash, enum direction direction) {
    const __u32 both = load32(head + flow->transport);
    const __u32 kind = flow->protocol == IPPROTO_UDP ? KOLT_STREAM_UDP : KOLT_STREAM_TCP;
    set_addresses(flow, head, direction);
    flow->words[3] = direction == FORWARD ? both : JOIN_HALVES(SECOND_HALF(both), FIRST_HALF(both));
    flow->words[4] = JOIN_HALVES(kind, hash);
}

// Whether the IP header leaves room for the transport header, and the frame for what the IP header says.
static __always_inline int fits(__u32 protocol, __u32 transport, __u32 end, __u32 frame_size) {
    if (protocol == IPPROTO_TCP)
        return end >= transport + TCP_HEADER && end <= frame_size;
    return protocol == IPPROTO_UDP && end >= transport + UDP_HEADER && end <= frame_size;
}

// `head` holds IPV4_HEAD bytes.
static __always_inline int read_ipv4(const __u8 *head, __u32 frame_size, enum direction direction, struct flow *flow) {
    const __u8 *ip = head + ETH_HLEN;
    flow->protocol = ip[9];
    flow->transport = ETH_HLEN + IPV4_HEADER;
    if (ip[0] != IPV4_NO_OPTIONS || (load16(ip + 6) & bpf_htons(IPV4_FRAGMENT)) != 0)
        return 0;
    if (!fits(flow->protocol, flow->transport, ETH_HLEN + bpf_ntohs(load16(ip + 2)), frame_size))
        return 0;
    set_flow(flow, head, address_hash(bpf_ntohl(load32(ip + 12)), bpf_ntohl(load32(ip + 16))), direction);
    return 1;
}

// `head` holds IPV6_HEAD bytes.
static __always_inline int read_ipv6(const __u8 *head, __u32 frame_size, enum direction direction, struct flow *flow) {
    const __u8 *ip = head + ETH_HLEN;
    __u32 src = 0, dst = 0;
    flow->protocol = ip[6];
    flow->transport = ETH_HLEN + IPV6_HEADER;
    if (ip[0] >> 4 != 6 ||
        !fits(flow->protocol, flow->transport, flow->transport + bpf_ntohs(load16(ip + 4)), frame_size))
        return 0;
#pragma unroll
    for (int at = 8; at < 24; at += 4) {
        src ^= bpf_ntohl(load32(ip + at));
        dst ^= bpf_ntohl(load32(ip + at + 16));
    }
    set_flow(flow, head, address_hash(src, dst), direction);
    return 1;
}

// Fills `flow` with the key of the stream that a unicast frame belongs to, or with that of its other direction. 0: it
// belongs to none, as everything but plain TCP and UDP in untagged frames. From `head` to `end` is as much of the frame
// as can be read in place; what a driver left elsewhere is copied.
static __always_inline int read_flow(struct __sk_buff *skb, const __u8 *head, const void *end, enum direction direction,
                                     struct flow *flow) {
    const __u32 ethertype = load16(head + 12);
    __u32 copy[(2 + IPV6_HEAD + 3) / 4];
    __u8 *copied = (__u8 *)copy + 2;
    if (skb->vlan_present)
        return 0;
    if (ethertype == bpf_htons(ETH_P_IP)) {
        if ((const void *)(head + IPV4_HEAD) <= end)
            return read_ipv4(head, skb->len, direction, flow);
        return bpf_skb_load_bytes(skb, 0, copied, IPV4_HEAD) == 0 && read_ipv4(copied, skb->len, direction, flow);
    }
    if (ethertype != bpf_htons(ETH_P_IPV6))
        return 0;
    if ((const void *)(head + IPV6_HEAD) <= end)
        return read_ipv6(head, skb->len, direction, flow);
    return bpf_skb_load_bytes(skb, 0, copied, IPV6_HEAD) == 0 && read_ipv6(copied, skb->len, direction, flow);
}

static __always_inline int is_key(const struct flow *flow, const struct kolt_stream_key *key) {
    const __u32 *words = (const __u32 *)key;
    return words[3] == flow->words[3] && words[0] == flow->words[0] && words[1] == flow->words[1] &&
           words[2] == flow->words[2] && words[4] == flow->words[4];
}

// A number below KOLT_MAX_STREAMS for the guess.
static __always_inline __u32 guess_of(const struct flow *flow) {
    const __u32 mixed = (flow->words[0] ^ flow->words[3]) * 0x9e3779b1u +
                        (flow->words[1] ^ flow->words[4]) * 0x85ebca6bu + flow->words[2] * 0xc2b2ae35u;
    return (mixed ^ mixed >> 15) & (KOLT_MAX_STREAMS - 1);
}

struct wire_size {
    __u64 packets;
    __u64 bytes;
};

// What crosses the wire for this frame: one that the kernel carries for several repeats their headers.
static __always_inline struct wire_size size_on_wire(struct __sk_buff *skb, const struct flow *flow) {
    struct wire_size size = {1, skb->len};
    const __u32 segment = skb->gso_size;
    __u32 headers = flow->transport + UDP_HEADER;
    if (segment == 0)
        return size;
    if (flow->protocol == IPPROTO_TCP) {
        __u8 words = 0;
        (void)bpf_skb_load_bytes(skb, flow->transport + TCP_LENGTH_BYTE, &words, sizeof words);
        headers = flow->transport + (words >> 4) * 4;
    }
    if (headers >= skb->len)
        return size;
    size.packets = (skb->len - headers + segment - 1) / segment;
    size.bytes += (size.packets - 1) * headers;
    return size;
}
