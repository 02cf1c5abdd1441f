#include "file_operation/Data_Block_List.h"

#include <utility>

#include "file_operation/door_failure.h"

namespace vrk {

Data_Block_Node::Data_Block_Node(uint64_t block_offset, std::unique_ptr<uint8_t[]> block_data,
                                 uint64_t block_length)
    : offset(block_offset), data(std::move(block_data)), length(block_length) {
    if (!data && offset != kSentinelOffset) {
        throw_door_failure("Data_Block_Node construct failed ! pdata is null \n", 43, 44, __func__);
    }
}

Data_Block_List::Data_Block_List()
    : m_head(std::make_unique<Data_Block_Node>(Data_Block_Node::kSentinelOffset, nullptr, 0)),
      m_tail(std::make_unique<Data_Block_Node>(Data_Block_Node::kSentinelOffset, nullptr, 0)) {
    m_head->next = m_tail.get();
    m_tail->prev = m_head.get();
}

Data_Block_List::~Data_Block_List() {
    Data_Block_Node* node = m_head->next;
    for (uint64_t i = 0; i < m_size && node != m_tail.get(); ++i) {
        Data_Block_Node* next = node->next;
        delete node;
        node = next;
    }
}

void Data_Block_List::push_front(Data_Block_Node* node) {
    link_after_head(node);
    ++m_size;
}

void Data_Block_List::move_to_front(Data_Block_Node* node) {
    unlink(node);
    link_after_head(node);
}

void Data_Block_List::remove(Data_Block_Node*& node) {
    if (node == nullptr || node == m_head.get() || node == m_tail.get()) {
        throw_door_failure("Data_Block_List outside can not erase the inner node outside !\n", 172,
                           173, __func__);
    }
    unlink(node);
    delete node;
    --m_size;
    node = nullptr;
}

void Data_Block_List::unlink(Data_Block_Node* node) {
    node->prev->next = node->next;
    node->next->prev = node->prev;
    node->prev = nullptr;
    node->next = nullptr;
}

void Data_Block_List::link_after_head(Data_Block_Node* node) {
    node->prev = m_head.get();
    node->next = m_head->next;
    m_head->next->prev = node;
    m_head->next = node;
}

}  // namespace vrk
