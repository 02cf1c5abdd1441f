// The directory tree: node classes, the breadth-first build with its ring and size limits,
// and the printed text.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <vector>

#include "cfb_vornak/Cfb_Directory_Tree.h"
#include "cfb_vornak/Directory_Link_Chains.h"

namespace vrk {
namespace {

constexpr uint8_t kUnallocated = 0;
constexpr uint8_t kStorage = 1;
constexpr uint8_t kStream = 2;
constexpr uint8_t kRoot = 5;

// A directory whose entries all start unlinked; tests set the links they need.
std::vector<Directory_Entry> directory(const std::vector<uint8_t>& types) {
    std::vector<Directory_Entry> entries(types.size());
    for (std::size_t did = 0; did < types.size(); ++did) {
        entries[did].object_type = types[did];
        entries[did].did = static_cast<uint32_t>(did);
    }
    return entries;
}

std::string printed(const Cfb_Directory_Tree& tree) {
    std::ostringstream out;
    tree.print_cfb_directory_tree(out);
    return out.str();
}

std::vector<uint32_t> children_of(const Cfb_Directory_Tree& tree, uint32_t did) {
    std::vector<uint32_t> dids;
    const auto* dir = dynamic_cast<const Cfb_Directory_Entry_DirNode*>(tree.nodes.at(did).get());
    if (dir == nullptr) return dids;
    for (const auto* child : dir->children) dids.push_back(child->index);
    return dids;
}

using Dids = std::vector<uint32_t>;

TEST(DirectoryTreeNodes, DirNodesHoldMembersAndFileNodesDoNot) {
    Cfb_Directory_Entry_DirNode dir("dir_node (did:1)", 1);
    Cfb_Directory_Entry_FileNode file("file (did:2)", 2);
    Cfb_Directory_Entry_FileNode other("file (did:3)", 3);
    EXPECT_TRUE(dir.is_dir());
    EXPECT_FALSE(file.is_dir());
    EXPECT_EQ(dir.add_child(&file), 1u);
    EXPECT_EQ(dir.add_child(&other), 2u);
    EXPECT_EQ(dir.add_child(&file), 3u);
    EXPECT_EQ(file.parent, &dir);
    dir.remove_child(&file);
    ASSERT_EQ(dir.children.size(), 1u);
    EXPECT_EQ(dir.children[0], &other);

    EXPECT_EQ(file.add_child(&other), 0u);
    EXPECT_EQ(other.parent, &dir);
    EXPECT_FALSE(file.flag);
    EXPECT_TRUE(file.path.empty());
}

TEST(DirectoryTreeBuild, RootWithStreamsAndAStoragePrintsExactText) {
    // Root -> storage 1 whose siblings are streams 2 and 3; storage 1 holds stream 4.
    auto entries = directory({kRoot, kStorage, kStream, kStream, kStream});
    entries[0].child_id = 1;
    entries[1].left_sibling_id = 2;
    entries[1].right_sibling_id = 3;
    entries[1].child_id = 4;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(tree.tree_state, Cfb_Directory_Tree::kBuilt);
    EXPECT_EQ(tree.root, tree.nodes[0].get());
    EXPECT_EQ(children_of(tree, 0), (Dids{1, 2, 3}));
    EXPECT_EQ(children_of(tree, 1), (Dids{4}));
    EXPECT_EQ(tree.nodes[4]->parent, tree.nodes[1].get());
    EXPECT_EQ(tree.entries.size(), 5u);

    EXPECT_EQ(printed(tree),
              "目录树开始------------------------------------------\n"
              "root (did:0)      我的路径是：[]\n"
              "   其孩子数目：3\n"
              "   |->dir_node (did:1)         我的路径是：[]\n"
              "      其孩子数目：1\n"
              "      |->file (did:4)   我的路径是：[]\n"
              "   |->file (did:2)   我的路径是：[]\n"
              "   |->file (did:3)   我的路径是：[]\n"
              "目录树结束------------------------------------------\n"
              "----------------------------------------------------\n"
              "共有节点：[5]个！\n"
              "----------------------------------------------------\n");
}

TEST(DirectoryTreeBuild, SiblingsAreFoundBreadthFirstInDidOrder) {
    // Root's child 3 names 5 (left) and 1 (right); 1 names 2; 5 names 4. One id named by
    // both links of an entry is added once.
    auto entries = directory({kRoot, kStream, kStream, kStream, kStream, kStream});
    entries[0].child_id = 3;
    entries[3].left_sibling_id = 5;
    entries[3].right_sibling_id = 1;
    entries[1].right_sibling_id = 2;
    entries[5].left_sibling_id = 4;
    entries[5].right_sibling_id = 4;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{3, 1, 5, 2, 4}));
}

