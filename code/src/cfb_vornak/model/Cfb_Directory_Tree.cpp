#include "cfb_vornak/model/Cfb_Directory_Tree.h"

#include <deque>
#include <string>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/model/Directory_Link_Chains.h"
#include "common/platform.h"

namespace vrk {

namespace {

// `index` is the entry's position, which the directory reader makes equal to its DID; links
// are resolved by position, so no id from the file can index past the node array.
std::unique_ptr<Cfb_Directory_Entry_AbstractNode> make_node(const Directory_Entry& entry,
                                                            uint32_t index) {
    const std::string did = "(did:" + std::to_string(entry.did) + ")";
    switch (entry.object_type) {
        case layout::kTypeStorage:
            return std::make_unique<Cfb_Directory_Entry_DirNode>("dir_node " + did, index);
        case layout::kTypeRootStorage:
            return std::make_unique<Cfb_Directory_Entry_DirNode>("root " + did, index);
        case layout::kTypeStream:
            return std::make_unique<Cfb_Directory_Entry_FileNode>("file " + did, index);
        default:
            return std::make_unique<Cfb_Directory_Entry_FileNode>("unknown_de " + did, index);
    }
}

void log_ring(const char* walk, uint32_t from, uint32_t to) {
    CFB_LOG_ERROR(std::string("directory tree ") + walk + ": DID " + std::to_string(from) +
                  " links to DID " + std::to_string(to) +
                  ", which already leads to it; the link is not followed");
}

void log_limit(const char* walk) {
    CFB_LOG_ERROR(std::string("directory tree ") + walk + ": cut after " +
                  std::to_string(Cfb_Directory_Tree::kMaxWalkedNodes) + " nodes");
}

}  // namespace

int32_t Cfb_Directory_Tree::build_cfb_directory_tree(
    const std::vector<Directory_Entry>& directory_entrys) {
    tree_state = kNotBuilt;
    root = nullptr;
    nodes.clear();
    entries.clear();
    if (directory_entrys.empty()) {
        tree_state = kNoEntries;
        return -1;
    }
    entries = directory_entrys;
    nodes.reserve(entries.size());
    for (const Directory_Entry& entry : entries) {
        nodes.push_back(make_node(entry, static_cast<uint32_t>(nodes.size())));
        if (entry.object_type == layout::kTypeRootStorage) {
            root = static_cast<Cfb_Directory_Entry_DirNode*>(nodes.back().get());
        }
    }
    if (root == nullptr) return -1;
    place_members();
    tree_state = kBuilt;
    return 0;
}

// Breadth first from the root. Each storage taken from the work queue gets the node its
// child_id names, then every node reached from that one through left and right sibling links;
// each of them is queued in turn. Nodes are not marked as visited: a node that two links name
// is added and queued twice. Only a link back onto its own chain (a ring) is refused, and the
// whole walk ends after kMaxWalkedNodes queued nodes. Nodes the walk never took from the queue
// are finally added to the root, in DID order.
void Cfb_Directory_Tree::place_members() {
    const std::size_t count = nodes.size();
    std::vector<uint8_t> placed(count, 0);
    Directory_Link_Chains chains(count, kMaxWalkedNodes);
    std::deque<uint32_t> work{chains.start(root->index)};
    bool cut = false;

    // Follows one link of storage `dir`; false when the walk has to stop.
    const auto follow = [&](Cfb_Directory_Entry_AbstractNode* dir, uint32_t from, uint32_t to,
                            std::deque<uint32_t>* siblings) {
        uint32_t record = 0;
        switch (chains.link(from, to, record)) {
            case Directory_Link_Chains::Link::ring:
                log_ring("build", chains.did_of(from), to);
                return true;
            case Directory_Link_Chains::Link::limit:
                log_limit("build");
                return false;
            case Directory_Link_Chains::Link::accepted:
                break;
        }
        if (siblings != nullptr) siblings->push_back(record);
        dir->add_child(nodes[to].get());
        work.push_back(record);
        return true;
    };

    while (!work.empty() && !cut) {
        const uint32_t record = work.front();
        work.pop_front();
        Cfb_Directory_Entry_AbstractNode* dir = nodes[chains.did_of(record)].get();
        placed[dir->index] = 1;
        if (!dir->is_dir()) continue;
        const uint32_t child = entries[dir->index].child_id;
        if (child >= count) continue;
        std::deque<uint32_t> siblings;
        cut = !follow(dir, record, child, &siblings);
        while (!siblings.empty() && !cut) {
            const uint32_t member = siblings.front();
            siblings.pop_front();
            const Directory_Entry& entry = entries[chains.did_of(member)];
            // Nodes are matched in DID order; one id named by both links matches once.
            uint32_t first = entry.left_sibling_id;
            uint32_t second = entry.right_sibling_id;
            if (second < first) std::swap(first, second);
            if (first < count) cut = !follow(dir, member, first, &siblings);
            if (!cut && second != first && second < count) {
                cut = !follow(dir, member, second, &siblings);
            }
        }
    }
    // Nodes already linked when the walk was cut have their place.
    for (const uint32_t record : work) placed[chains.did_of(record)] = 1;
    for (std::size_t did = 0; did < count; ++did) {
        if (placed[did] == 0) root->add_child(nodes[did].get());
    }
}

namespace {

void write_blanks(std::ostream& out, std::size_t count) {
    static const std::string kBlanks(256, ' ');
    while (count > 0) {
        const std::size_t part = count < kBlanks.size() ? count : kBlanks.size();
        out.write(kBlanks.data(), static_cast<std::streamsize>(part));
        count -= part;
    }
}

void write_node(std::ostream& out, const Cfb_Directory_Entry_AbstractNode& node,
                std::size_t depth) {
    constexpr std::size_t kStep = 3;
    write_blanks(out, depth * kStep);
    if (depth != 0) out << "|->";
    out << node.label;
    const auto* dir = dynamic_cast<const Cfb_Directory_Entry_DirNode*>(&node);
    if (dir == nullptr) {
        out << "   我的路径是：[" << platform::to_utf8(node.path) << "]\n";
        return;
    }
    write_blanks(out, (depth + 2) * kStep);
    out << "我的路径是：[" << platform::to_utf8(node.path) << "]\n";
    write_blanks(out, (depth + 1) * kStep);
    out << "其孩子数目：" << dir->children.size() << '\n';
}

}  // namespace

// Depth first, each node before its members. A member that is already on the path being
// printed closes a ring among the child lists and is left out; the print ends after
// kMaxWalkedNodes nodes.
void Cfb_Directory_Tree::print_cfb_directory_tree(std::ostream& out) const {
    if (root == nullptr) return;
    struct Frame {
        const Cfb_Directory_Entry_AbstractNode* node;
        std::size_t depth;
        std::size_t next_child;
    };
    std::vector<uint8_t> on_path(nodes.size(), 0);
    std::vector<Frame> stack;
    std::size_t printed = 0;
    bool cut = false;

    out << "目录树开始------------------------------------------\n";
    write_node(out, *root, 0);
    ++printed;
    on_path[root->index] = 1;
    stack.push_back({root, 0, 0});
    while (!stack.empty()) {
        Frame& top = stack.back();
        const auto* dir = dynamic_cast<const Cfb_Directory_Entry_DirNode*>(top.node);
        if (cut || dir == nullptr || top.next_child >= dir->children.size()) {
            on_path[top.node->index] = 0;
            stack.pop_back();
            continue;
        }
        const Cfb_Directory_Entry_AbstractNode* child = dir->children[top.next_child++];
        if (on_path[child->index] != 0) {
            log_ring("print", top.node->index, child->index);
            continue;
        }
        if (printed == kMaxWalkedNodes) {
            log_limit("print");
            cut = true;
            continue;
        }
        const std::size_t depth = top.depth + 1;
        write_node(out, *child, depth);
        ++printed;
        on_path[child->index] = 1;
        stack.push_back({child, depth, 0});
    }
    out << "目录树结束------------------------------------------\n";
    out << "----------------------------------------------------\n";
    out << "共有节点：[" << printed << "]个！\n";
    out << "----------------------------------------------------\n";
}

}  // namespace vrk
