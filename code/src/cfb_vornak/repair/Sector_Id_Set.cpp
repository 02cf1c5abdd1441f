#include "cfb_vornak/repair/Sector_Id_Set.h"

namespace vrk {

namespace {

unsigned lowest_bit(uint64_t word) {
    unsigned bit = 0;
    while (((word >> bit) & 1u) == 0) ++bit;
    return bit;
}

}  // namespace

void Sector_Id_Set::reset(uint64_t bound) {
    // Sector ids are 32-bit: no id reaches past 2^32 whatever the file size.
    constexpr uint64_t kAllIds = uint64_t{1} << 32;
    m_bound = bound < kAllIds ? bound : kAllIds;
    m_size = 0;
    m_words.assign(static_cast<std::size_t>((m_bound + 63) / 64), 0);
}

bool Sector_Id_Set::insert(sid_t sid) {
    if (sid >= m_bound) return false;
    uint64_t& word = m_words[sid >> 6];
    const uint64_t bit = uint64_t{1} << (sid & 63u);
    if ((word & bit) != 0) return false;
    word |= bit;
    ++m_size;
    return true;
}

bool Sector_Id_Set::erase(sid_t sid) {
    if (!contains(sid)) return false;
    m_words[sid >> 6] &= ~(uint64_t{1} << (sid & 63u));
    --m_size;
    return true;
}

sid_t Sector_Id_Set::first() const {
    for (std::size_t w = 0; w < m_words.size(); ++w) {
        if (m_words[w] != 0) return static_cast<sid_t>(w * 64 + lowest_bit(m_words[w]));
    }
    return ENDOFCHAIN;
}

std::vector<sid_t> Sector_Id_Set::members() const {
    std::vector<sid_t> out;
    out.reserve(m_size);
    for (std::size_t w = 0; w < m_words.size(); ++w) {
        for (uint64_t word = m_words[w]; word != 0; word &= word - 1) {
            out.push_back(static_cast<sid_t>(w * 64 + lowest_bit(word)));
        }
    }
    return out;
}

}  // namespace vrk
