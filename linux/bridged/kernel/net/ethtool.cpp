// Asking the driver.
#include "kernel/net/ethtool.h"

#include "core/handle.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/if.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr uint32_t MAX_FEATURES = 256; // the kernels have about 64
constexpr uint32_t BLOCK_SIZE = 32;

// The kernel's records, which end in arrays without a size, with room for what follows their heads.
struct set_info_answer {
    uint32_t cmd;
    uint32_t reserved;
    uint64_t sset_mask;
    uint32_t size;
};
struct names_answer {
    uint32_t cmd;
    uint32_t string_set;
    uint32_t count;
    ethtool_name names[MAX_FEATURES];
};
struct features_answer {
    uint32_t cmd;
    uint32_t count;
    ethtool_get_features_block blocks[MAX_FEATURES / BLOCK_SIZE];
};
static_assert(offsetof(set_info_answer, size) == sizeof(ethtool_sset_info));
static_assert(offsetof(names_answer, names) == sizeof(ethtool_gstrings));
static_assert(offsetof(features_answer, blocks) == sizeof(ethtool_gfeatures));

class driver {
public:
    explicit driver(const char *ifname) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        strncpy(request_.ifr_name, ifname, IFNAMSIZ - 1);
    }
    // 0 or an errno.
    int ask(void *question) {
        request_.ifr_data = static_cast<char *>(question);
        return ioctl(fd_.get(), SIOCETHTOOL, &request_) == 0 ? 0 : errno;
    }

private:
    unique_fd fd_;
    ifreq request_{};
};

int count_features(driver &driver, uint32_t *count) {
    set_info_answer answer{.cmd = ETHTOOL_GSSET_INFO, .reserved = 0, .sset_mask = 1ULL << ETH_SS_FEATURES, .size = 0};
    const int result = driver.ask(&answer);
    *count = answer.sset_mask == 0 ? 0 : std::min(answer.size, MAX_FEATURES);
    return result == 0 && *count == 0 ? EOPNOTSUPP : result;
}

} // namespace

bool is_feature_on(std::string_view feature, std::span<const ethtool_name> names,
                   std::span<const ethtool_get_features_block> blocks) {
    const auto is_named = [&](const ethtool_name &name) {
        return std::string_view(name, strnlen(name, sizeof name)) == feature;
    };
    const auto place = static_cast<size_t>(std::find_if(names.begin(), names.end(), is_named) - names.begin());
    if (place >= names.size() || place / BLOCK_SIZE >= blocks.size())
        return false;
    return (blocks[place / BLOCK_SIZE].active >> place % BLOCK_SIZE & 1) != 0;
}

int ethtool_feature(const char *ifname, std::string_view feature, bool *on) {
    driver asked(ifname);
    uint32_t count = 0;
    if (const int result = count_features(asked, &count); result != 0)
        return result;
    names_answer names{.cmd = ETHTOOL_GSTRINGS, .string_set = ETH_SS_FEATURES, .count = count, .names = {}};
    if (const int result = asked.ask(&names); result != 0)
        return result;
    features_answer features{.cmd = ETHTOOL_GFEATURES, .count = (count + BLOCK_SIZE - 1) / BLOCK_SIZE, .blocks = {}};
    if (const int result = asked.ask(&features); result != 0)
        return result;
    *on = is_feature_on(feature, {names.names, std::min(names.count, MAX_FEATURES)},
                        {features.blocks, std::min(features.count, MAX_FEATURES / BLOCK_SIZE)});
    return 0;
}
