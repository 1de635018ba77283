// Any bytes as a frame that comes through the programs in the kernel. The first two bytes are the size of its segments,
// the third how much of it a driver left where the program can read it.
#include "support/frame_reader.h"
#include "support/input.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t ETHERNET_HEADER = 14;
constexpr size_t LONGEST = 65536 + ETHERNET_HEADER;

// A block in which the IP header stands on a multiple of 4, and which ends with the frame.
struct placed_frame {
    std::unique_ptr<uint8_t[]> memory;
    uint8_t *head;
    explicit placed_frame(bytes frame) : memory(new uint8_t[frame.size() + 2]), head(memory.get() + 2) {
        std::copy(frame.begin(), frame.end(), head);
    }
};

bool same(const read_frame &a, const read_frame &b) {
    return memcmp(a.words, b.words, sizeof a.words) == 0 && a.guess == b.guess;
}

// The same stream's frame in the other direction.
placed_frame answer_to(bytes frame) {
    placed_frame other(frame);
    uint8_t *at = other.head;
    std::swap_ranges(at, at + 6, at + 6);
    const bool ipv4 = at[12] == 8;
    const size_t addresses = ETHERNET_HEADER + (ipv4 ? 12 : 8);
    const size_t length = ipv4 ? 4 : 16;
    std::swap_ranges(at + addresses, at + addresses + length, at + addresses + length);
    uint8_t *ports = at + addresses + 2 * length;
    std::swap_ranges(ports, ports + 2, ports + 2);
    return other;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    const uint16_t segment = input.number<uint16_t>();
    const size_t there = std::max<size_t>(input.byte(), ETHERNET_HEADER);
    const bytes frame = input.left;
    if (frame.size() < ETHERNET_HEADER || frame.size() > LONGEST)
        return 0;
    const placed_frame whole(frame);
    const placed_frame part(frame.first(std::min(there, frame.size())));
    read_frame forward{};
    const auto length = static_cast<uint32_t>(frame.size());
    const int found = frame_read(whole.head, length, whole.head, length, segment, 0, &forward);
    read_frame other{};
    const auto available = static_cast<uint32_t>(std::min(there, frame.size()));
    require(frame_read(part.head, available, whole.head, length, segment, 0, &other) == found);
    if (found == 0)
        return 0;
    require(same(forward, other) && forward.packets >= 1 && forward.bytes >= frame.size());
    const placed_frame answer = answer_to(frame);
    require(frame_read(answer.head, length, answer.head, length, segment, 1, &other) != 0);
    require(same(forward, other));
    return 0;
}
