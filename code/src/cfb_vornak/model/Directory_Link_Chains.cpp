#include "cfb_vornak/model/Directory_Link_Chains.h"

namespace vrk {

Directory_Link_Chains::Directory_Link_Chains(std::size_t node_count, std::size_t max_records)
    : m_max_records(max_records) {
    while (m_bits < 32 && (uint64_t{1} << m_bits) < node_count) ++m_bits;
    m_trie.push_back({kEmpty, kEmpty});
    m_trie.push_back({kEmpty, kEmpty});
}

uint32_t Directory_Link_Chains::start(uint32_t did) {
    m_records.push_back({did, insert(kEmpty, did)});
    return static_cast<uint32_t>(m_records.size() - 1);
}

Directory_Link_Chains::Link Directory_Link_Chains::link(uint32_t from, uint32_t did,
                                                        uint32_t& record) {
    if (on_chain(from, did)) return Link::ring;
    if (m_records.size() >= m_max_records) return Link::limit;
    m_records.push_back({did, insert(m_records[from].set, did)});
    record = static_cast<uint32_t>(m_records.size() - 1);
    return Link::accepted;
}

bool Directory_Link_Chains::on_chain(uint32_t record, uint32_t did) const {
    uint32_t at = m_records[record].set;
    for (unsigned bit = m_bits; bit-- > 0 && at != kEmpty;) at = m_trie[at][(did >> bit) & 1u];
    return at != kEmpty;
}

uint32_t Directory_Link_Chains::insert(uint32_t set, uint32_t did) {
    // The old path from the top, then new nodes from the bottom up, each a copy of its old
    // counterpart with the one branch replaced.
    std::array<uint32_t, 32> path{};
    uint32_t at = set;
    for (unsigned level = 0; level < m_bits; ++level) {
        path[level] = at;
        at = m_trie[at][(did >> (m_bits - 1 - level)) & 1u];
    }
    uint32_t built = kLeaf;
    for (unsigned level = m_bits; level-- > 0;) {
        std::array<uint32_t, 2> copy = m_trie[path[level]];
        copy[(did >> (m_bits - 1 - level)) & 1u] = built;
        m_trie.push_back(copy);
        built = static_cast<uint32_t>(m_trie.size() - 1);
    }
    return built;
}

}  // namespace vrk
