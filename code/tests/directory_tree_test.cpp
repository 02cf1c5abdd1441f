// The directory tree: node classes, the breadth-first build with its ring and size limits,
// and the printed text.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>
#include <vector>

#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "cfb_vornak/model/Directory_Link_Chains.h"

namespace vrk {
namespace {

using Dids = std::vector<uint32_t>;

// Entry `did` of a tree case: its type and the links it names (NOSTREAM when not given).
struct Links {
    uint32_t did, child, left, right;
};
constexpr uint32_t kNo = NOSTREAM;

std::vector<Directory_Entry> directory(const std::vector<uint8_t>& types,
                                       const std::vector<Links>& links) {
    std::vector<Directory_Entry> entries(types.size());
    for (std::size_t did = 0; did < types.size(); ++did) {
        entries[did].object_type = types[did];
        entries[did].did = static_cast<uint32_t>(did);
    }
    for (const Links& l : links) {
        entries[l.did].child_id = l.child;
        entries[l.did].left_sibling_id = l.left;
        entries[l.did].right_sibling_id = l.right;
    }
    return entries;
}

std::string printed(const Cfb_Directory_Tree& tree) {
    std::ostringstream out;
    tree.print_cfb_directory_tree(out);
    return out.str();
}

// The print of a built tree: its node lines between the fixed frame.
std::string framed(const std::string& body, int nodes) {
    const std::string rule = "----------------------------------------------------\n";
    return "目录树开始------------------------------------------\n" + body +
           "目录树结束------------------------------------------\n" + rule + "共有节点：[" +
           std::to_string(nodes) + "]个！\n" + rule;
}

Dids children_of(const Cfb_Directory_Tree& tree, uint32_t did) {
    Dids dids;
    const auto* dir = dynamic_cast<const Cfb_Directory_Entry_DirNode*>(tree.nodes.at(did).get());
    if (dir == nullptr) return dids;
    for (const auto* child : dir->children) dids.push_back(child->index);
    return dids;
}

struct Tree_Case {
    const char* name;
    std::vector<uint8_t> types;  // 0 unallocated, 1 storage, 2 stream, 5 root
    std::vector<Links> links;
    uint32_t root;
    std::map<uint32_t, Dids> children;
    int nodes;               // the printed node count
    std::string print = "";  // the node lines of the print; empty: not compared
};

// One case to a line or two, as a table reads best.
// clang-format off
const Tree_Case kTreeCases[] = {
    // Root -> storage 1 whose siblings are streams 2 and 3; storage 1 holds stream 4.
    {"StorageAndStreams", {5, 1, 2, 2, 2}, {{0, 1, kNo, kNo}, {1, 4, 2, 3}}, 0,
     {{0, {1, 2, 3}}, {1, {4}}}, 5},
    // Siblings breadth first in DID order; one id named by both links is added once.
    {"BreadthFirst", {5, 2, 2, 2, 2, 2},
     {{0, 3, kNo, kNo}, {3, kNo, 5, 1}, {1, kNo, kNo, 2}, {5, kNo, 4, 4}}, 0,
     {{0, {3, 1, 5, 2, 4}}}, 6},
    // 1 unallocated, 2 a storage without members, 3 a stream nothing names: orphans.
    {"Orphans", {5, 0, 1, 2}, {{0, 2, kNo, kNo}}, 0, {{0, {2, 1, 3}}}, 4},
    {"IdsPastTheDirectory", {5, 2}, {{0, 1, kNo, kNo}, {1, kNo, 2, 0x7FFFFFFF}}, 0, {{0, {1}}}, 2},
    {"LastRootWins", {5, 2, 5}, {{2, 1, kNo, kNo}}, 2, {{2, {1, 0}}}, 3},
    // Storage 3 reached twice as a sibling lists its member twice.
    {"StorageReachedTwice", {5, 2, 2, 1, 2},
     {{0, 1, kNo, kNo}, {1, kNo, 3, 2}, {2, kNo, 3, kNo}, {3, 4, kNo, kNo}}, 0,
     {{0, {1, 2, 3, 3}}, {3, {4, 4}}}, 9},
    // 1 -> 2 -> 1 by child ids, and 3 names itself.
    {"ChildRing", {5, 1, 1, 1}, {{0, 1, kNo, kNo}, {1, 2, kNo, 3}, {2, 1, kNo, kNo}, {3, 3, kNo, kNo}},
     0, {{0, {1, 3}}, {1, {2}}, {2, {}}, {3, {}}}, 4},
    {"SiblingRing", {5, 2, 2, 2}, {{0, 1, kNo, kNo}, {1, kNo, kNo, 2}, {2, kNo, kNo, 3}, {3, kNo, 1, 3}},
     0, {{0, {1, 2, 3}}}, 4},
    // 2 under 1 names the root; 1's sibling 3 names the root back.
    {"AncestorRing", {5, 1, 1, 2}, {{0, 1, kNo, kNo}, {1, 2, kNo, 3}, {2, 0, 1, kNo}, {3, kNo, 0, kNo}},
     0, {{0, {1, 3}}, {1, {2}}, {2, {}}}, 4},
    // Through 1, 3's link back to 1 is a ring; through 2 it is not. The child lists hold
    // 1 -> 3 -> 1, and the print leaves out a member already on the printed path.
    {"ChildListsFormARing", {5, 1, 1, 1, 2},
     {{0, 4, kNo, kNo}, {4, kNo, 1, 2}, {1, 3, kNo, kNo}, {2, 3, kNo, kNo}, {3, 1, kNo, kNo}}, 0,
     {{1, {3}}, {3, {1}}}, 7,
     "root (did:0)      我的路径是：[]\n   其孩子数目：3\n"
     "   |->file (did:4)   我的路径是：[]\n"
     "   |->dir_node (did:1)         我的路径是：[]\n      其孩子数目：1\n"
     "      |->dir_node (did:3)            我的路径是：[]\n         其孩子数目：1\n"
     "   |->dir_node (did:2)         我的路径是：[]\n      其孩子数目：1\n"
     "      |->dir_node (did:3)            我的路径是：[]\n         其孩子数目：1\n"
     "         |->dir_node (did:1)               我的路径是：[]\n"
     "            其孩子数目：1\n"},
};
// clang-format on

TEST(DirectoryTreeBuild, ChildrenAndPrint) {
    for (const Tree_Case& c : kTreeCases) {
        SCOPED_TRACE(c.name);
        Cfb_Directory_Tree tree;
        ASSERT_EQ(tree.build_cfb_directory_tree(directory(c.types, c.links)), 0);
        EXPECT_EQ(tree.tree_state, Cfb_Directory_Tree::kBuilt);
        EXPECT_EQ(tree.root, tree.nodes[c.root].get());
        for (const auto& [did, dids] : c.children) EXPECT_EQ(children_of(tree, did), dids) << did;
        const std::string text = printed(tree);
        if (c.print.empty()) {
            EXPECT_NE(text.find("共有节点：[" + std::to_string(c.nodes) + "]个！"),
                      std::string::npos);
        } else {
            EXPECT_EQ(text, framed(c.print, c.nodes));
        }
    }
    // No entries, or no root: the tree stays unbuilt and prints nothing.
    Cfb_Directory_Tree empty;
    EXPECT_EQ(empty.build_cfb_directory_tree({}), -1);
    EXPECT_EQ(empty.tree_state, Cfb_Directory_Tree::kNoEntries);
    Cfb_Directory_Tree rootless;
    EXPECT_EQ(rootless.build_cfb_directory_tree(directory({1, 2}, {})), -1);
    EXPECT_EQ(rootless.root, nullptr);
    EXPECT_EQ(printed(empty) + printed(rootless), "");
}

TEST(DirectoryTreeBuild, SharedMembersThatMultiplyAreCut) {
    // Every stream names the next two as siblings: without a limit the walk would list
    // about 10^12 nodes without ever meeting a ring.
    constexpr uint32_t kStreams = 60;
    std::vector<uint8_t> types(kStreams + 1, 2);
    types[0] = 5;
    std::vector<Links> links{{0, 1, kNo, kNo}};
    for (uint32_t did = 1; did <= kStreams; ++did) links.push_back({did, kNo, did + 1, did + 2});
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(directory(types, links)), 0);
    const std::size_t members = children_of(tree, 0).size();
    EXPECT_GT(members, Cfb_Directory_Tree::kMaxWalkedNodes - 1);
    EXPECT_LT(members, Cfb_Directory_Tree::kMaxWalkedNodes - 1 + kStreams);
    EXPECT_NE(printed(tree).find("共有节点：[100000]个！"), std::string::npos);
}

// The persistent chain sets answer exactly what walking a record's parents would answer.
TEST(DirectoryLinkChains, AgreeWithWalkingTheParents) {
    for (const std::size_t node_count : {1u, 2u, 3u, 17u, 64u, 1000u}) {
        std::mt19937 random(static_cast<unsigned>(node_count));
        Directory_Link_Chains chains(node_count, 5000);
        std::vector<uint32_t> parent{UINT32_MAX};
        std::vector<uint32_t> did_of{0};
        chains.start(0);
        std::uniform_int_distribution<uint32_t> any_did(0, static_cast<uint32_t>(node_count - 1));
        for (int step = 0; step < 20000; ++step) {
            const uint32_t from = static_cast<uint32_t>(random() % did_of.size());
            const uint32_t did = any_did(random);
            bool on_chain = false;
            for (uint32_t at = from; at != UINT32_MAX; at = parent[at])
                on_chain |= did_of[at] == did;
            ASSERT_EQ(chains.on_chain(from, did), on_chain);
            uint32_t record = 0;
            using Link = Directory_Link_Chains::Link;
            const Link expected = on_chain                ? Link::ring
                                  : did_of.size() == 5000 ? Link::limit
                                                          : Link::accepted;
            ASSERT_EQ(chains.link(from, did, record), expected);
            if (expected != Link::accepted) continue;
            ASSERT_EQ(record, did_of.size());
            parent.push_back(from);
            did_of.push_back(did);
        }
    }
}

}  // namespace
}  // namespace vrk
