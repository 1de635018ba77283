// Any text as what is looked up, as a package's file and as its pending changes; the three are separated by the
// character 0x1e.
#include "uci_internal.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

void require(bool holds) {
    if (!holds)
        abort();
}

using parser = int (*)(uci_package *, uci_text &);

int parse(uci_package *package, const std::string &content, parser run) {
    // A block of its own, so that a byte behind it is out of bounds.
    const std::unique_ptr<char[]> memory(new char[2 * content.size() + 2]);
    memcpy(memory.get(), content.data(), content.size());
    uci_text text = uci_text_of(memory.get(), content.size());
    return run(package, text);
}

std::string next_part(std::string &text) {
    const size_t end = text.find('\x1e');
    const std::string part = text.substr(0, end);
    text = end == std::string::npos ? "" : text.substr(end + 1);
    return part;
}

// Walks all there is; the count must be what the package says.
void check(uci_package *package) {
    int count = 0;
    uci_element *section;
    uci_element *option;
    uci_element *item;
    uci_foreach_element(&package->sections, section) {
        count++;
        require(strlen(uci_to_section(section)->type) > 0 && uci_valid_name(section->name));
        uci_foreach_element(&uci_to_section(section)->options, option) {
            count++;
            require(uci_to_option(option)->section == uci_to_section(section));
            if (uci_to_option(option)->type == UCI_TYPE_STRING) {
                require(strlen(uci_to_option(option)->v.string) > 0);
                continue;
            }
            uci_foreach_element(&uci_to_option(option)->v.values, item) {
                count++;
                require(item->name != nullptr);
            }
        }
    }
    require(count == package->n_elements);
}

void look_up(uci_context *ctx, const std::string &text, bool extended) {
    uci_ptr ptr;
    std::string copy = text.c_str();
    const int error = uci_lookup_ptr(ctx, &ptr, copy.data(), extended);
    if (error != UCI_OK)
        return;
    require(ptr.p && ptr.last);
    require(!(ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) || ptr.last->type == ptr.target);
    require((ptr.last->type == UCI_TYPE_OPTION) == (ptr.o != nullptr));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    const std::string tuple = next_part(text);
    const std::string config = next_part(text);
    uci_context *ctx = uci_alloc_context();
    require(ctx && uci_set_confdir(ctx, "/nonexistent") == UCI_OK);
    uci_package *package = nullptr;
    require(uci_new_package(ctx, "p", &package) == UCI_OK);
    const int error = parse(package, config, uci_parse_config);
    check(package);
    if (error == UCI_OK)
        require(parse(package, text, uci_apply_delta) == UCI_OK || package->n_elements >= UCI_MAX_ELEMENTS);
    check(package);
    look_up(ctx, tuple, true);
    look_up(ctx, tuple, false);
    look_up(ctx, "p." + tuple, true);
    uci_free_context(ctx);
    return 0;
}