TEST(DirectoryTreeBuild, UnreachedEntriesHangUnderTheRoot) {
    // 1 is unallocated, 2 a storage without members, 3 a stream nothing names.
    auto entries = directory({kRoot, kUnallocated, kStorage, kStream});
    entries[0].child_id = 2;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{2, 1, 3}));
    EXPECT_EQ(tree.nodes[1]->label, "unknown_de (did:1)");
    EXPECT_FALSE(tree.nodes[1]->is_dir());
    EXPECT_EQ(tree.nodes[1]->parent, tree.root);
    EXPECT_EQ(printed(tree),
              "目录树开始------------------------------------------\n"
              "root (did:0)      我的路径是：[]\n"
              "   其孩子数目：3\n"
              "   |->dir_node (did:2)         我的路径是：[]\n"
              "      其孩子数目：0\n"
              "   |->unknown_de (did:1)   我的路径是：[]\n"
              "   |->file (did:3)   我的路径是：[]\n"
              "目录树结束------------------------------------------\n"
              "----------------------------------------------------\n"
              "共有节点：[4]个！\n"
              "----------------------------------------------------\n");
}

TEST(DirectoryTreeBuild, IdsPastTheDirectoryFindNothing) {
    auto entries = directory({kRoot, kStream});
    entries[0].child_id = 1;
    entries[1].left_sibling_id = 2;
    entries[1].right_sibling_id = 0x7FFFFFFF;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{1}));
}

TEST(DirectoryTreeBuild, NoEntriesOrNoRootLeavesTheTreeUnbuilt) {
    Cfb_Directory_Tree empty;
    EXPECT_EQ(empty.build_cfb_directory_tree({}), -1);
    EXPECT_EQ(empty.tree_state, Cfb_Directory_Tree::kNoEntries);
    EXPECT_EQ(printed(empty), "");

    Cfb_Directory_Tree rootless;
    EXPECT_EQ(rootless.build_cfb_directory_tree(directory({kStorage, kStream})), -1);
    EXPECT_NE(rootless.tree_state, Cfb_Directory_Tree::kBuilt);
    EXPECT_EQ(rootless.root, nullptr);
    EXPECT_EQ(printed(rootless), "");
}

TEST(DirectoryTreeBuild, TheLastRootEntryIsTheRoot) {
    auto entries = directory({kRoot, kStream, kRoot});
    entries[2].child_id = 1;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(tree.root, tree.nodes[2].get());
    EXPECT_EQ(tree.nodes[0]->label, "root (did:0)");
    EXPECT_EQ(children_of(tree, 2), (Dids{1, 0}));
}

TEST(DirectoryTreeBuild, AMemberNamedByTwoStoragesIsListedUnderBoth) {
    // Storages 1 and 2 are root members; both name stream 3.
    auto entries = directory({kRoot, kStorage, kStorage, kStream});
    entries[0].child_id = 1;
    entries[1].right_sibling_id = 2;
    entries[1].child_id = 3;
    entries[2].child_id = 3;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{1, 2}));
    EXPECT_EQ(children_of(tree, 1), (Dids{3}));
    EXPECT_EQ(children_of(tree, 2), (Dids{3}));
    EXPECT_EQ(tree.nodes[3]->parent, tree.nodes[2].get());
    EXPECT_NE(printed(tree).find("共有节点：[5]个！"), std::string::npos);
}

TEST(DirectoryTreeBuild, AStorageReachedTwiceListsItsMembersTwice) {
    // Root members 1 and 2 both name stream 3 as a sibling; storage 3 holds stream 4.
    auto entries = directory({kRoot, kStream, kStream, kStorage, kStream});
    entries[0].child_id = 1;
    entries[1].left_sibling_id = 3;
    entries[1].right_sibling_id = 2;
    entries[2].left_sibling_id = 3;
    entries[3].child_id = 4;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{1, 2, 3, 3}));
    EXPECT_EQ(children_of(tree, 3), (Dids{4, 4}));
    EXPECT_NE(printed(tree).find("共有节点：[9]个！"), std::string::npos);
}

TEST(DirectoryTreeRings, AChildRingEnds) {
    // 1 -> 2 -> 1 by child ids, and 3 names itself.
    auto entries = directory({kRoot, kStorage, kStorage, kStorage});
    entries[0].child_id = 1;
    entries[1].child_id = 2;
    entries[2].child_id = 1;
    entries[1].right_sibling_id = 3;
    entries[3].child_id = 3;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{1, 3}));
    EXPECT_EQ(children_of(tree, 1), (Dids{2}));
    EXPECT_EQ(children_of(tree, 2), (Dids{}));
    EXPECT_EQ(children_of(tree, 3), (Dids{}));
    EXPECT_NE(printed(tree).find("共有节点：[4]个！"), std::string::npos);
}

