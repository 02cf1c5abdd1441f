#include "cfb_vornak/probe/Root_Signature_Search.h"

#include <cstring>
#include <vector>

namespace vrk {

namespace {

constexpr std::size_t kNeedle = kRootEntrySignature.size();
// Every occurrence covers 21 consecutive starts of byte pairs, so probing one pair in every
// 20 bytes meets each occurrence at least once.
constexpr std::size_t kStride = kNeedle - 2;
// Large enough to run at memory speed, small enough to stay out of the resident set.
constexpr std::size_t kBlockSize = std::size_t{1} << 20;

// The 15 distinct byte pairs of the signature: a 64-kibit membership map small enough for
// the first-level cache, and for each pair the signature positions where it stands.
class Pair_Table {
  public:
    Pair_Table() {
        for (std::size_t i = 0; i + 1 < kNeedle; ++i) {
            const unsigned pair = pair_at(kRootEntrySignature.data() + i);
            m_member[pair >> 3] = static_cast<uint8_t>(m_member[pair >> 3] | (1u << (pair & 7)));
            std::size_t k = 0;
            while (k < m_count && m_pairs[k] != pair) ++k;
            if (k == m_count) m_pairs[m_count++] = pair;
            m_positions[k] |= uint32_t{1} << i;
        }
    }
    static unsigned pair_at(const uint8_t* p) { return p[0] | (unsigned{p[1]} << 8); }
    bool member(unsigned pair) const { return (m_member[pair >> 3] >> (pair & 7)) & 1u; }
    // Bit i set: the pair stands at signature position i.
    uint32_t positions(unsigned pair) const {
        for (std::size_t k = 0; k < m_count; ++k) {
            if (m_pairs[k] == pair) return m_positions[k];
        }
        return 0;
    }

  private:
    uint8_t m_member[8192] = {};
    unsigned m_pairs[kNeedle] = {};
    uint32_t m_positions[kNeedle] = {};
    std::size_t m_count = 0;
};

}  // namespace

bool contains_root_entry_signature(const uint8_t* data, std::size_t size) {
    if (data == nullptr || size < kNeedle) return false;
    static const Pair_Table table;
    // q + 1 < size keeps the probed pair inside; an occurrence ending at the last byte is
    // still met, at a q no later than size - 2.
    for (std::size_t q = 0; q + 1 < size; q += kStride) {
        const unsigned pair = Pair_Table::pair_at(data + q);
        if (!table.member(pair)) continue;
        const uint32_t positions = table.positions(pair);
        for (std::size_t i = 0; i + 1 < kNeedle; ++i) {
            if (((positions >> i) & 1u) == 0 || i > q) continue;
            const std::size_t start = q - i;
            if (start + kNeedle <= size && data[start] == kRootEntrySignature[0] &&
                std::memcmp(data + start, kRootEntrySignature.data(), kNeedle) == 0) {
                return true;
            }
        }
    }
    return false;
}

bool stream_holds_root_entry_signature(std::istream& in) {
    constexpr std::size_t overlap = kNeedle - 1;
    std::vector<uint8_t> block(kBlockSize + overlap);
    std::size_t carried = 0;
    // Every round reads at least one byte or ends, so the loop ends at the end of the stream.
    while (in) {
        in.read(reinterpret_cast<char*>(block.data() + carried),
                static_cast<std::streamsize>(kBlockSize));
        const auto got = static_cast<std::size_t>(in.gcount());
        if (got == 0) break;
        const std::size_t filled = carried + got;
        if (contains_root_entry_signature(block.data(), filled)) return true;
        carried = filled < overlap ? filled : overlap;
        std::memmove(block.data(), block.data() + filled - carried, carried);
    }
    return false;
}

}  // namespace vrk
