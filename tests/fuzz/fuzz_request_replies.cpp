// Any bytes as the reply to a request of netlink protocol 52. The first byte is the size of the request's payload.
#include "core/hub/netlink_request.h"
#include "core/log.h"
#include "core_log.h"
#include "support/sockets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr uint16_t NOTIFY = 14;
    fuzz_input input{{data, size}};
    log_level = KOLT_LOG_DUMP;
    const uint8_t payload_size = input.byte();
    sockets_answer_requests(input.left);
    sockets_requests = 0;

    // The request's room is all that the reply may take.
    const size_t room = NLMSG_ALIGN(NLMSG_HDRLEN + size_t{payload_size});
    const std::unique_ptr<uint8_t[]> request(new uint8_t[room]());
    require(kolt_netlink_msg(NOTIFY, request.get(), payload_size, KOLT_NETLINK_REQUEST) ==
            (input.left.empty() ? 0 : 1));
    require(input.left.empty() || memcmp(request.get(), input.left.data(), std::min(room, input.left.size())) == 0);

    require(sockets_requests == 1);
    return 0;
}
