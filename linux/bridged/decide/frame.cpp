// Both ways go through one list of the fields, so that they cannot differ.
#include "decide/frame.h"

#include <cstring>

namespace {

constexpr std::array<uint8_t, 6> DESTINATION = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};
constexpr size_t ETHERTYPE_OFFSET = 12;
constexpr size_t LENGTH_OFFSET = 40;

// A place in the bytes that moves on with each field. Whoever makes one has checked that there is room.
class writer {
public:
    explicit writer(std::span<uint8_t> bytes) : bytes_(bytes) {}
    void number(uint64_t value, size_t size) {
        for (size_t i = 0; i < size; i++)
            bytes_[at_ + i] = static_cast<uint8_t>(value >> 8 * (size - 1 - i));
        at_ += size;
    }
    void text(const std::array<uint8_t, 6> &mac) {
        memcpy(&bytes_[at_], mac.data(), mac.size());
        at_ += mac.size();
    }
    template <class Field> void field(const Field &value) {
        number(static_cast<uint64_t>(value), sizeof value);
    }

private:
    std::span<uint8_t> bytes_;
    size_t at_ = 0;
};

class reader {
public:
    explicit reader(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    void text(std::array<uint8_t, 6> &mac) {
        memcpy(mac.data(), &bytes_[at_], mac.size());
        at_ += mac.size();
    }
    template <class Field> void field(Field &value) {
        uint64_t number = 0;
        for (size_t i = 0; i < sizeof value; i++)
            number = number << 8 | bytes_[at_ + i];
        at_ += sizeof value;
        value = static_cast<Field>(number);
    }

private:
    std::span<const uint8_t> bytes_;
    size_t at_ = 0;
};

template <class Bytes, class Frame> void head_fields(Bytes &bytes, Frame &frame) {
    bytes.field(frame.kind);
    bytes.field(frame.node);
    bytes.field(frame.port);
    bytes.field(frame.sequence);
    bytes.field(frame.echoed_by);
}

template <class Bytes, class Frame> void hello_fields(Bytes &bytes, Frame &frame) {
    bytes.field(frame.incarnation);
    bytes.field(frame.version);
    bytes.field(frame.root);
    bytes.field(frame.parent);
    for (auto &port : frame.taking)
        bytes.field(port);
    bytes.field(frame.hops);
    bytes.field(frame.node_flags);
    bytes.field(frame.link_flags);
    bytes.field(frame.join_count);
    bytes.field(frame.stream_count);
}

template <class Bytes, class Frame> void record_fields(Bytes &bytes, Frame &frame) {
    for (size_t i = 0; i < frame.join_count; i++) {
        bytes.field(frame.joins[i].kind);
        bytes.field(frame.joins[i].origin);
        bytes.field(frame.joins[i].token);
    }
    for (size_t i = 0; i < frame.stream_count; i++) {
        auto &stream = frame.streams[i];
        bytes.text(stream.src);
        bytes.text(stream.dst);
        bytes.field(stream.src_port);
        bytes.field(stream.dst_port);
        bytes.field(stream.protocol);
        bytes.field(stream.type);
    }
}

bool counts_fit(const neighbour_frame &frame) {
    return frame.join_count <= FRAME_JOINS && frame.stream_count <= FRAME_STREAMS;
}

size_t size_of(const neighbour_frame &frame) {
    if (frame.kind != FRAME_HELLO)
        return FRAME_MIN_SIZE;
    return FRAME_HELLO_SIZE + frame.join_count * FRAME_JOIN_SIZE + frame.stream_count * FRAME_STREAM_SIZE;
}

bool is_ours(std::span<const uint8_t> bytes) {
    return bytes.size() >= FRAME_MIN_SIZE && memcmp(bytes.data(), DESTINATION.data(), DESTINATION.size()) == 0 &&
           bytes[ETHERTYPE_OFFSET] == FRAME_ETHERTYPE >> 8 && bytes[ETHERTYPE_OFFSET + 1] == (FRAME_ETHERTYPE & 0xff) &&
           bytes[FRAME_VERSION_OFFSET] == FRAME_VERSION && bytes[FRAME_KIND_OFFSET] >= FRAME_HELLO &&
           bytes[FRAME_KIND_OFFSET] <= FRAME_ECHO;
}

bool kinds_are_known(const neighbour_frame &frame) {
    for (size_t i = 0; i < frame.join_count; i++) {
        if (frame.joins[i].kind != JOIN_REQUEST && frame.joins[i].kind != JOIN_GRANT)
            return false;
    }
    return true;
}

} // namespace

size_t frame_encode(const neighbour_frame &frame, const uint8_t *source_mac, std::span<uint8_t> out) {
    if (frame.kind == FRAME_HELLO && !counts_fit(frame))
        return 0;
    const size_t size = size_of(frame);
    if (out.size() < size)
        return 0;
    memcpy(out.data(), DESTINATION.data(), DESTINATION.size());
    memcpy(&out[DESTINATION.size()], source_mac, DESTINATION.size());
    writer head(out.subspan(ETHERTYPE_OFFSET));
    head.field(FRAME_ETHERTYPE);
    head.field(FRAME_VERSION);
    head_fields(head, frame);
    head.number(size - FRAME_MIN_SIZE, 2);
    if (frame.kind == FRAME_HELLO) {
        writer body(out.subspan(FRAME_MIN_SIZE));
        hello_fields(body, frame);
        record_fields(body, frame);
    }
    return size;
}

bool frame_decode(std::span<const uint8_t> bytes, neighbour_frame *frame) {
    *frame = {};
    if (!is_ours(bytes))
        return false;
    reader head(bytes.subspan(FRAME_KIND_OFFSET));
    head_fields(head, *frame);
    const size_t length = static_cast<size_t>(bytes[LENGTH_OFFSET]) << 8 | bytes[LENGTH_OFFSET + 1];
    if (frame->kind != FRAME_HELLO)
        return length == 0;
    if (bytes.size() < FRAME_HELLO_SIZE)
        return false;
    reader body(bytes.subspan(FRAME_MIN_SIZE));
    hello_fields(body, *frame);
    if (!counts_fit(*frame) || length != size_of(*frame) - FRAME_MIN_SIZE || bytes.size() < size_of(*frame))
        return false;
    record_fields(body, *frame);
    return kinds_are_known(*frame);
}
