// What the traffic control programs cost a forwarded frame: frames from one wire through a bridge to another, with
// nothing on the ports, with a program that does nothing, and with this project's and a live stream. Between two links
// a frame meets two programs, between a host and a link one. The ways take
// short turns, so that whatever else the machine does meets all of them alike. Prints a JSON list of {"name", "value",
// "unit"}.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include "kernel/programs.h"
#include "kernel/streams.h"
#include "linux/support/frames.h"
#include "linux/support/wires.h"

namespace {

constexpr size_t BATCH = 64;
constexpr size_t BATCHES = 4;  // of one turn: short, so that most are undisturbed
constexpr size_t COUNTING = 3; // ways that count a direction
constexpr size_t FRAME = 2048; // room for one

// All ways send from the same place and receive in the same: what a copy costs depends on where its two ends lie, and
// at 1500 bytes that is more than a program costs.
alignas(4096) std::array<char, FRAME> sent;
alignas(4096) std::array<std::array<char, FRAME>, BATCH> received;

enum way : size_t { PLAIN, EMPTY_CLSACT, EMPTY_TCX, OURS_CLSACT, OURS_TCX, OURS_OUT, OURS_IN, WAYS };
constexpr const char *NAMES[] = {"plain bridge", "clsact, empty program",   "tcx, empty program",     "clsact, ours",
                                 "tcx, ours",    "tcx, ours, host to link", "tcx, ours, link to host"};

constexpr kolt_direction DIRECTIONS[] = {kolt_direction::INGRESS, kolt_direction::EGRESS};

void must(bool done, const char *what, const kolt_reason &why = {}) {
    if (!done)
        throw std::runtime_error(std::string(what) + ": " + why.text);
}

// It has the name of ours, so that the same code puts it on and takes it off.
unique_fd empty_program(kolt_direction direction) {
    const bpf_insn code[] = {{.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = -1},
                             {.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0}};
    return unique_fd(
        bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, kolt_program_name(direction), "none", code, std::size(code), nullptr));
}

// Sends the same frame over and over without a queue, so that a call returns when the frames have gone all the way.
class sender {
public:
    sender(const std::string &name, const std::string &frame) : frame_(frame) {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
        const int on = 1;
        must(bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "bind");
        must(setsockopt(socket_.get(), SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on) == 0, "no queue");
        part_ = {sent.data(), frame_.size()};
        for (mmsghdr &message : messages_) {
            message.msg_hdr.msg_iov = &part_;
            message.msg_hdr.msg_iovlen = 1;
        }
    }

    // Nanoseconds a frame; `after` follows every batch.
    template <typename AFTER> double send(AFTER after) {
        std::copy(frame_.begin(), frame_.end(), sent.begin());
        const auto begin = std::chrono::steady_clock::now();
        for (size_t batch = 0; batch < BATCHES; batch++) {
            must(sendmmsg(socket_.get(), messages_.data(), BATCH, 0) == BATCH, "sendmmsg");
            after();
        }
        const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
        return time.count() / (BATCH * BATCHES);
    }

private:
    unique_fd socket_{socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)};
    std::string frame_;
    iovec part_{};
    std::array<mmsghdr, BATCH> messages_{};
};

// A program of the host at the far end, which gets every frame.
class receiver {
public:
    explicit receiver(const std::string &name) {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
        must(bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "bind");
        must(setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &BUFFER, sizeof BUFFER) == 0, "room");
        for (size_t place = 0; place < BATCH; place++) {
            parts_[place] = {received[place].data(), FRAME};
            messages_[place].msg_hdr.msg_iov = &parts_[place];
            messages_[place].msg_hdr.msg_iovlen = 1;
        }
    }

    void take_batch() {
        for (size_t got = 0; got < BATCH;) {
            const int more = recvmmsg(socket_.get(), messages_.data(), static_cast<unsigned>(BATCH - got), 0, nullptr);
            must(more > 0, "recvmmsg");
            got += static_cast<size_t>(more);
        }
    }

private:
    static constexpr int BUFFER = 1 << 22;

    unique_fd socket_{socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)};
    std::array<iovec, BATCH> parts_{};
    std::array<mmsghdr, BATCH> messages_{};
};

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(part * static_cast<double>(values.size() - 1))];
}

// One bridge with a wire on either side, and programs on the ports that are links.
class lane {
public:
    lane(way which, kolt_programs *programs) : wires_(2, 1600, 2 * which) {
        for (size_t place = 0; place < 2; place++) {
            programs->set_port(wires_.port(place), {.group = static_cast<uint16_t>(2 * which + place + 1),
                                                    .flags = KOLT_PORT_OPEN | KOLT_PORT_FOLLOW | KOLT_PORT_NEED_HA,
                                                    .admits = 1,
                                                    .accepts = 1,
                                                    .class_ = 0});
            if (is_link(which, place))
                guard(which, wires_.port(place), *programs);
        }
        wires_.end(1).send(ethernet_frame(SERVER, CLIENT, 0x9000)); // where the client is
        wires_.close_ends();
    }

