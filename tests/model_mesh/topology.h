// The nodes and links of a modelled mesh, as a file describes them:
//   {"nodes": {"a": {"mode": "FAP"}, "b": {"mode": "RE"}}, "links": [{"between": ["a", "b"], "type": "5g"}]}
// A link may also be ["a", "b", "5g"], and its class may be 1 with "class". A port is a relay port where the node is a
// root, or where the link cannot be a way to one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct topology_node {
    std::string name;
    bool root = false;
};

struct topology_link {
    int node[2] = {};
    bool nonrelay[2] = {};
    uint8_t type = 0;
    uint8_t class_ = 0;
};

struct topology {
    std::string name;
    std::vector<topology_node> nodes;
    std::vector<topology_link> links;
};

// Ends the program, with a sentence, when the file cannot be read or is no topology.
topology load_topology(const std::string &path);

// From one letter a node, capitals for roots, and one word a link: "Ab", {"ab:5g", "ab:ethernet"}.
topology make_topology(const std::string &name, const std::string &nodes, const std::vector<std::string> &links);
