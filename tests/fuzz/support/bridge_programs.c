/*
 * The helpers that the programs call, and the maps that they look into.
 */
#include "support/bridge_programs.h"

#include <linux/bpf.h>
#include <sanitizer/asan_interface.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <bpf/bpf_helpers.h>

static void *look_up(void *map, const void *key);
static long update(void *map, const void *key, const void *value, __u64 flags);
static long delete (void *map, const void *key);
static long push(void *map, const void *value, __u64 flags);
static long pop(void *map, void *value);
static long load_bytes(const struct __sk_buff *skb, __u32 offset, void *to, __u32 size);
static long store_bytes(struct __sk_buff *skb, __u32 offset, const void *from, __u32 size, __u64 flags);
static long redirect(__u32 ifindex, __u64 flags);
#define bpf_map_lookup_elem look_up
#define bpf_map_update_elem update
#define bpf_map_delete_elem delete
#define bpf_map_push_elem push
#define bpf_map_pop_elem pop
#define bpf_skb_load_bytes load_bytes
#define bpf_skb_store_bytes store_bytes
#define bpf_redirect redirect
/* It is checked where it is compiled for the kernel. */
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Weverything"
#include "bpf/kolt_bridge.bpf.c"
#pragma clang diagnostic pop

enum { SLOTS = 4, LARGEST = 1 << 17, REDIRECTED = 7 };

static struct {
    struct kolt_port_entry ports[PROGRAM_PORTS];
    struct kolt_port_identity identity;
    struct kolt_hd_key placed;
    __u32 placed_at;
    int is_placed;
    struct kolt_stream streams[SLOTS];
    struct kolt_stream_key keys[SLOTS];
    int used[SLOTS];
    __u32 slots[SLOTS];
    __u32 last_slot;
    __u32 free_slots;
    __u32 roamed;
} node;
static unsigned char *whole_frame;
static __u32 redirected;

static void require(int holds) {
    if (!holds)
        abort();
}

static int slot_of(const struct kolt_stream_key *key) {
    for (int i = 0; i < SLOTS; i++)
        if (node.used[i] && memcmp(&node.keys[i], key, sizeof *key) == 0)
            return i;
    return -1;
}

static void *look_up(void *map, const void *key) {
    if (map == &stream_slots) {
        const int slot = slot_of(key);
        return slot < 0 ? NULL : &node.slots[slot];
    }
    if (map == &hd)
        return node.is_placed && memcmp(&node.placed, key, sizeof node.placed) == 0 ? &node.placed_at : NULL;
    __u32 index;
    memcpy(&index, key, sizeof index);
    if (map == &ports)
        return index < PROGRAM_PORTS ? &node.ports[index] : NULL;
    if (map == &identities)
        return index == 1 ? &node.identity : NULL;
    if (map == &last_slots) {
        require(index < KOLT_MAX_STREAMS);
        return &node.last_slot;
    }
    require(map == &streams && index < SLOTS);
    return &node.streams[index];
}

static long update(void *map, const void *key, const void *value, __u64 flags) {
    __u32 slot;
    memcpy(&slot, value, sizeof slot);
    require(map == &stream_slots && flags == BPF_NOEXIST && slot < SLOTS);
    if (slot_of(key) >= 0)
        return -1;
    memcpy(&node.keys[slot], key, sizeof node.keys[slot]);
    node.used[slot] = 1;
    return 0;
}

static long delete (void *map, const void *key) {
    require(map == &hd && memcmp(&node.placed, key, sizeof node.placed) == 0);
    node.is_placed = 0;
    return 0;
}

static long push(void *map, const void *value, __u64 flags) {
    (void)flags;
    if (map == &free_slots) {
        node.free_slots++;
        return 0;
    }
    require(map == &roamed && memcmp(&node.placed, value, sizeof node.placed) == 0);
    node.roamed++;
    return 0;
}

static long pop(void *map, void *value) {
    require(map == &free_slots);
    if (node.free_slots == 0)
        return -1;
    node.free_slots--;
    memcpy(value, &node.free_slots, sizeof node.free_slots);
    return 0;
}

static long load_bytes(const struct __sk_buff *skb, __u32 offset, void *to, __u32 size) {
    if (offset > skb->len || size > skb->len - offset)
        return -1;
    memcpy(to, whole_frame + offset, size);
    return 0;
}

static long store_bytes(struct __sk_buff *skb, __u32 offset, const void *from, __u32 size, __u64 flags) {
    require(flags == 0);
    if (offset > skb->len || size > skb->len - offset)
        return -1;
    memcpy(whole_frame + offset, from, size);
    return 0;
}

static long redirect(__u32 ifindex, __u64 flags) {
    require(flags == 0 && ifindex != 0);
    redirected = ifindex;
    return REDIRECTED;
}

void programs_start(const struct program_maps *maps) {
    memset(&node, 0, sizeof node);
    for (__u32 i = 1; i < PROGRAM_PORTS; i++)
        node.ports[i].word = maps->words[i];
    for (__u32 i = 0; i < SLOTS; i++)
        node.slots[i] = i;
    memcpy(&node.identity, maps->identity, sizeof node.identity);
    memcpy(&node.placed, maps->placed, sizeof node.placed);
    node.placed_at = maps->placed_at;
    node.is_placed = 1;
    node.free_slots = maps->free_slots < SLOTS ? maps->free_slots : SLOTS;
}

void programs_move(__u32 target) {
    for (int i = 0; i < SLOTS; i++)
        node.streams[i].target = target;
}

/* The programs' addresses have 32 bits. What lies behind the frame's part there is out of bounds. */
static unsigned char *place_low(const unsigned char *frame, __u32 available) {
    static unsigned char *arena;
    void *const low = (void *)0x20000000UL;
    if (arena == NULL)
        arena = mmap(low, LARGEST, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    require(arena != MAP_FAILED && available + 2 <= LARGEST);
    ASAN_UNPOISON_MEMORY_REGION(arena, LARGEST);
    memcpy(arena + 2, frame, available);
    ASAN_POISON_MEMORY_REGION(arena + 2 + available, LARGEST - 2 - available);
    return arena + 2;
}

void programs_run(int leaving, __u32 came_by, unsigned char *frame, __u32 size, __u32 available,
                  struct program_result *result) {
    const unsigned char *head = place_low(frame, available);
    struct __sk_buff skb = {.len = size, .ifindex = 1, .ingress_ifindex = leaving ? came_by : 1};
    skb.data = (__u32)(unsigned long)head;
    skb.data_end = skb.data + available;
    whole_frame = frame;
    redirected = 0;
    result->verdict = leaving ? kolt_egress(&skb) : kolt_ingress(&skb);
    result->priority = skb.priority;
    result->redirected = redirected;
    result->roamed = node.roamed;
    require((result->verdict == REDIRECTED) == (redirected != 0));
}