    [[nodiscard]] uint32_t leaves_by() const {
        return wires_.port(1);
    }

private:
    static bool is_link(way which, size_t place) {
        if (which == OURS_OUT || which == OURS_IN)
            return place == (which == OURS_OUT ? 1 : 0);
        return which != PLAIN;
    }

    void guard(way which, uint32_t port, const kolt_programs &programs) {
        const bool ours = which >= OURS_CLSACT;
        const bool tcx = which == EMPTY_TCX || which >= OURS_TCX;
        for (const auto direction : DIRECTIONS) {
            kolt_reason why;
            const unique_fd empty = empty_program(direction);
            const int program = ours ? programs.program(direction) : empty.get();
            must(tcx ? tcx_attach(port, direction, program, {}, &why) : clsact_attach(port, direction, program, &why),
                 "attach", why);
        }
    }

    bridged_wires wires_;
};

void print(const std::string &name, double value, const char *unit) {
    static const char *separator = "[";
    printf("%s{\"name\": \"%s\", \"value\": %.4g, \"unit\": \"%s\"}", separator, name.c_str(), value, unit);
    separator = ",\n ";
}

// Whether the streams of the guarded lanes have counted each frame once, in both directions.
void check(kolt_streams *streams, size_t frames) {
    std::array<kolt_stream_record, 64> records;
    streams->end_period();
    const size_t count = std::min(streams->read(records), records.size());
    uint64_t tx = 0;
    uint64_t rx = 0;
    for (size_t place = 0; place < count; place++) {
        tx += records[place].tx_packets;
        rx += records[place].rx_packets;
    }
    if (tx != COUNTING * frames || rx != COUNTING * frames)
        fprintf(stderr, "%zu frames sent on %zu lanes, %llu and %llu counted\n", frames, COUNTING,
                static_cast<unsigned long long>(tx), static_cast<unsigned long long>(rx));
}

// Where the frames end: at the far interface, which nobody listens at, or in a program of the host there.
enum ending { AT_INTERFACE, AT_PROGRAM };

void measure(kolt_streams *streams, size_t size, ending where, size_t turns) {
    std::deque<sender> senders;
    std::deque<receiver> receivers;
    for (size_t which = 0; which < WAYS; which++) {
        senders.emplace_back("e" + std::to_string(2 * which),
                             ip_frame{.src_port = static_cast<uint16_t>(which), .payload = size - 42}.bytes());
        if (where == AT_PROGRAM)
            receivers.emplace_back("e" + std::to_string(2 * which + 1));
    }
    const auto send = [&](size_t which) {
        return senders[which].send([&] {
            if (where == AT_PROGRAM)
                receivers[which].take_batch();
        });
    };
    std::array<std::vector<double>, WAYS> times;
    std::array<std::vector<double>, WAYS> ratios;
    streams->end_period();
    for (size_t turn = 0; turn < turns; turn++) {
        for (size_t step = 0; step < WAYS; step++)
            times[(turn + step) % WAYS].push_back(send((turn + step) % WAYS));
        for (size_t which = 0; which < WAYS; which++)
            ratios[which].push_back(times[PLAIN].back() / times[which].back());
    }
    check(streams, turns * BATCH * BATCHES);
    for (size_t which = 0; which < WAYS; which++) {
        const std::string name = std::to_string(size) + " bytes " +
                                 (where == AT_PROGRAM ? "to a program" : "forwarded") + ", " + NAMES[which];
        print(name, quantile(times[which], 0.5), "ns a frame");
        if (which != PLAIN)
            print(name, quantile(ratios[which], 0.5), "of the plain bridge's rate");
    }
}

void run(size_t turns) {
    kolt_programs programs;
    kolt_streams streams;
    kolt_reason why;
    must(programs.open("/tmp/pins", &why) == kolt_opened::FRESH, "programs", why);
    must(streams.open(programs, 0, &why), "streams", why);
    std::array<std::unique_ptr<lane>, WAYS> lanes;
    for (size_t which = 0; which < WAYS; which++)
        lanes[which] = std::make_unique<lane>(static_cast<way>(which), &programs);
    must(programs.hd_set(CLIENT.data(), lanes[OURS_TCX]->leaves_by()), "hd");
    for (const ending where : {AT_INTERFACE, AT_PROGRAM})
        for (const size_t size : {size_t{64}, size_t{1500}})
            measure(&streams, size, where, turns);
    printf("]\n");
}

} // namespace

int main(int argc, char **argv) {
    const size_t turns = argc > 1 ? strtoul(argv[1], nullptr, 10) : 2000;
    try {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(sched_getcpu(), &one);
        must(sched_setaffinity(0, sizeof one, &one) == 0, "one processor");
        must(unshare(CLONE_NEWNS | CLONE_NEWNET) == 0, "namespaces of its own (needs root)");
        must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
        must(mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) == 0, "an own /tmp");
        run(std::max<size_t>(turns, 1));
    } catch (const std::exception &error) {
        fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}
