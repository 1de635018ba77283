// Any bytes as a frame at a port with the two programs of the kernel: the neighbours' probes, which are answered there,
// and all others. Before the frame stand the words of ports 1 to 3 (32 bits each), the identity of port 1 (16 bytes), a
// placed client (6 bytes) and its port (1 byte), to which streams are moved too, how many streams there is room for,
// the port by which the frame came when it leaves (1 byte), and how much of it a driver left where the program can read
// it.
#include "bpf/records.h"
#include "support/bridge_programs.h"
#include "support/input.h"

#include <linux/pkt_cls.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t ETHERNET_HEADER = 14;
constexpr int REDIRECTED = 7;
constexpr uint32_t OPEN_BIT = uint32_t{KOLT_PORT_OPEN} << KOLT_PORT_FLAGS_SHIFT;

program_maps maps_of(fuzz_input *input) {
    program_maps maps{};
    for (uint32_t port = 1; port < PROGRAM_PORTS; port++)
        maps.words[port] = input->number<uint32_t>();
    const bytes identity = input->take(sizeof maps.identity);
    std::copy(identity.begin(), identity.end(), maps.identity);
    const bytes client = input->take(6);
    std::copy(client.begin(), client.end(), maps.placed);
    maps.placed_at = input->byte();
    maps.free_slots = input->byte();
    return maps;
}

bool is_probe(bytes frame) {
    constexpr uint8_t ADDRESS[] = {0x01, 0x80, 0xc2, 0, 0, KOLT_NEIGHBOUR_ADDRESS_END};
    kolt_neighbour_head head;
    if (frame.size() < sizeof head)
        return false;
    memcpy(&head, frame.data(), sizeof head);
    return memcmp(head.dst, ADDRESS, sizeof ADDRESS) == 0 && (head.ethertype[0] << 8 | head.ethertype[1]) == 0x88b5 &&
           head.version == KOLT_NEIGHBOUR_VERSION && head.kind == KOLT_NEIGHBOUR_PROBE;
}

// An answer is the probe but for who sends it, and leaves where it came.
void check_answer(bytes probe, bytes answer, const program_maps &maps, const program_result &result) {
    kolt_neighbour_head expected;
    memcpy(&expected, probe.data(), sizeof expected);
    const auto *identity = reinterpret_cast<const kolt_port_identity *>(maps.identity);
    memcpy(expected.src, identity->mac, sizeof expected.src);
    memcpy(expected.echoed_by, identity->node, sizeof expected.echoed_by);
    expected.kind = KOLT_NEIGHBOUR_ECHO;
    require(result.redirected == 1 && result.priority == 7);
    require(memcmp(answer.data(), &expected, sizeof expected) == 0);
    require(std::equal(probe.begin() + sizeof expected, probe.end(), answer.begin() + sizeof expected));
}

void arrive(bytes frame, uint32_t there, const program_maps &maps) {
    std::vector<uint8_t> copy(frame.begin(), frame.end());
    program_result result{};
    programs_run(0, 0, copy.data(), static_cast<uint32_t>(copy.size()), there, &result);
    kolt_port_identity identity;
    memcpy(&identity, maps.identity, sizeof identity);
    if (is_probe(frame) && identity.valid != 0)
        return check_answer(frame, copy, maps, result);
    require(std::equal(frame.begin(), frame.end(), copy.begin()));
    require(result.verdict == TC_ACT_UNSPEC || result.verdict == TC_ACT_SHOT);
}

// Nothing but a stream's frame is sent elsewhere, and that to an open port of the same group.
void leave(bytes frame, uint32_t there, uint32_t came_by, const program_maps &maps) {
    std::vector<uint8_t> copy(frame.begin(), frame.end());
    program_result result{};
    programs_run(1, came_by, copy.data(), static_cast<uint32_t>(copy.size()), there, &result);
    require(std::equal(frame.begin(), frame.end(), copy.begin()) && result.roamed <= 1);
    if (result.verdict != REDIRECTED)
        return require(result.verdict == TC_ACT_UNSPEC || result.verdict == TC_ACT_SHOT);
    require((frame[0] & 1) == 0 && result.redirected != 1 && result.redirected < PROGRAM_PORTS);
    const uint32_t word = maps.words[result.redirected];
    require((word & OPEN_BIT) != 0 && ((word ^ maps.words[1]) & KOLT_PORT_GROUP_MASK) == 0);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    const program_maps maps = maps_of(&input);
    const uint32_t came_by = input.byte();
    const uint8_t there = input.byte();
    const bytes frame = input.left;
    if (frame.size() < ETHERNET_HEADER)
        return 0;
    const auto available =
        static_cast<uint32_t>(std::min<size_t>(std::max<size_t>(there, ETHERNET_HEADER), frame.size()));
    programs_start(&maps);
    arrive(frame, available, maps);
    leave(frame, available, came_by, maps);
    programs_move(maps.placed_at);
    leave(frame, available, came_by, maps);
    return 0;
}
