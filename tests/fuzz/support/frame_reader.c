/*
 * What the programs in the kernel read of a frame, outside the kernel: the one helper that they call is replaced.
 */
#include "support/frame_reader.h"

#include <linux/bpf.h>
#include <string.h>

#include <bpf/bpf_helpers.h>

static long load_bytes(const struct __sk_buff *skb, __u32 offset, void *to, __u32 size);
#define bpf_skb_load_bytes load_bytes
/* It is checked where it is compiled for the kernel. */
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Weverything"
#include "bpf/flow.h"
#pragma clang diagnostic pop

static const unsigned char *whole_frame;

static long load_bytes(const struct __sk_buff *skb, __u32 offset, void *to, __u32 size) {
    if (offset > skb->len || size > skb->len - offset)
        return -1;
    memcpy(to, whole_frame + offset, size);
    return 0;
}

int frame_read(const unsigned char *head, __u32 available, const unsigned char *frame, __u32 size, __u32 segment,
               int reversed, struct read_frame *result) {
    struct __sk_buff skb = {.len = size, .gso_size = segment};
    struct flow flow = {0};
    whole_frame = frame;
    if (!read_flow(&skb, head, head + available, reversed ? REVERSED : FORWARD, &flow))
        return 0;
    memcpy(result->words, flow.words, sizeof result->words);
    const struct wire_size wire = size_on_wire(&skb, &flow);
    result->guess = guess_of(&flow);
    result->packets = wire.packets;
    result->bytes = wire.bytes;
    return is_key(&flow, &flow.key);
}
