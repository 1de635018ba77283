/*
 * The programs that stand on a port, outside the kernel: their maps are few and small.
 */
#pragma once

#include <linux/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { PROGRAM_PORTS = 4 }; /* interfaces 1 to 3 */

/* What the maps hold before a frame comes. */
struct program_maps {
    __u32 words[PROGRAM_PORTS];
    __u8 identity[16]; /* of interface 1 */
    __u8 placed[8];    /* a client with an HD entry */
    __u32 placed_at;
    __u32 free_slots; /* for streams */
};

struct program_result {
    int verdict;
    __u32 priority;
    __u32 redirected; /* to this interface; 0: to none */
    __u32 roamed;     /* clients that were told to have left */
};

void programs_start(const struct program_maps *maps);

/* Has all streams leave by another interface from now on. */
void programs_move(__u32 target);

/*
 * Has a frame arrive at interface 1, or leave there when it came by another one. The programs write to `frame`, and see
 * `available` bytes of it at once.
 */
void programs_run(int leaving, __u32 came_by, unsigned char *frame, __u32 size, __u32 available,
                  struct program_result *result);

#ifdef __cplusplus
}
#endif
