// The attributes of a kernel message, by kind, read with their lengths checked.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

// Attributes of the kinds up to `Highest`; those behind it are left out.
template <uint16_t Highest> class attribute_table {
public:
    // Those of a message, behind its fixed head. They end where it says that it ends, be that in the middle of a word.
    attribute_table(const nlmsghdr &message, size_t head_size) {
        const size_t begin = NLMSG_ALIGN(head_size);
        const size_t end = mnl_nlmsg_get_payload_len(&message);
        const auto *payload = static_cast<const std::byte *>(mnl_nlmsg_get_payload(&message));
        if (end > begin)
            (void)mnl_attr_parse_payload(payload + begin, end - begin, take, this);
    }
    // Those inside an attribute; none when it is null.
    explicit attribute_table(const nlattr *nest) {
        if (nest != nullptr)
            (void)mnl_attr_parse_nested(nest, take, this);
    }

    // Null when there is none of that kind.
    const nlattr *operator[](uint16_t kind) const {
        return found_[kind];
    }

private:
    static int take(const nlattr *attribute, void *table) {
        const uint16_t kind = mnl_attr_get_type(attribute);
        if (kind <= Highest)
            static_cast<attribute_table *>(table)->found_[kind] = attribute;
        return MNL_CB_OK;
    }

    std::array<const nlattr *, size_t{Highest} + 1> found_{};
};

inline std::span<const uint8_t> attribute_bytes(const nlattr *attribute) {
    if (attribute == nullptr)
        return {};
    return {static_cast<const uint8_t *>(mnl_attr_get_payload(attribute)), mnl_attr_get_payload_len(attribute)};
}

// The number in an attribute; `missing` when there is none, or one that is shorter.
template <class Number> Number attribute_number(const nlattr *attribute, Number missing = 0) {
    const std::span<const uint8_t> bytes = attribute_bytes(attribute);
    if (bytes.size() < sizeof(Number))
        return missing;
    Number number;
    memcpy(&number, bytes.data(), sizeof number);
    return number;
}

// The text in an attribute, without its terminator; empty when there is none.
inline std::string_view attribute_text(const nlattr *attribute) {
    const std::span<const uint8_t> bytes = attribute_bytes(attribute);
    const auto *text = reinterpret_cast<const char *>(bytes.data());
    return {text, text == nullptr ? 0 : strnlen(text, bytes.size())};
}
