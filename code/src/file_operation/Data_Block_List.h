// The recency list of the block cache: a doubly linked list between two sentinels, most
// recently used block first. The list owns its nodes and their bytes.
#pragma once

#include <cstdint>
#include <memory>

namespace vrk {

// One cached block of a file.
struct Data_Block_Node {
    static constexpr uint64_t kSentinelOffset = ~uint64_t{0};

    // Only a sentinel (offset kSentinelOffset) may be built without data; any other node
    // without data is a failure. `length` is the number of bytes of the file the block holds;
    // the rest of the block reads as 0.
    Data_Block_Node(uint64_t block_offset, std::unique_ptr<uint8_t[]> block_data,
                    uint64_t block_length);
    Data_Block_Node(const Data_Block_Node&) = delete;
    Data_Block_Node& operator=(const Data_Block_Node&) = delete;

    // The byte at `index` inside the block: 0 past the bytes the file supplied.
    uint8_t byte_at(uint64_t index) const { return index < length ? data[index] : 0; }

    uint64_t offset;  // file offset of the block's first byte; kSentinelOffset for a sentinel
    std::unique_ptr<uint8_t[]> data;
    uint64_t length;
    Data_Block_Node* prev = nullptr;
    Data_Block_Node* next = nullptr;
};

class Data_Block_List {
  public:
    Data_Block_List();
    ~Data_Block_List();
    Data_Block_List(const Data_Block_List&) = delete;
    Data_Block_List& operator=(const Data_Block_List&) = delete;

    // Links a node, which the list then owns, as the most recently used one.
    void push_front(Data_Block_Node* node);
    // Makes a linked node the most recently used one.
    void move_to_front(Data_Block_Node* node);
    // Unlinks and frees a real node, then nulls the caller's pointer. A sentinel (or null) is
    // refused with a failure.
    void remove(Data_Block_Node*& node);

    // The least recently used node: the tail sentinel's prev (the head sentinel when empty).
    Data_Block_Node* least_recent() const { return m_tail->prev; }
    Data_Block_Node* head() const { return m_head.get(); }
    Data_Block_Node* tail() const { return m_tail.get(); }

    uint64_t size() const { return m_size; }
    uint64_t capacity() const { return m_capacity; }
    void set_capacity(uint64_t capacity) { m_capacity = capacity; }

  private:
    static void unlink(Data_Block_Node* node);
    void link_after_head(Data_Block_Node* node);

    uint64_t m_size = 0;
    uint64_t m_capacity = 1000;
    std::unique_ptr<Data_Block_Node> m_head;
    std::unique_ptr<Data_Block_Node> m_tail;
};

}  // namespace vrk
