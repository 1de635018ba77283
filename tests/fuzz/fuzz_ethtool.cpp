// Any bytes as what an interface's driver and the kernel say of themselves: the kernel's release up to the first 0x1e,
// then the answers to the questions about features, each an errno (one byte, 0 for none) and 16 bits of length before
// it: how many there are, their names, and which are switched on.
#include "kernel/net/ethtool.h"
#include "kernel/net/features.h"
#include "support/input.h"

#include <cerrno>
#include <cstdarg>
#include <linux/sockios.h>
#include <net/if.h>
#include <string>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int __wrap_ioctl(int fd, unsigned long request, ...);
}

namespace {

constexpr size_t MAX_FEATURES = 256; // that are asked for

fuzz_input driver;

// What the kernel may write: it is told how many names and blocks there is room for.
size_t room_of(const uint8_t *question) {
    uint32_t command;
    memcpy(&command, question, sizeof command);
    if (command == ETHTOOL_GSSET_INFO)
        return sizeof(ethtool_sset_info) + sizeof(uint32_t);
    if (command == ETHTOOL_GSTRINGS)
        return sizeof(ethtool_gstrings) + MAX_FEATURES * ETH_GSTRING_LEN;
    require(command == ETHTOOL_GFEATURES);
    uint32_t blocks;
    memcpy(&blocks, question + offsetof(ethtool_gfeatures, size), sizeof blocks);
    require(blocks <= MAX_FEATURES / 32);
    return sizeof(ethtool_gfeatures) + blocks * sizeof(ethtool_get_features_block);
}

// In blocks that end with the names and with the bits.
void ask_for_places(bytes names, bytes bits) {
    const size_t count = names.size() / ETH_GSTRING_LEN;
    const size_t blocks = bits.size() / sizeof(ethtool_get_features_block);
    const auto own_names = copy_of(names.first(count * ETH_GSTRING_LEN));
    const std::unique_ptr<ethtool_get_features_block[]> own_bits(new ethtool_get_features_block[blocks]);
    if (blocks > 0)
        memcpy(own_bits.get(), bits.data(), blocks * sizeof(ethtool_get_features_block));
    const auto *first = reinterpret_cast<const ethtool_name *>(own_names.get());
    const auto *asked = names.empty() ? "" : reinterpret_cast<const char *>(names.data());
    const std::string_view feature(asked, std::min<size_t>(names.size(), ETH_GSTRING_LEN));
    const bool on = is_feature_on(feature, {first, count}, {own_bits.get(), blocks});
    require(!on || (count > 0 && blocks > 0));
}

} // namespace

int __wrap_ioctl(int /*fd*/, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const auto *asked = va_arg(arguments, const ifreq *);
    va_end(arguments);
    require(request == SIOCETHTOOL && memchr(asked->ifr_name, '\0', IFNAMSIZ) != nullptr);
    auto *place = reinterpret_cast<uint8_t *>(asked->ifr_data);
    const uint8_t failure = driver.byte();
    const bytes answer = driver.part();
    memcpy(place, answer.data(), std::min(answer.size(), room_of(place)));
    errno = failure;
    return failure == 0 ? 0 : -1;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    const bytes text = input.text();
    const std::string release(text.begin(), text.end());
    const feature judged = judge_release(release.c_str());
    require(memchr(judged.sentence.data(), '\0', judged.sentence.size()) != nullptr);
    require(judged.answer == FEATURE_UNKNOWN || (release.find('.') != std::string::npos));

    driver = input;
    bool on = false;
    const int result = ethtool_feature("eth0", "hw-tc-offload", &on);
    require(result == 0 || !on);
    const std::string_view said(reinterpret_cast<const char *>(input.left.data()), input.left.size());
    require(!on || said.find("hw-tc-offload") != std::string_view::npos);

    (void)input.byte();
    (void)input.part();
    (void)input.byte();
    const bytes names = input.part();
    (void)input.byte();
    ask_for_places(names, input.part());
    return 0;
}
