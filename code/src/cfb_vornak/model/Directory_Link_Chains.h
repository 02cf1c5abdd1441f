// The chains of links along which the directory tree build reaches its nodes. Every queued
// node is one link record; the record knows the set of DIDs on the chain from the root to it,
// so that a link back to one of them (a ring) can be refused in O(log n).
//
// The sets are persistent binary tries over the DID bits: a record's set is its parent's set
// plus its own DID, sharing all untouched paths, so a record costs one path of trie nodes
// rather than a copy of its whole chain.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace vrk {

class Directory_Link_Chains {
  public:
    enum class Link { accepted, ring, limit };

    // `node_count`: DIDs run from 0 to node_count - 1. `max_records`: records in all.
    Directory_Link_Chains(std::size_t node_count, std::size_t max_records);

    // The first record: the chain that holds `did` alone.
    uint32_t start(uint32_t did);
    // A link from the node of record `from` to `did`: refused as a ring when `did` is on the
    // chain that led to `from` (the node of `from` included), refused at the record limit,
    // otherwise a new record whose chain is from's chain plus `did`.
    Link link(uint32_t from, uint32_t did, uint32_t& record);

    uint32_t did_of(uint32_t record) const { return m_records[record].did; }
    bool on_chain(uint32_t record, uint32_t did) const;

  private:
    struct Record {
        uint32_t did;
        uint32_t set;  // trie root of the chain's DIDs
    };
    static constexpr uint32_t kEmpty = 0;  // the empty set, and a missing branch
    static constexpr uint32_t kLeaf = 1;   // the end of a present DID's path

    uint32_t insert(uint32_t set, uint32_t did);

    unsigned m_bits = 0;  // bits of the largest DID
    std::size_t m_max_records;
    std::vector<std::array<uint32_t, 2>> m_trie;
    std::vector<Record> m_records;
};

}  // namespace vrk
