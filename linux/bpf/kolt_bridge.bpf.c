// The forwarding rules of a backhaul port, at traffic control's two hooks: what may pass, which link a stream takes,
// and what it has carried. They go by the maps alone; with empty maps nothing passes.
#include "flow.h"
#include "maps.h"
#include "records.h"

#include <linux/bpf.h>
#include <linux/pkt_cls.h>
#include <stddef.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

// Whoever else stands on the hook still gets what passes here.
#define PASS TC_ACT_UNSPEC
#define DROP TC_ACT_SHOT

#define CONTROL_PRIORITY 7 // TC_PRIO_CONTROL

static __always_inline __u32 port_word(__u32 ifindex) {
    const volatile struct kolt_port_entry *port = bpf_map_lookup_elem(&ports, &ifindex);
    return port ? port->word : 0;
}

static __always_inline int has(__u32 word, __u32 flag) {
    return (word & flag << KOLT_PORT_FLAGS_SHIFT) != 0;
}

// `shift` names the rights, admits or accepts; the class is that of the port of `class_word`.
static __always_inline int allows(__u32 word, __u32 shift, __u32 class_word) {
    return (word >> shift >> (class_word >> KOLT_PORT_CLASS_SHIFT & KOLT_PORT_CLASS_MASK) & 1) != 0;
}

static __always_inline int is_group(const __u8 *dst) {
    return dst[0] & 1;
}

// 01:80:c2:00:00:01 to 0f: bridges keep these to a link. The address that ends in 00 is another matter: a bridge that
// runs no spanning tree floods it.
static __always_inline int is_link_local(const __u8 *dst) {
    return dst[0] == 0x01 && dst[1] == 0x80 && dst[2] == 0xc2 && dst[3] == 0 && dst[4] == 0 && dst[5] != 0 &&
           dst[5] <= 0x0f;
}

// A node sends nothing but link-local frames by a port that is closed at its end: this one is from a host.
static __always_inline int keep_out(__u32 ifindex) {
    struct kolt_port_entry *port = bpf_map_lookup_elem(&ports, &ifindex);
    if (port)
        __sync_fetch_and_add(&port->foreign, 1);
    return DROP;
}

// Sends a probe back as an echo, so that both directions of a link are proved whoever is alive behind its other end.
static __always_inline int answer_probe(struct __sk_buff *skb) {
    const __u32 ifindex = skb->ifindex;
    const __u8 echo = KOLT_NEIGHBOUR_ECHO;
    struct kolt_neighbour_head head;
    if (bpf_skb_load_bytes(skb, 0, &head, sizeof head) != 0 || head.dst[5] != KOLT_NEIGHBOUR_ADDRESS_END)
        return PASS;
    if (head.ethertype[0] != KOLT_NEIGHBOUR_ETHERTYPE >> 8 || head.ethertype[1] != (KOLT_NEIGHBOUR_ETHERTYPE & 0xff) ||
        head.version != KOLT_NEIGHBOUR_VERSION || head.kind != KOLT_NEIGHBOUR_PROBE)
        return PASS;
    const struct kolt_port_identity *identity = bpf_map_lookup_elem(&identities, &ifindex);
    if (!identity || !identity->valid)
        return PASS;
    if (bpf_skb_store_bytes(skb, offsetof(struct kolt_neighbour_head, src), identity->mac, sizeof head.src, 0) != 0 ||
        bpf_skb_store_bytes(skb, offsetof(struct kolt_neighbour_head, kind), &echo, sizeof echo, 0) != 0 ||
        bpf_skb_store_bytes(skb, offsetof(struct kolt_neighbour_head, echoed_by), identity->node, sizeof head.echoed_by,
                            0) != 0)
        return DROP;
    skb->priority = CONTROL_PRIORITY; // a full queue must not make a link look dead
    return (int)bpf_redirect(ifindex, 0);
}

static __always_inline struct kolt_stream *find_stream(const struct flow *flow) {
    const __u32 guess = guess_of(flow);
    __u32 *last = bpf_map_lookup_elem(&last_slots, &guess);
    struct kolt_stream *stream = last ? bpf_map_lookup_elem(&streams, last) : NULL;
    if (stream && stream->state == KOLT_STREAM_USED && is_key(flow, &stream->key))
        return stream;
    const __u32 *slot = bpf_map_lookup_elem(&stream_slots, &flow->key);
    if (!slot)
        return NULL;
    if (last)
        *last = *slot;
    return bpf_map_lookup_elem(&streams, slot);
}

// A slot is filled before its key is there for others to find, and is said to be in use after that: who walks the table
// never sees half a stream.
static __always_inline struct kolt_stream *make_stream(const struct flow *flow, __u32 target) {
    __u32 slot;
    if (bpf_map_pop_elem(&free_slots, &slot) != 0)
        return NULL;
    struct kolt_stream *stream = bpf_map_lookup_elem(&streams, &slot);
    if (!stream)
        return NULL;
    stream->target = target;
    stream->tx_packets = stream->tx_bytes = 0;
    stream->rx_packets = stream->rx_bytes = 0;
    stream->key = flow->key;
    stream->generation++;
    if (bpf_map_update_elem(&stream_slots, &flow->key, &slot, BPF_NOEXIST) != 0) {
        bpf_map_push_elem(&free_slots, &slot, 0);
        return find_stream(flow); // another processor was first
    }
    *(volatile __u32 *)&stream->state = KOLT_STREAM_USED;
    return stream;
}

