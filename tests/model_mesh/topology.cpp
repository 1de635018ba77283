#include "model_mesh/topology.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <json-c/json.h>
#include <memory>

namespace {

constexpr const char *TYPES[] = {"ethernet", "plc", "2.4g", "5g", "5g_2"};

[[noreturn]] void fail(const std::string &what) {
    fprintf(stderr, "%s\n", what.c_str());
    exit(2);
}

uint8_t type_of(const std::string &name) {
    for (uint8_t type = 0; type < 5; type++) {
        if (name == TYPES[type])
            return type;
    }
    fail("no type of links: " + name);
}

int node_of(const topology &made, const std::string &name) {
    for (size_t i = 0; i < made.nodes.size(); i++) {
        if (made.nodes[i].name == name)
            return static_cast<int>(i);
    }
    fail(made.name + ": no such node: " + name);
}

// Whether a root is behind the link, without coming back through `without`.
bool leads_to_root(const topology &made, int from, int without) {
    std::vector<bool> seen(made.nodes.size());
    std::vector<int> todo = {from};
    seen[static_cast<size_t>(from)] = seen[static_cast<size_t>(without)] = true;
    while (!todo.empty()) {
        const int node = todo.back();
        todo.pop_back();
        if (made.nodes[static_cast<size_t>(node)].root)
            return true;
        for (const topology_link &link : made.links) {
            for (int end = 0; end < 2; end++) {
                const int other = link.node[1 - end];
                if (link.node[end] != node || seen[static_cast<size_t>(other)])
                    continue;
                seen[static_cast<size_t>(other)] = true;
                todo.push_back(other);
            }
        }
    }
    return false;
}

void set_groups(topology *made) {
    for (topology_link &link : made->links) {
        for (int end = 0; end < 2; end++) {
            const bool root = made->nodes[static_cast<size_t>(link.node[end])].root;
            link.nonrelay[end] = !root && leads_to_root(*made, link.node[1 - end], link.node[end]);
        }
    }
}

std::string text(json_object *value) {
    const char *string = json_object_get_string(value);
    return string == nullptr ? "" : string;
}

topology_link read_link(const topology &made, json_object *link) {
    json_object *ends = link;
    json_object *type = nullptr;
    json_object *class_ = nullptr;
    if (json_object_is_type(link, json_type_array)) {
        type = json_object_array_get_idx(link, 2);
    } else {
        json_object_object_get_ex(link, "between", &ends);
        json_object_object_get_ex(link, "type", &type);
        json_object_object_get_ex(link, "class", &class_);
    }
    topology_link read;
    for (int end = 0; end < 2; end++)
        read.node[end] = node_of(made, text(json_object_array_get_idx(ends, static_cast<size_t>(end))));
    read.type = type_of(text(type));
    read.class_ = static_cast<uint8_t>(json_object_get_int(class_));
    return read;
}

} // namespace

topology load_topology(const std::string &path) {
    const std::unique_ptr<json_object, int (*)(json_object *)> file(json_object_from_file(path.c_str()),
                                                                    json_object_put);
    json_object *nodes = nullptr;
    json_object *links = nullptr;
    if (!json_object_object_get_ex(file.get(), "nodes", &nodes) ||
        !json_object_object_get_ex(file.get(), "links", &links))
        fail(path + " is no topology");
    const size_t begin = path.rfind('/') + 1;
    topology made{.name = path.substr(begin, path.rfind('.') - begin), .nodes = {}, .links = {}};
    json_object_object_foreach(nodes, name, node) {
        json_object *mode = nullptr;
        json_object_object_get_ex(node, "mode", &mode);
        made.nodes.push_back({.name = name, .root = text(mode) != "RE"});
    }
    for (size_t i = 0; i < json_object_array_length(links); i++)
        made.links.push_back(read_link(made, json_object_array_get_idx(links, i)));
    set_groups(&made);
    return made;
}

topology make_topology(const std::string &name, const std::string &nodes, const std::vector<std::string> &links) {
    topology made{.name = name, .nodes = {}, .links = {}};
    for (const char letter : nodes)
        made.nodes.push_back(
            {.name = std::string(1, static_cast<char>(tolower(letter))), .root = isupper(letter) != 0});
    for (const std::string &link : links) {
        topology_link one;
        one.node[0] = node_of(made, link.substr(0, 1));
        one.node[1] = node_of(made, link.substr(1, 1));
        one.type = type_of(link.substr(3));
        made.links.push_back(one);
    }
    set_groups(&made);
    return made;
}
