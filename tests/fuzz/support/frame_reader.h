/*
 * What the programs in the kernel make of a frame.
 */
#pragma once

#include <linux/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct read_frame {
    __u32 words[5];
    __u32 guess;
    __u64 packets;
    __u64 bytes;
};

/*
 * Reads a unicast frame of which `available` bytes lie at `head`, which is 2 bytes behind a multiple of 4, and all at
 * `frame`; 0 when it belongs to no stream. With `segment` it stands for several of that size.
 */
int frame_read(const unsigned char *head, __u32 available, const unsigned char *frame, __u32 size, __u32 segment,
               int reversed, struct read_frame *result);

#ifdef __cplusplus
}
#endif
