// The nodes of the directory tree: one per directory entry. Storages and the root entry are
// DirNodes holding the list of their members; streams and entries of any other type are
// FileNodes. The tree owns every node; a node only refers to its parent and children.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vrk {

class Cfb_Directory_Entry_AbstractNode {
  public:
    Cfb_Directory_Entry_AbstractNode(const Cfb_Directory_Entry_AbstractNode&) = delete;
    Cfb_Directory_Entry_AbstractNode& operator=(const Cfb_Directory_Entry_AbstractNode&) = delete;

    // The operations keep the order of the node interface: is_dir, add_child, remove_child,
    // two reserved operations, then the destructor.
    virtual bool is_dir() const { return false; }
    // Makes `child` a member of this node; returns the new number of members (0 for a node
    // that cannot hold members).
    virtual std::size_t add_child(Cfb_Directory_Entry_AbstractNode* child);
    // Removes every occurrence of `child` from the members.
    virtual void remove_child(Cfb_Directory_Entry_AbstractNode* child);
    virtual void reserved_operation_3() {}
    virtual void reserved_operation_4() {}
    virtual ~Cfb_Directory_Entry_AbstractNode() = default;

    std::string label;  // "root (did:0)", "dir_node (did:3)", "file (did:1)", "unknown_de (did:7)"
    std::wstring path;  // where the node was released; empty after the build
    Cfb_Directory_Entry_AbstractNode* parent = nullptr;
    bool flag = false;
    uint32_t index = 0;  // DID of the entry

  protected:
    Cfb_Directory_Entry_AbstractNode(std::string node_label, uint32_t did)
        : label(std::move(node_label)), index(did) {}
};

class Cfb_Directory_Entry_DirNode : public Cfb_Directory_Entry_AbstractNode {
  public:
    Cfb_Directory_Entry_DirNode(std::string node_label, uint32_t did)
        : Cfb_Directory_Entry_AbstractNode(std::move(node_label), did) {}

    bool is_dir() const override { return true; }
    std::size_t add_child(Cfb_Directory_Entry_AbstractNode* child) override;
    void remove_child(Cfb_Directory_Entry_AbstractNode* child) override;

    // Members in the order the build found them; a member named twice is listed twice.
    std::vector<Cfb_Directory_Entry_AbstractNode*> children;
};

class Cfb_Directory_Entry_FileNode : public Cfb_Directory_Entry_AbstractNode {
  public:
    Cfb_Directory_Entry_FileNode(std::string node_label, uint32_t did)
        : Cfb_Directory_Entry_AbstractNode(std::move(node_label), did) {}
};

}  // namespace vrk