TEST(DirectoryTreeRings, ASiblingRingEnds) {
    auto entries = directory({kRoot, kStream, kStream, kStream});
    entries[0].child_id = 1;
    entries[1].right_sibling_id = 2;
    entries[2].right_sibling_id = 3;
    entries[3].left_sibling_id = 1;
    entries[3].right_sibling_id = 3;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{1, 2, 3}));
}

TEST(DirectoryTreeRings, AStorageNamingItsAncestorEnds) {
    // 2 under 1 under the root names the root; 1's sibling 3 names 1 back.
    auto entries = directory({kRoot, kStorage, kStorage, kStream});
    entries[0].child_id = 1;
    entries[1].child_id = 2;
    entries[2].child_id = 0;
    entries[2].left_sibling_id = 1;
    entries[1].right_sibling_id = 3;
    entries[3].left_sibling_id = 0;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 0), (Dids{1, 3}));
    EXPECT_EQ(children_of(tree, 1), (Dids{2}));
    EXPECT_EQ(children_of(tree, 2), (Dids{}));
}

TEST(DirectoryTreeRings, ChildListsThatFormARingStillPrint) {
    // Storages 1 and 2 both reach storage 3 along chains that differ: through 1, 3's link
    // back to 1 is a ring; through 2 it is not. The child lists then hold 1 -> 3 -> 1, and
    // the print leaves out a member that is already on the printed path.
    auto entries = directory({kRoot, kStorage, kStorage, kStorage, kStream});
    entries[0].child_id = 4;
    entries[4].left_sibling_id = 1;
    entries[4].right_sibling_id = 2;
    entries[1].child_id = 3;
    entries[2].child_id = 3;
    entries[3].child_id = 1;
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    EXPECT_EQ(children_of(tree, 1), (Dids{3}));
    EXPECT_EQ(children_of(tree, 3), (Dids{1}));
    EXPECT_EQ(printed(tree),
              "目录树开始------------------------------------------\n"
              "root (did:0)      我的路径是：[]\n"
              "   其孩子数目：3\n"
              "   |->file (did:4)   我的路径是：[]\n"
              "   |->dir_node (did:1)         我的路径是：[]\n"
              "      其孩子数目：1\n"
              "      |->dir_node (did:3)            我的路径是：[]\n"
              "         其孩子数目：1\n"
              "   |->dir_node (did:2)         我的路径是：[]\n"
              "      其孩子数目：1\n"
              "      |->dir_node (did:3)            我的路径是：[]\n"
              "         其孩子数目：1\n"
              "         |->dir_node (did:1)               我的路径是：[]\n"
              "            其孩子数目：1\n"
              "目录树结束------------------------------------------\n"
              "----------------------------------------------------\n"
              "共有节点：[7]个！\n"
              "----------------------------------------------------\n");
}

TEST(DirectoryTreeRings, SharedMembersThatMultiplyAreCut) {
    // Every stream names the next two as siblings: without a limit the walk would list
    // about 10^12 nodes without ever meeting a ring. Streams the cut walk never reached are
    // orphans under the root.
    constexpr uint32_t kStreams = 60;
    std::vector<uint8_t> types(kStreams + 1, kStream);
    types[0] = kRoot;
    auto entries = directory(types);
    entries[0].child_id = 1;
    for (uint32_t did = 1; did <= kStreams; ++did) {
        entries[did].left_sibling_id = did + 1;
        entries[did].right_sibling_id = did + 2;
    }
    Cfb_Directory_Tree tree;
    ASSERT_EQ(tree.build_cfb_directory_tree(entries), 0);
    const std::size_t members = children_of(tree, 0).size();
    EXPECT_GT(members, Cfb_Directory_Tree::kMaxWalkedNodes - 1);
    EXPECT_LT(members, Cfb_Directory_Tree::kMaxWalkedNodes - 1 + kStreams);
    const std::string text = printed(tree);
    EXPECT_NE(text.find("共有节点：[100000]个！"), std::string::npos);
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
            std::uniform_int_distribution<uint32_t> any_record(
                0, static_cast<uint32_t>(did_of.size() - 1));
            const uint32_t from = any_record(random);
            const uint32_t did = any_did(random);
            bool on_chain = false;
            for (uint32_t at = from; at != UINT32_MAX; at = parent[at]) {
                on_chain = on_chain || did_of[at] == did;
            }
            ASSERT_EQ(chains.on_chain(from, did), on_chain);
            uint32_t record = 0;
            const auto link = chains.link(from, did, record);
            if (on_chain) {
                ASSERT_EQ(link, Directory_Link_Chains::Link::ring);
            } else if (did_of.size() == 5000) {
                ASSERT_EQ(link, Directory_Link_Chains::Link::limit);
            } else {
                ASSERT_EQ(link, Directory_Link_Chains::Link::accepted);
                ASSERT_EQ(record, did_of.size());
                parent.push_back(from);
                did_of.push_back(did);
            }
        }
    }
}

}  // namespace
}  // namespace vrk
