#include "cfb_vornak/salvage/Salvage_Chain.h"

#include <algorithm>

namespace vrk::salvage {

void Visit_Marks::next_walk() {
    if (++m_epoch == 0) {
        // After 2^32 walks the epochs wrap: old marks would read as this walk's.
        std::fill(m_marks.begin(), m_marks.end(), 0);
        m_epoch = 1;
    }
}

bool Visit_Marks::visit(uint32_t id) {
    if (id >= m_marks.size() || m_marks[id] == m_epoch) return false;
    m_marks[id] = m_epoch;
    return true;
}

namespace {

std::string id_text(const char* unit, sid_t id) {
    return std::string(unit) + " " + std::to_string(id);
}

bool taken(const Walk_Rules& rules, sid_t id) {
    return rules.taken != nullptr && id < rules.taken->size() && (*rules.taken)[id] != 0;
}

// Follows the chain past its needed ids to see how it ends. Slack is no damage; a ring back
// into the chain is.
void walk_tail(const Link_Table& table, Chain_Walk& w, const Walk_Rules& rules,
               Visit_Marks& marks) {
    const sid_t last = w.ids.back();
    if (table.knowledge(last) == kEntryUnknown) {
        w.tail = "the table entry after the size's end is lost";
        return;
    }
    sid_t next = (*table.entries)[last];
    if (next == ENDOFCHAIN) {
        w.ends_on_endofchain = true;
        w.tail = "ends on ENDOFCHAIN";
        return;
    }
    if (is_special(next)) {
        // The table marks the last sector free or as its own: a wrong link led here.
        w.damaged = true;
        w.complete = false;
        w.stop = "the table marks " + id_text(rules.unit, last) + " as no sector of a chain";
        return;
    }
    if (w.inferred()) {
        // A rebuilt run must end where the size does.
        w.complete = false;
        w.stop = "the rebuilt run does not end at " + id_text(rules.unit, last);
        return;
    }
    const std::string units = std::string(rules.unit) + "s";
    // Each step visits a new id or stops, so the tail is bounded by the table.
    for (uint64_t step = 0; step < table.entries->size(); ++step) {
        if (is_special(next) || next >= table.present || table.knowledge(next) != kEntryRead) {
            w.tail = "runs on past the size's end (" + std::to_string(w.slack) + " " + units +
                     " of slack)";
            return;
        }
        if (!marks.visit(next)) {
            w.damaged = true;
            w.complete = false;
            w.stop = "ring: " + id_text(rules.unit, next) + " comes twice";
            return;
        }
        ++w.slack;
        next = (*table.entries)[next];
        if (next == ENDOFCHAIN) {
            w.tail = "runs on past the size's end (" + std::to_string(w.slack) + " " + units +
                     " of slack, then ENDOFCHAIN)";
            return;
        }
    }
}

}  // namespace

Chain_Walk walk_chain(const Link_Table& table, sid_t start, const Walk_Rules& rules,
                      Visit_Marks& marks) {
    Chain_Walk w;
    marks.next_walk();
    if (rules.needed == 0) {
        w.complete = true;
        w.tail = "empty";
        return w;
    }
    sid_t cur = start;
    bool reached_by_inference = false;
    const uint64_t bound = std::min<uint64_t>(rules.needed, table.entries->size() + 1);
    for (uint64_t i = 0; i < bound; ++i) {
        if (is_special(cur) || cur >= table.present) {
            const bool inside_table = !is_special(cur) && cur < table.entries->size();
            w.damaged = !inside_table && !reached_by_inference;
            w.stop = "link to " + id_text(rules.unit, cur) +
                     (inside_table ? " leads past the end of the data"
                                   : " is not a sector of the chain");
            return w;
        }
        if (reached_by_inference && taken(rules, cur)) {
            w.stop = "the rebuilt run meets a verified chain at " + id_text(rules.unit, cur);
            return w;
        }
        if (!marks.visit(cur)) {
            w.damaged = !reached_by_inference;
            w.stop = "ring: " + id_text(rules.unit, cur) + " comes twice";
            return w;
        }
        if (reached_by_inference && w.inferred_from == Chain_Walk::kNotInferred)
            w.inferred_from = w.ids.size();
        w.ids.push_back(cur);
        if (i + 1 == rules.needed) break;
        const uint8_t knowledge = table.knowledge(cur);
        if (knowledge == kEntryRead || (rules.infer && knowledge == kEntryInferred)) {
            reached_by_inference = reached_by_inference || knowledge == kEntryInferred;
            cur = (*table.entries)[cur];
            continue;
        }
        if (!rules.infer) {
            w.unknown_link = true;
            w.stop = "table entry of " + id_text(rules.unit, cur) + " is unknown";
            return w;
        }
        // Writers lay chains out in runs: the lost link most likely led to the next id.
        reached_by_inference = true;
        cur = cur + 1;
    }
    if (w.ids.size() < rules.needed) {
        w.damaged = true;
        w.stop = "size needs more " + std::string(rules.unit) + "s than there are";
        return w;
    }
    w.complete = true;
    walk_tail(table, w, rules, marks);
    return w;
}

void forget_repeated_links(const std::vector<sid_t>& entries, std::vector<uint8_t>& known,
                           uint64_t used) {
    const std::size_t n =
        static_cast<std::size_t>(std::min<uint64_t>(used, std::min(entries.size(), known.size())));
    std::vector<uint8_t> named(n, 0);
    for (std::size_t i = 0; i < n; ++i) {
        const sid_t v = entries[i];
        if (known[i] != kEntryUnknown && v < named.size() && named[v] < 2) ++named[v];
    }
    for (std::size_t i = 0; i < n; ++i) {
        const sid_t v = entries[i];
        if (v < named.size() && named[v] > 1) known[i] = kEntryUnknown;
    }
}

}  // namespace vrk::salvage
