// The number of mesh devices.
#include "probe_test.h"

#include "probes/node_state.h"

namespace {

using testing::IsEmpty;

constexpr char MESH_FILE[] = "/tmp/sync-server/mesh_dev_list";

// A mesh list of so many devices.
std::string mesh_list(int members) {
    std::string text = "{";
    for (int i = 0; i < members; i++)
        text += (i != 0 ? ", \"dev" : "\"dev") + std::to_string(i) + R"(": {"mac": "00:11:22:33:44:55", "name": "n"})";
    return text + "}";
}

struct mesh_row {
    const char *name;
    std::string text;
    uint8_t expected;
};

class MeshDevices : public probe_rows<mesh_row> {};

TEST_P(MeshDevices, MeshDevicesAreTheMembersWithAMac) {
    const at_log_level dump(3);
    write_file(MESH_FILE, GetParam().text);
    uint8_t count = 99;
    EXPECT_EQ(kolt_get_mesh_dev_num(&count), 1);
    EXPECT_EQ(count, GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    NodeState, MeshDevices,
    testing::Values(
        mesh_row{"None", "{}", 0}, mesh_row{"One", mesh_list(1), 1}, mesh_row{"Two", mesh_list(2), 2},
        mesh_row{"EightBitsFull", mesh_list(255), 255}, mesh_row{"WrapAt256", mesh_list(256), 0},
        mesh_row{"ThreeHundredGive44", mesh_list(300), 44}, mesh_row{"LongerThan32KiB", mesh_list(1000), 232},
        mesh_row{"MembersWithoutMac", R"({"a": {"name": "x"}, "b": {"mac": "m"}, "c": {}})", 1},
        mesh_row{"MembersThatAreNoObjects", R"({"a": 1, "b": "mac", "c": ["mac"], "d": null, "e": true})", 0},
        mesh_row{"NullMac", R"({"a": {"mac": null}, "b": {"mac": "m"}})", 1},
        mesh_row{"EmptyMac", R"({"a": {"mac": ""}})", 1},
        mesh_row{"OtherTypesReadAsText",
                 R"({"a": {"mac": 5}, "b": {"mac": true}, "c": {"mac": [1]}, "d": {"mac": {}}})", 4},
        mesh_row{"MacOfTheTopLevelDoesNotCount", R"({"mac": "00:11:22:33:44:55"})", 0},
        mesh_row{"DeeperMacsDoNotCount", R"({"a": {"b": {"mac": "m"}}})", 0},
        mesh_row{"AnArrayIsAnEmptyObject", R"([{"mac": "m"}])", 0}, mesh_row{"ATextIsAnEmptyObject", R"("mac")", 0}),
    row_name<mesh_row>);

class MeshFile : public probe {};

TEST_F(MeshFile, MeshFileThatIsAbsentOrBrokenLeavesTheCountUntouched) {
    const at_log_level dump(3);
    uint8_t count = 99;
    remove_file(MESH_FILE);
    EXPECT_EQ(kolt_get_mesh_dev_num(&count), 0);
    for (const char *text : {"", "{", R"({"a": {"mac": "m"}, )"}) {
        write_file(MESH_FILE, text);
        EXPECT_EQ(kolt_get_mesh_dev_num(&count), 0) << text;
    }
    EXPECT_EQ(count, 99);
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
