#include "cfb_vornak/salvage/Salvage_Classifier.h"

#include <algorithm>
#include <memory>

#include "cfb_vornak/salvage/Salvage_Evidence.h"
#include "common/byte_order.h"
#include "common/split_pass.h"
#include "file_operation/Sector_Blocks.h"

namespace vrk::salvage {

Sector_Geometry::Sector_Geometry(uint32_t sector_size_, uint64_t file_size_)
    : sector_size(sector_size_), file_size(file_size_) {
    if (file_size > sector_size) {
        const uint64_t body = file_size - sector_size;
        // Sector ids are 32-bit; a larger file has sectors nobody can name.
        count = static_cast<uint32_t>(
            std::min<uint64_t>((body + sector_size - 1) / sector_size, MAXREGSECT));
        whole_count = static_cast<uint32_t>(std::min<uint64_t>(body / sector_size, MAXREGSECT));
    }
}

uint64_t Sector_Geometry::bytes_in_file(sid_t sid) const {
    const uint64_t start = offset(sid);
    if (start >= file_size) return 0;
    return std::min<uint64_t>(sector_size, file_size - start);
}

bool is_table_like(const uint8_t* sector, uint32_t entries, uint64_t bound, bool allow_twice) {
    uint32_t ids[1024];
    uint32_t n = 0;
    for (uint32_t i = 0; i < entries && i < 1024; ++i) {
        const uint32_t v = read_u32_le(sector + 4 * i);
        if (is_special(v)) continue;
        if (v >= bound) return false;
        ids[n++] = v;
    }
    if (allow_twice) return true;
    std::sort(ids, ids + n);
    return std::adjacent_find(ids, ids + n) == ids + n;
}

namespace {

// The SAT position p that most sequential links (entry i -> p * E + i + 1) agree on, or -1.
int32_t guess_position(const uint8_t* sector, uint32_t entries) {
    int64_t candidate = -1;
    uint32_t agree = 0;
    uint32_t votes = 0;
    for (uint32_t i = 0; i < entries; ++i) {
        const uint32_t v = read_u32_le(sector + 4 * i);
        if (is_special(v) || v <= i) continue;
        const uint32_t d = v - i - 1;
        if (d % entries != 0) continue;
        const int64_t p = d / entries;
        ++votes;
        if (agree == 0) {
            candidate = p;
            agree = 1;
        } else if (p == candidate) {
            ++agree;
        } else {
            --agree;
        }
    }
    if (candidate < 0 || candidate > INT32_MAX) return -1;
    uint32_t support = 0;
    for (uint32_t i = 0; i < entries; ++i) {
        const uint32_t v = read_u32_le(sector + 4 * i);
        if (!is_special(v) && v > i && (v - i - 1) == candidate * entries) ++support;
    }
    return support * 2 > votes ? static_cast<int32_t>(candidate) : -1;
}

// What one whole sector could be: Sector_Flag bits, and the SAT position its links suggest.
struct Sector_Test {
    uint32_t entries;
    uint32_t slots;
    uint64_t bound;

    uint8_t classify(const uint8_t* sector, int32_t& position) const {
        uint8_t f = 0;
        if (is_table_like(sector, entries, bound, true)) f |= kTableRange;
        if ((f & kTableRange) != 0 && is_table_like(sector, entries, bound)) {
            f |= kTableLike;
            position = guess_position(sector, entries);
        }
        uint32_t valid = 0;
        bool ok = true;
        for (uint32_t slot = 0; slot < slots && ok; ++slot) {
            const Record_Kind kind = classify_dir_record(sector + kDirEntrySize * slot);
            if (kind == Record_Kind::invalid) ok = false;
            if (kind == Record_Kind::valid) ++valid;
        }
        if (ok) {
            f |= kDirOk;
            if (valid > 0) f |= kDirLike;
            if (is_root_record(sector)) f |= kRootFirst;
        }
        return f;
    }
};

// A file of this size or more is classified in two halves at once.
constexpr uint64_t kSplitFrom = uint64_t{8} << 20;

}  // namespace

Sector_Classes classify_sectors(const Salvage_Input& input, const Sector_Geometry& geometry) {
    Sector_Classes classes(geometry);
    classes.flags.assign(geometry.count, 0);
    classes.sat_position.assign(geometry.count, -1);
    const uint32_t entries = geometry.entries_per_sector();
    // Ids of a cut file's SAT may reach past its end; a generous bound still rejects text and
    // random data, whose 32-bit values are mostly huge.
    const Sector_Test test{entries, geometry.sector_size / kDirEntrySize,
                           static_cast<uint64_t>(geometry.count) * 2 + entries};
    // The upper half of a large file open as a file is classified beside this thread.
    const bool split = input.file() != nullptr && geometry.file_size >= kSplitFrom;
    const uint32_t half = split ? geometry.whole_count / 2 : geometry.whole_count;
    // The thread reads blocks of its own from the open input, and each sector's flags and
    // position land in their own elements.
    Split_Pass upper(
        half, geometry.whole_count, 1,
        [&classes, &test, file = input.file(), blocks = std::unique_ptr<Sector_Blocks>()](
            uint64_t sid, uint64_t /*end*/) mutable {
            const Sector_Geometry& g = classes.geometry;
            if (!blocks) blocks = std::make_unique<Sector_Blocks>(file, g.file_size);
            const uint8_t* sector = blocks->at(g.offset(static_cast<uint32_t>(sid)), g.sector_size);
            if (sector == nullptr) return false;
            classes.flags[sid] = test.classify(sector, classes.sat_position[sid]);
            return true;
        });
    Sector_Blocks blocks(input.file(), geometry.file_size);
    const auto classify_range = [&](uint32_t from, uint32_t to) {
        for (uint32_t sid = from; sid < to; ++sid) {
            const uint8_t* sector = blocks.at(geometry.offset(sid), geometry.sector_size);
            if (sector == nullptr) sector = input.bytes(geometry.offset(sid), geometry.sector_size);
            if (sector == nullptr) continue;  // whole sectors lie inside the file; never taken
            classes.flags[sid] = test.classify(sector, classes.sat_position[sid]);
        }
    };
    classify_range(0, half);
    classify_range(static_cast<uint32_t>(upper.finish()), geometry.whole_count);
    return classes;
}

}  // namespace vrk::salvage
