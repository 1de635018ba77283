// Room for one more interface.
#include "kernel/net/link_list.h"

#include <algorithm>
#include <type_traits>

bool link_list::add(const link_info &link) {
    static_assert(std::is_trivially_copyable_v<link_info>);
    constexpr size_t FIRST_ROOM = 32;
    if (count_ == room_) {
        const size_t room = std::max(FIRST_ROOM, 2 * room_);
        void *memory = realloc(links_.get(), room * sizeof(link_info));
        if (memory == nullptr)
            return false;
        (void)links_.release(); // it has moved
        links_.reset(static_cast<link_info *>(memory));
        room_ = room;
    }
    links_.get()[count_++] = link;
    return true;
}
