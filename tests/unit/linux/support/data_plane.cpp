// Runs a program on one frame, as the kernel offers it for tests.
#include "linux/support/data_plane.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <bpf/bpf.h>
#include <linux/bpf.h>
#include <net/if.h>

data_plane_test::data_plane_test() {
    make_wire("p0", "e0");
    make_wire("p1", "e1");
    one_ = if_nametoindex("p0");
    two_ = if_nametoindex("p1");
    if (programs_.open(PINS, &why_) != kolt_opened::FRESH || !streams_.open(programs_, 0, &why_))
        throw std::runtime_error(why_.text);
}

outcome data_plane_test::run(kolt_direction direction, const std::string &frame, uint32_t port, uint32_t came_by,
                             segments whole) const {
    char out[16384];
    __sk_buff context{};
    context.ifindex = port;
    context.ingress_ifindex = came_by;
    context.gso_segs = whole.count;
    context.gso_size = whole.size;
    bpf_test_run_opts options{};
    options.sz = sizeof options;
    options.data_in = frame.data();
    options.data_size_in = static_cast<uint32_t>(frame.size());
    options.data_out = out;
    options.data_size_out = sizeof out;
    options.ctx_in = &context;
    options.ctx_size_in = sizeof context;
    if (const int error = bpf_prog_test_run_opts(programs_.program(direction), &options); error != 0)
        throw std::runtime_error(std::string("cannot run the program: ") + strerror(-error));
    return {static_cast<action>(static_cast<int>(options.retval)), std::string(out, options.data_size_out)};
}

void data_plane_test::open_port(uint32_t port, uint8_t more_flags, uint16_t group) {
    const kolt_port word{.group = group,
                         .flags = static_cast<uint8_t>(KOLT_PORT_OPEN | more_flags),
                         .admits = 3,
                         .accepts = 3,
                         .class_ = 0};
    ASSERT_TRUE(programs_.set_port(port, word));
}

kolt_stream_record data_plane_test::only_stream() {
    streams_.end_period();
    kolt_stream_record record;
    EXPECT_EQ(1U, streams_.read({&record, 1}));
    return record;
}
