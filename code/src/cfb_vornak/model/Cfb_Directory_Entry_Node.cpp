#include "cfb_vornak/model/Cfb_Directory_Entry_Node.h"

#include <algorithm>

namespace vrk {

std::size_t Cfb_Directory_Entry_AbstractNode::add_child(Cfb_Directory_Entry_AbstractNode*) {
    return 0;
}

void Cfb_Directory_Entry_AbstractNode::remove_child(Cfb_Directory_Entry_AbstractNode*) {}

std::size_t Cfb_Directory_Entry_DirNode::add_child(Cfb_Directory_Entry_AbstractNode* child) {
    child->parent = this;
    children.push_back(child);
    return children.size();
}

void Cfb_Directory_Entry_DirNode::remove_child(Cfb_Directory_Entry_AbstractNode* child) {
    children.erase(std::remove(children.begin(), children.end(), child), children.end());
}

}  // namespace vrk
