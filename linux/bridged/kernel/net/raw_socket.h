// Frames between the two ends of a link, below the bridge that the port may be in.
#pragma once

#include "core/handle.h"

#include <cstddef>
#include <cstdint>
#include <span>

constexpr uint16_t NEIGHBOUR_ETHERTYPE = 0x88B5;
constexpr uint8_t NEIGHBOUR_GROUP[6] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E}; // bridges keep it to the link
constexpr size_t NEIGHBOUR_FRAME_MAX = 1514;                                 // with its Ethernet header

class raw_socket {
public:
    // Opens a socket for the frames to NEIGHBOUR_GROUP on the interface; any earlier one is closed. Returns 0 or an
    // errno: ENODEV when there is no such interface.
    [[nodiscard]] int open(uint32_t ifindex);
    void close();

    // Readable when there are frames, for the event loop; -1 when closed. That the interface went down counts as an
    // error of the descriptor, for which event loops stop watching it.
    [[nodiscard]] int fd() const {
        return fd_.get();
    }

    // Sends a frame that begins with its Ethernet header, without waiting. Returns 0 or an errno: ENETDOWN when the
    // interface is down, ENOBUFS or EAGAIN when its queue is full, ENXIO when the interface is gone.
    [[nodiscard]] int send(std::span<const uint8_t> frame) const;

    // Takes the next frame, Ethernet header included, and stores its size. Frames to other addresses and those longer
    // than the buffer are left out. Returns 0; EAGAIN when there is none; ENETDOWN once when the interface went down,
    // after which the socket goes on when it is up again.
    [[nodiscard]] int receive(std::span<uint8_t> frame, size_t *size) const;

private:
    unique_fd fd_;
};
