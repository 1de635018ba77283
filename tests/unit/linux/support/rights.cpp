// Changing the capabilities of the process.
#include "linux/support/rights.h"

#include <linux/capability.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::array<__user_cap_data_struct, 2> capabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> sets{};
    syscall(SYS_capget, &header, sets.data());
    return sets;
}

void set_capabilities(std::array<__user_cap_data_struct, 2> sets) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    if (syscall(SYS_capset, &header, sets.data()) != 0)
        throw std::runtime_error("cannot change the capabilities");
}

} // namespace

without_capability::without_capability(unsigned capability) {
    auto sets = capabilities();
    effective_ = {sets[0].effective, sets[1].effective};
    sets[capability / 32].effective &= ~(1U << capability % 32);
    set_capabilities(sets);
}

without_capability::~without_capability() {
    auto sets = capabilities();
    sets[0].effective = effective_[0];
    sets[1].effective = effective_[1];
    set_capabilities(sets);
}
