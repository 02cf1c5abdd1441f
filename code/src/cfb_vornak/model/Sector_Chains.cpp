#include "cfb_vornak/model/Sector_Chains.h"

namespace vrk {
void Chain_Marks::fit(std::size_t size) {
    if (size != m_size) {
        m_words.assign((size + 63) / 64, 0);
        m_size = size;
    }
}

std::vector<Chain_Extent> extract_sector_chains(const sids_array& table,
                                                const std::function<void(Chain_Event)>& on_event) {
    std::vector<Chain_Extent> chains;
    const std::size_t size = table.size();
    if (size == 0) {
        return chains;
    }

    // A head is an id that no entry names as its successor; each head gives at most a chain.
    Chain_Marks linked;
    linked.fit(size);
    std::size_t heads = size;
    for (const sid_t value : table) {
        if (value < size && !linked.test(value)) {
            linked.set(value);
            --heads;
        }
    }
    chains.reserve(heads);

    // Each head's walk has its own visited set: one bit per id, set along the walk and cleared
    // again along the same ids (head and its successors) before the next head.
    Chain_Marks visited;
    visited.fit(size);
    for (std::size_t head = 0; head < size; ++head) {
        if (linked.test(head)) {
            continue;
        }
        uint32_t length = 0;  // ids in the chain so far
        sid_t cur = static_cast<sid_t>(head);
        enum class End { open, kept, ring } end = End::open;
        while (end == End::open && length <= kMaxExtractedChainIds) {
            ++length;
            if (is_special(cur) || cur >= size) {
                end = End::kept;
                break;
            }
            visited.set(cur);
            const sid_t next = table[cur];
            if (is_special(next)) {
                ++length;
                end = End::kept;
            } else if (next < size && visited.test(next)) {
                end = End::ring;
            } else {
                cur = next;
            }
        }
        sid_t id = static_cast<sid_t>(head);
        for (uint32_t k = 0; k < length && id < size; ++k) {
            visited.reset(id);
            id = table[id];
        }
        if (end == End::kept) {
            chains.push_back(Chain_Extent{static_cast<sid_t>(head), length});
        } else if (end == End::ring) {
            on_event(Chain_Event::ring);
        }
        if (end == End::open) {
            on_event(Chain_Event::too_long);
            break;
        }
    }
    return chains;
}

sids_list walk_sector_chain(const sids_array& table, sid_t start, uint32_t limit,
                            Chain_Marks& marks) {
    const std::size_t size = table.size();
    marks.fit(size);
    sids_list chain{start};
    // Only ids inside the table can be looked up again, so only they need marking; an id at
    // or past the table ends the walk at the next step.
    if (start < size) {
        marks.set(start);
    }
    sid_t cur = start;
    for (uint32_t steps = 0; steps < limit && cur < size; ++steps) {
        const sid_t next = table[cur];
        if (next == ENDOFCHAIN || (next < size && marks.test(next))) {
            break;
        }
        chain.push_back(next);
        if (next < size) {
            marks.set(next);
        }
        cur = next;
    }
    for (const sid_t id : chain) {
        if (id < size) {
            marks.reset(id);
        }
    }
    chain.push_back(ENDOFCHAIN);
    return chain;
}

sids_list walk_sector_chain(const sids_array& table, sid_t start) {
    Chain_Marks marks;
    return walk_sector_chain(table, start, kMaxChainWalkSteps, marks);
}

}  // namespace vrk
