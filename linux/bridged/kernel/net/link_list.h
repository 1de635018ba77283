// Interfaces, as many of them as there are.
#pragma once

#include "core/handle.h"
#include "kernel/net/links.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <span>

class link_list {
public:
    // Takes the interfaces that are `wanted`: all, or none with an errno.
    template <class Wanted> [[nodiscard]] int read(rtnl_socket &rtnl, Wanted wanted);
    [[nodiscard]] std::span<const link_info> all() const {
        return {links_.get(), count_};
    }

private:
    static constexpr int ATTEMPTS = 10; // while they change

    bool add(const link_info &link);

    kolt_handle<link_info, free> links_;
    size_t room_ = 0;
    size_t count_ = 0;
};

template <class Wanted> int link_list::read(rtnl_socket &rtnl, Wanted wanted) {
    int error = EINTR;
    for (int attempt = 0; attempt < ATTEMPTS && error == EINTR; attempt++) {
        bool room = true;
        count_ = 0;
        const auto take = [&](const link_info &link) { room = room && (!wanted(link) || add(link)); };
        error = links_dump(rtnl, take);
        if (error == 0 && !room)
            error = ENOMEM;
    }
    if (error != 0)
        count_ = 0;
    return error;
}