static __always_inline int in_hd(const __u8 *dst) {
    struct kolt_hd_key key = {};
    __builtin_memcpy(key.mac, dst, sizeof key.mac);
    return bpf_map_lookup_elem(&hd, &key) != NULL;
}

// A client that was placed on a link, but speaks on a port of `word` which is none of that link's group, has moved: its
// place must not keep frames from it any longer.
static __always_inline void note_source(const __u8 *src, __u32 word) {
    struct kolt_hd_key key = {};
    __builtin_memcpy(key.mac, src, sizeof key.mac);
    const __u32 *placed = bpf_map_lookup_elem(&hd, &key);
    if (!placed || ((port_word(*placed) ^ word) & KOLT_PORT_GROUP_MASK) == 0)
        return;
    if (bpf_map_delete_elem(&hd, &key) == 0)
        bpf_map_push_elem(&roamed, &key, BPF_EXIST); // has a place for each
}

static __always_inline void count(__u64 *packets, __u64 *bytes, struct wire_size size) {
    __sync_fetch_and_add(packets, size.packets);
    __sync_fetch_and_add(bytes, size.bytes);
}

// What arrives is the other direction of the streams that leave.
static __always_inline void note_arrival(struct __sk_buff *skb, const __u8 *head, const void *end, __u32 word) {
    const __u32 ifindex = skb->ifindex;
    struct flow flow;
    if (!read_flow(skb, head, end, REVERSED, &flow))
        return;
    struct kolt_stream *stream = find_stream(&flow);
    if (has(word, KOLT_PORT_FOLLOW) && (!stream || stream->target != ifindex))
        note_source(flow.key.dst, word); // only then: a look-up more for each frame would be too many
    if (!stream && has(word, KOLT_PORT_FOLLOW))
        stream = make_stream(&flow, ifindex);
    if (!stream)
        return;
    count(&stream->rx_packets, &stream->rx_bytes, size_on_wire(skb, &flow));
    if (has(word, KOLT_PORT_FOLLOW) && stream->target != ifindex)
        *(volatile __u32 *)&stream->target = ifindex;
}

SEC("tc")
int kolt_ingress(struct __sk_buff *skb) {
    const __u8 *head = (const __u8 *)(long)skb->data;
    const void *end = (const void *)(long)skb->data_end;
    const __u32 word = port_word(skb->ifindex);
    if ((const void *)(head + ETH_HLEN) > end)
        return DROP;
    if (is_group(head) && is_link_local(head))
        return answer_probe(skb);
    if (!has(word, KOLT_PORT_OPEN))
        return keep_out(skb->ifindex);
    if (!is_group(head)) {
        note_arrival(skb, head, end, word);
        return PASS;
    }
    if (!allows(word, KOLT_PORT_ADMITS_SHIFT, word))
        return DROP;
    note_source(head + ETH_ALEN, word);
    return PASS;
}

// Whether a stream that points to `target` may be moved there from the port of `word`: back into the group only.
static __always_inline int may_leave_by(__u32 target, __u32 word) {
    const __u32 other = port_word(target);
    return has(other, KOLT_PORT_OPEN) && (word & KOLT_PORT_GROUP_MASK) != 0 &&
           ((other ^ word) & KOLT_PORT_GROUP_MASK) == 0;
}

// A stream that is to leave elsewhere is counted there, by the program of that port.
static __always_inline int place(struct __sk_buff *skb, const __u8 *head, const void *end, __u32 word, __u32 in_word) {
    const __u32 ifindex = skb->ifindex;
    struct flow flow;
    if (!read_flow(skb, head, end, FORWARD, &flow))
        return PASS;
    struct kolt_stream *stream = find_stream(&flow);
    if (!stream && has(word, KOLT_PORT_NEED_HA) && in_hd(flow.key.dst)) {
        note_source(flow.key.src, in_word);
        stream = make_stream(&flow, ifindex);
    }
    if (!stream)
        return PASS;
    const __u32 target = *(volatile __u32 *)&stream->target;
    if (target != ifindex && has(word, KOLT_PORT_NEED_HA | KOLT_PORT_FOLLOW) && may_leave_by(target, word))
        return (int)bpf_redirect(target, 0);
    count(&stream->tx_packets, &stream->tx_bytes, size_on_wire(skb, &flow));
    return PASS;
}

SEC("tc")
int kolt_egress(struct __sk_buff *skb) {
    const __u8 *head = (const __u8 *)(long)skb->data;
    const void *end = (const void *)(long)skb->data_end;
    const __u32 came_by = skb->ingress_ifindex;
    const __u32 word = port_word(skb->ifindex), in_word = port_word(came_by);
    if ((const void *)(head + ETH_HLEN) > end)
        return DROP;
    // Only the node's own: a bridge can be told to forward these, and floods what came in by a closed port too.
    if (is_group(head) && is_link_local(head))
        return came_by == 0 || came_by == skb->ifindex ? PASS : DROP;
    if (!has(word, KOLT_PORT_OPEN))
        return DROP;
    // Split horizon: what came from a neighbour does not go back to it by another link.
    if ((word & KOLT_PORT_GROUP_MASK) != 0 && ((word ^ in_word) & KOLT_PORT_GROUP_MASK) == 0)
        return DROP;
    if (!is_group(head))
        return place(skb, head, end, word, in_word);
    if (!allows(word, KOLT_PORT_ACCEPTS_SHIFT, in_word))
        return DROP;
    if (came_by != 0)
        note_source(head + ETH_ALEN, in_word);
    return PASS;
}

const char LICENSE[] SEC("license") = "Proprietary"; // no helper that asks for another is called
