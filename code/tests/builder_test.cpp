// The compound file builder: every sample shape is read back here by a small reader of its own
// (header, SAT through header and DISAT, MiniSAT, directory tree, stream bytes) and compared
// with what Build_Layout says; natively the files also go through olefile and gsf.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "cfb_vornak/Cfb_Builder.h"
#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Sibling_Tree_Layout.h"
#include "common/byte_order.h"
#include "common/error_codes.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/sample_shapes.h"
#include "support/sha256.h"

namespace vrk {
namespace {

using test::get_u32;
namespace off = test::offsets;

uint64_t ceil_div(uint64_t a, uint64_t b) {
    return (a + b - 1) / b;
}

struct Entry {
    std::u16string name;
    uint16_t name_size = 0;
    uint8_t type = 0;
    uint8_t color = 0;
    uint32_t left = 0, right = 0, child = 0;
    sid_t start = 0;
    uint64_t size = 0;
    const uint8_t* raw = nullptr;
};

class Reader {
  public:
    Reader(const std::vector<uint8_t>& bytes, const Build_Layout& layout)
        : m_bytes(bytes),
          m_layout(layout),
          m_ss(layout.sector_size),
          m_per(layout.sector_size / 4) {}

    uint64_t sector_count() const { return m_bytes.size() / m_ss - 1; }
    const uint8_t* sector(sid_t sid) const {
        const uint64_t at = (uint64_t{sid} + 1) * m_ss;
        if (!range_inside(at, m_ss, m_bytes.size())) {
            throw std::out_of_range("sector " + std::to_string(sid) + " beyond the file");
        }
        return m_bytes.data() + at;
    }
    uint32_t u32(uint64_t offset) const { return get_u32(m_bytes, offset); }

    // The SAT sector ids as the header and the DISAT chain list them, and the SAT itself.
    void read_sat(std::vector<sid_t>& sat_sids, std::vector<sid_t>& disat_sids,
                  std::vector<uint32_t>& sat) const {
        for (uint32_t i = 0; i < 109; ++i) {
            const sid_t sid = u32(test::header_disat_offset(i));
            if (sid != FREESECT) sat_sids.push_back(sid);
        }
        sid_t next = u32(off::kFirstDisatSid);
        const uint32_t count = u32(off::kNumDisatSecs);
        for (uint32_t k = 0; k < count; ++k) {
            ASSERT_LT(next, sector_count());
            disat_sids.push_back(next);
            const uint8_t* p = sector(next);
            for (uint32_t i = 0; i + 1 < m_per; ++i) {
                const sid_t sid = read_u32_le(p + 4 * i);
                if (sid != FREESECT) sat_sids.push_back(sid);
            }
            next = read_u32_le(p + 4 * (m_per - 1));
        }
        EXPECT_EQ(next, count == 0 ? u32(off::kFirstDisatSid) : ENDOFCHAIN);
        for (const sid_t sid : sat_sids) {
            const uint8_t* p = sector(sid);
            for (uint32_t i = 0; i < m_per; ++i) sat.push_back(read_u32_le(p + 4 * i));
        }
    }

    // A chain walked through `table`, bounded by the table's length.
    static std::vector<sid_t> walk(const std::vector<uint32_t>& table, sid_t start) {
        std::vector<sid_t> chain;
        for (sid_t cur = start; cur != ENDOFCHAIN && chain.size() <= table.size();) {
            chain.push_back(cur);
            if (cur >= table.size()) break;
            cur = table[cur];
        }
        return chain;
    }

    Entry entry(const std::vector<sid_t>& dir_chain, uint32_t did) const {
        const uint32_t per = m_ss / 128;
        const uint8_t* p = sector(dir_chain.at(did / per)) + 128 * (did % per);
        Entry e;
        e.raw = p;
        e.name_size = read_u16_le(p + 64);
        for (uint32_t i = 0; i < 32 && read_u16_le(p + 2 * i) != 0; ++i) {
            e.name.push_back(static_cast<char16_t>(read_u16_le(p + 2 * i)));
        }
        e.type = p[66];
        e.color = p[67];
        e.left = read_u32_le(p + 68);
        e.right = read_u32_le(p + 72);
        e.child = read_u32_le(p + 76);
        e.start = read_u32_le(p + 116);
        e.size = read_u64_le(p + 120);
        return e;
    }

    std::vector<uint8_t> stream_bytes(const Build_Layout::Stream_Place& place,
                                      const std::vector<sid_t>& container) const {
        std::vector<uint8_t> out;
        for (const sid_t sid : place.chain) {
            const uint8_t* p = nullptr;
            uint32_t unit = m_ss;
            if (place.in_mini) {
                unit = 64;
                const uint64_t at = uint64_t{sid} * 64;
                p = sector(container.at(at / m_ss)) + at % m_ss;
            } else {
                p = sector(sid);
            }
            const uint64_t n = std::min<uint64_t>(unit, place.size - out.size());
            out.insert(out.end(), p, p + n);
        }
        return out;
    }

  private:
    const std::vector<uint8_t>& m_bytes;
    const Build_Layout& m_layout;
    uint32_t m_ss;
    uint32_t m_per;
};

// Checks one storage's sibling tree below `top`: in-order names strictly ascending, red-black
// rules (or a plain all-black right chain), no entry visited twice. Returns the DIDs in order.
std::vector<uint32_t> check_siblings(const std::vector<Entry>& entries, uint32_t top, bool as_chain,
                                     std::set<uint32_t>& seen) {
    std::vector<uint32_t> order;
    if (as_chain) {
        for (uint32_t did = top; did != NOSTREAM; did = entries.at(did).right) {
            EXPECT_TRUE(seen.insert(did).second) << "entry " << did << " reached twice";
            EXPECT_EQ(entries[did].left, NOSTREAM);
            EXPECT_EQ(entries[did].color, 1);
            order.push_back(did);
            if (order.size() > entries.size()) break;
        }
    } else {
        // Recursive walk returning the black height; -1 marks a broken subtree.
        std::function<int(uint32_t, bool)> walk = [&](uint32_t did, bool parent_red) -> int {
            if (did == NOSTREAM) return 1;
            if (did >= entries.size() || !seen.insert(did).second) return -1;
            const Entry& e = entries[did];
            const bool red = e.color == 0;
            EXPECT_FALSE(red && parent_red) << "red entry " << did << " under a red parent";
            const int left = walk(e.left, red);
            order.push_back(did);
            const int right = walk(e.right, red);
            EXPECT_EQ(left, right) << "black heights differ below entry " << did;
            return left < 0 || right < 0 ? -1 : left + (red ? 0 : 1);
        };
        EXPECT_GT(walk(top, true), 0);
        if (top != NOSTREAM) {
            EXPECT_EQ(entries[top].color, 1);
        }
    }
    for (std::size_t i = 1; i < order.size(); ++i) {
        EXPECT_LT(compare_entry_names(entries[order[i - 1]].name, entries[order[i]].name), 0);
    }
    return order;
}

void check_shape(const test::Sample_Shape& shape) {
    SCOPED_TRACE(shape.name);
    Build_Layout layout;
    const std::vector<uint8_t> bytes = build_compound_file(*shape.root, shape.options, &layout);
    const bool v4 = shape.options.major_version == 4;
    const uint32_t ss = v4 ? 4096 : 512;
    const uint32_t per = ss / 4;
    ASSERT_EQ(layout.sector_size, ss);
    ASSERT_EQ(bytes.size() % ss, 0u);
    Reader reader(bytes, layout);
    const uint64_t sectors = reader.sector_count();

    // Header.
    EXPECT_EQ(read_u64_le(bytes.data()), 0xE11AB1A1E011CFD0ull);
    for (int i = 8; i < 24; ++i) EXPECT_EQ(bytes[i], 0) << "file_id byte " << i;
    EXPECT_EQ(read_u16_le(&bytes[off::kMinorVersion]), shape.options.minor_version);
    EXPECT_EQ(read_u16_le(&bytes[off::kMajorVersion]), shape.options.major_version);
    EXPECT_EQ(read_u16_le(&bytes[off::kByteOrder]), 0xFFFE);
    EXPECT_EQ(read_u16_le(&bytes[off::kSectorShift]), v4 ? 12 : 9);
    EXPECT_EQ(read_u16_le(&bytes[off::kMiniSectorShift]), 6);
    for (int i = 34; i < 40; ++i) EXPECT_EQ(bytes[i], 0) << "reserved byte " << i;
    EXPECT_EQ(reader.u32(off::kNumDirSecs), v4 ? layout.directory_sids.size() : 0u);
    EXPECT_EQ(reader.u32(off::kNumSatSecs), layout.sat_sids.size());
    EXPECT_EQ(reader.u32(off::kFirstDirSid), layout.directory_sids.at(0));
    EXPECT_EQ(reader.u32(52), 0u);
    EXPECT_EQ(reader.u32(off::kMiniStreamCutoff), 4096u);
    EXPECT_EQ(reader.u32(off::kFirstMinisatSid),
              layout.minisat_sids.empty() ? ENDOFCHAIN : layout.minisat_sids[0]);
    EXPECT_EQ(reader.u32(off::kNumMinisatSecs), layout.minisat_sids.size());
    EXPECT_EQ(reader.u32(off::kFirstDisatSid),
              layout.disat_sids.empty() ? ENDOFCHAIN : layout.disat_sids[0]);
    EXPECT_EQ(reader.u32(off::kNumDisatSecs), layout.disat_sids.size());
    if (v4) {
        EXPECT_TRUE(std::all_of(bytes.begin() + 512, bytes.begin() + 4096,
                                [](uint8_t b) { return b == 0; }));
    }

    // SAT: exactly the chains and markers the layout names; every other sector free.
    std::vector<sid_t> sat_sids;
    std::vector<sid_t> disat_sids;
    std::vector<uint32_t> sat;
    reader.read_sat(sat_sids, disat_sids, sat);
    ASSERT_EQ(sat_sids, layout.sat_sids);
    ASSERT_EQ(disat_sids, layout.disat_sids);
    EXPECT_EQ(layout.sat_sids.size() > 109, !layout.disat_sids.empty());
    ASSERT_GE(sat.size(), sectors);
    std::vector<uint32_t> expected(sat.size(), FREESECT);
    auto claim = [&](sid_t sid, uint32_t value) {
        ASSERT_LT(sid, sectors);
        EXPECT_EQ(expected[sid], FREESECT) << "sector " << sid << " used twice";
        expected[sid] = value;
    };
    auto claim_chain = [&](const std::vector<sid_t>& chain) {
        for (std::size_t i = 0; i < chain.size(); ++i) {
            claim(chain[i], i + 1 < chain.size() ? chain[i + 1] : ENDOFCHAIN);
        }
    };
    for (const sid_t sid : layout.sat_sids) claim(sid, FATSECT);
    for (const sid_t sid : layout.disat_sids) claim(sid, DIFSECT);
    claim_chain(layout.minisat_sids);
    claim_chain(layout.directory_sids);
    claim_chain(layout.container_sids);
    for (const auto& place : layout.streams) {
        if (!place.in_mini) claim_chain(place.chain);
    }
    EXPECT_EQ(sat, expected);
    EXPECT_EQ(Reader::walk(sat, reader.u32(off::kFirstDirSid)), layout.directory_sids);

    // MiniSAT: read through its SAT chain.
    std::vector<uint32_t> minisat;
    for (const sid_t sid : Reader::walk(sat, reader.u32(off::kFirstMinisatSid))) {
        for (uint32_t i = 0; i < per; ++i)
            minisat.push_back(read_u32_le(reader.sector(sid) + 4 * i));
    }
    std::vector<uint32_t> expected_mini(minisat.size(), FREESECT);
    uint64_t mini_sectors = 0;
    for (const auto& place : layout.streams) {
        if (!place.in_mini) continue;
        EXPECT_LT(place.size, 4096u);
        EXPECT_EQ(place.chain.size(), ceil_div(place.size, 64));
        for (std::size_t i = 0; i < place.chain.size(); ++i) {
            ASSERT_LT(place.chain[i], expected_mini.size());
            expected_mini[place.chain[i]] =
                i + 1 < place.chain.size() ? place.chain[i + 1] : ENDOFCHAIN;
        }
        mini_sectors += place.chain.size();
    }
    EXPECT_EQ(minisat, expected_mini);
    EXPECT_EQ(layout.minisat_sids.size(), ceil_div(mini_sectors, per));
    EXPECT_EQ(layout.container_sids.size(), ceil_div(mini_sectors * 64, ss));

    // Directory.
    const uint32_t slots = static_cast<uint32_t>(layout.directory_sids.size() * (ss / 128));
    std::vector<Entry> entries;
    for (uint32_t did = 0; did < slots; ++did)
        entries.push_back(reader.entry(layout.directory_sids, did));
    const Entry& root = entries[0];
    EXPECT_EQ(root.name, u"Root Entry");
    EXPECT_EQ(root.name_size, 22);
    EXPECT_EQ(root.type, 5);
    EXPECT_EQ(root.left, NOSTREAM);
    EXPECT_EQ(root.right, NOSTREAM);
    EXPECT_EQ(root.size, mini_sectors * 64);
    EXPECT_EQ(root.start, layout.container_sids.empty() ? ENDOFCHAIN : layout.container_sids[0]);
    EXPECT_TRUE(std::equal(shape.root->clsid.begin(), shape.root->clsid.end(), root.raw + 80));
    EXPECT_TRUE(std::equal(shape.root->modified_time.begin(), shape.root->modified_time.end(),
                           root.raw + 108));

    std::set<uint32_t> seen{0};
    std::vector<std::u16string> found_streams;
    std::vector<std::u16string> found_storages;
    std::function<void(uint32_t, const std::u16string&)> visit = [&](uint32_t storage,
                                                                     const std::u16string& prefix) {
        for (const uint32_t did :
             check_siblings(entries, entries[storage].child, shape.options.sibling_chain, seen)) {
            const Entry& e = entries[did];
            EXPECT_EQ(e.name_size, (e.name.size() + 1) * 2);
            const std::u16string path = prefix + e.name;
            if (e.type == 1) {
                found_storages.push_back(path);
                EXPECT_EQ(e.start, 0u);
                EXPECT_EQ(e.size, 0u);
                visit(did, path + u"/");
            } else {
                ASSERT_EQ(e.type, 2) << "entry " << did;
                EXPECT_EQ(e.child, NOSTREAM);
                found_streams.push_back(path);
                const auto& place = test::stream_place(layout, path);
                EXPECT_EQ(place.did, did);
                EXPECT_EQ(e.size, place.size);
                EXPECT_EQ(e.start, place.chain.empty() ? ENDOFCHAIN : place.chain[0]);
            }
        }
    };
    visit(0, u"");
    EXPECT_EQ(seen.size(), 1 + shape.streams.size() + shape.storages.size());
    for (uint32_t did = static_cast<uint32_t>(seen.size()); did < slots; ++did) {
        for (int i = 0; i < 128; ++i) {
            const uint8_t want = i >= 68 && i < 80 ? 0xFF : 0;
            ASSERT_EQ(entries[did].raw[i], want) << "unused entry " << did << " byte " << i;
        }
    }
    std::vector<std::u16string> want_streams;
    for (const auto& s : shape.streams) want_streams.push_back(s.path);
    std::sort(want_streams.begin(), want_streams.end());
    std::sort(found_streams.begin(), found_streams.end());
    EXPECT_EQ(found_streams, want_streams);
    std::vector<std::u16string> want_storages = shape.storages;
    std::sort(want_storages.begin(), want_storages.end());
    std::sort(found_storages.begin(), found_storages.end());
    EXPECT_EQ(found_storages, want_storages);
    std::vector<std::u16string> layout_storages = layout.storages;
    std::sort(layout_storages.begin(), layout_storages.end());
    EXPECT_EQ(layout_storages, want_storages);

    // Bytes of every stream, through the layout's chains.
    for (const auto& s : shape.streams) {
        const auto& place = test::stream_place(layout, s.path);
        EXPECT_EQ(place.in_mini, s.node->data.size() < 4096);
        EXPECT_EQ(place.chain.size(), ceil_div(place.size, place.in_mini ? 64 : ss));
        EXPECT_TRUE(reader.stream_bytes(place, layout.container_sids) == s.node->data)
            << test::utf16_to_utf8(s.path);
        const Entry& e = entries[place.did];
        EXPECT_TRUE(std::equal(s.node->clsid.begin(), s.node->clsid.end(), e.raw + 80));
        EXPECT_TRUE(std::equal(s.node->state_bits.begin(), s.node->state_bits.end(), e.raw + 96));
        EXPECT_TRUE(
            std::equal(s.node->creation_time.begin(), s.node->creation_time.end(), e.raw + 100));
    }

    // The strict header checks count in 512-byte sectors.
    const uint64_t max_sid = ((bytes.size() - 512) >> 9) - 1;
    const sid_t last = static_cast<sid_t>(sectors - 1);
    EXPECT_LT(reader.u32(off::kNumDirSecs), max_sid);
    EXPECT_LT(reader.u32(off::kNumSatSecs), max_sid);
    EXPECT_LT(reader.u32(off::kFirstDirSid), max_sid);
    EXPECT_LT(reader.u32(off::kNumDisatSecs), max_sid);
    if (!layout.disat_sids.empty()) {
        EXPECT_LT(reader.u32(off::kFirstDisatSid), max_sid);
    }
    for (const auto* run : {&layout.minisat_sids, &layout.directory_sids, &layout.disat_sids}) {
        for (const sid_t sid : *run) EXPECT_NE(sid, last);
    }
    if (shape.options.sat_in_last_sector) {
        EXPECT_EQ(layout.sat_sids.back(), last);
    } else {
        for (uint32_t i = 0; i < 109; ++i) {
            const sid_t sid = reader.u32(test::header_disat_offset(i));
            if (sid != FREESECT) {
                EXPECT_LT(sid, max_sid);
            }
        }
        for (const sid_t sid : layout.sat_sids) EXPECT_NE(sid, last);
    }
}

class Builder_Shape : public ::testing::TestWithParam<std::string> {};

TEST_P(Builder_Shape, ReadsBackAsTheLayoutSays) {
    check_shape(test::make_sample_shape(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(All, Builder_Shape, ::testing::ValuesIn(test::sample_shape_names()),
                         [](const auto& info) { return info.param; });

TEST(Builder, EmptyRootMakesThreeSectors) {
    Cfb_Fs_Item_DirNode root;
    Build_Layout layout;
    const auto bytes = build_compound_file(root, {}, &layout);
    // Header, SAT, directory, a free sector: the smallest file whose SAT count (1) is below
    // max_sid and whose directory is not the last sector.
    EXPECT_EQ(bytes.size(), 2048u);
    EXPECT_EQ(layout.sat_sids, std::vector<sid_t>{0});
    EXPECT_EQ(layout.directory_sids, std::vector<sid_t>{1});
    EXPECT_EQ(get_u32(bytes, test::sat_entry_offset(layout, 2)), FREESECT);
    EXPECT_EQ(get_u32(bytes, off::kFirstMinisatSid), ENDOFCHAIN);
    EXPECT_EQ(get_u32(bytes, off::kFirstDisatSid), ENDOFCHAIN);
    EXPECT_EQ(get_u32(bytes, test::header_disat_offset(1)), FREESECT);
}

TEST(Builder, LayoutOrdersFollowTheOptions) {
    auto shape = test::make_sample_shape("stream_sizes");
    Build_Layout plain;
    build_compound_file(*shape.root, {}, &plain);
    EXPECT_LT(plain.sat_sids.back(), plain.minisat_sids.front());
    EXPECT_LT(plain.minisat_sids.back(), plain.directory_sids.front());
    EXPECT_LT(plain.directory_sids.back(), plain.container_sids.front());
    EXPECT_LT(plain.container_sids.back(), test::stream_place(plain, u"ThreeMiB").chain.front());

    Builder_Options at_end;
    at_end.tables_at_end = true;
    Build_Layout tail;
    const auto bytes = build_compound_file(*shape.root, at_end, &tail);
    EXPECT_EQ(tail.container_sids.front(), 0u);
    EXPECT_LT(test::stream_place(tail, u"ThreeMiB").chain.back(), tail.directory_sids.front());
    EXPECT_LT(tail.directory_sids.back(), tail.minisat_sids.front());
    EXPECT_LT(tail.minisat_sids.back(), tail.sat_sids.front());

    at_end.sat_in_last_sector = true;
    Build_Layout last;
    const auto last_bytes = build_compound_file(*shape.root, at_end, &last);
    EXPECT_EQ(last.sat_sids.back(), last_bytes.size() / 512 - 2);
}

TEST(Builder, EmptyAndCutoffStreams) {
    auto shape = test::make_sample_shape("stream_sizes");
    Build_Layout layout;
    build_compound_file(*shape.root, {}, &layout);
    const auto& empty = test::stream_place(layout, u"Size0");
    EXPECT_TRUE(empty.chain.empty());
    EXPECT_TRUE(test::stream_place(layout, u"Size4095").in_mini);
    EXPECT_EQ(test::stream_place(layout, u"Size4095").chain.size(), 64u);
    EXPECT_FALSE(test::stream_place(layout, u"Size4096").in_mini);
    EXPECT_EQ(test::stream_place(layout, u"Size4096").chain.size(), 8u);
    EXPECT_EQ(test::stream_place(layout, u"Size4097").chain.size(), 9u);
    EXPECT_EQ(test::stream_place(layout, u"Box/Inner4097").chain.size(), 9u);
}

TEST(Builder, DisatAppearsBeyond109SatSectors) {
    auto shape = test::make_sample_shape("disat");
    Build_Layout layout;
    const auto bytes = build_compound_file(*shape.root, {}, &layout);
    ASSERT_GT(layout.sat_sids.size(), 109u);
    ASSERT_EQ(layout.disat_sids.size(), 1u);
    const uint64_t disat = layout.file_offset_of(layout.disat_sids[0]);
    EXPECT_EQ(get_u32(bytes, disat), layout.sat_sids[109]);
    EXPECT_EQ(get_u32(bytes, disat + 508), ENDOFCHAIN);
    EXPECT_EQ(get_u32(bytes, disat + 4 * (layout.sat_sids.size() - 109)), FREESECT);
    EXPECT_EQ(get_u32(bytes, test::sat_entry_offset(layout, layout.disat_sids[0])), DIFSECT);
}

TEST(Builder, RefusesTreesItCannotWrite) {
    Cfb_Fs_Item_DirNode long_name;
    long_name.add_stream(std::u16string(32, u'x'), {});
    EXPECT_THROW(build_compound_file(long_name), std::invalid_argument);

    Cfb_Fs_Item_DirNode longest;
    longest.add_stream(std::u16string(31, u'x'), {});
    EXPECT_NO_THROW(build_compound_file(longest));

    // Names that differ only in case collide under the format's ordering.
    Cfb_Fs_Item_DirNode twins;
    twins.add_storage(u"Data");
    twins.add_stream(u"dATA", {1});
    EXPECT_THROW(build_compound_file(twins), std::invalid_argument);

    Builder_Options v5;
    v5.major_version = 5;
    EXPECT_THROW(build_compound_file(longest, v5), std::invalid_argument);
}

TEST(Builder, NameOrderIsLengthThenUpperCase) {
    EXPECT_LT(compare_entry_names(u"z", u"aa"), 0);
    EXPECT_EQ(compare_entry_names(u"abc", u"ABC"), 0);
    EXPECT_LT(compare_entry_names(u"abc", u"ABD"), 0);
    EXPECT_GT(compare_entry_names(u"b", u"A"), 0);
    EXPECT_EQ(compare_entry_names(u"é", u"É"), 0);
    // Units are upper-cased before comparing: '_' (0x5F) sorts after 'a' (0x41 as 'A').
    EXPECT_GT(compare_entry_names(u"_", u"a"), 0);
    EXPECT_LT(compare_entry_names(u"文", u"档"), 0);
}

TEST(Builder, SiblingTreesAreRedBlackForEverySize) {
    for (uint32_t n = 0; n <= 300; ++n) {
        SCOPED_TRACE(n);
        std::vector<Entry> entries(n);
        std::vector<Sibling_Links> links(n);
        std::vector<uint32_t> sorted(n);
        for (uint32_t i = 0; i < n; ++i) {
            sorted[i] = i;
            entries[i].name = u"n" + std::u16string(3 - std::to_string(i).size(), u'0');
            for (const char c : std::to_string(i))
                entries[i].name.push_back(static_cast<char16_t>(c));
        }
        const uint32_t top = link_siblings(links, sorted, false);
        for (uint32_t i = 0; i < n; ++i) {
            entries[i].left = links[i].left;
            entries[i].right = links[i].right;
            entries[i].color = links[i].color;
        }
        std::set<uint32_t> seen;
        EXPECT_EQ(check_siblings(entries, top, false, seen), sorted);
        if (n > 0 && (n & (n + 1)) == 0) {
            EXPECT_TRUE(std::all_of(links.begin(), links.end(),
                                    [](const Sibling_Links& l) { return l.color == 1; }));
        }
    }
}

TEST(Builder, WriteMatchesBuildAndReportsFailure) {
    auto shape = test::make_sample_shape("unicode_names");
    Build_Layout built_layout;
    const auto bytes = build_compound_file(*shape.root, {}, &built_layout);
    Build_Layout written_layout;
    ASSERT_TRUE(write_compound_file(L"written.cfb", *shape.root, {}, &written_layout));
    std::ifstream in(platform::to_path(L"written.cfb"), std::ios::binary);
    const std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)),
                                    std::istreambuf_iterator<char>());
    EXPECT_TRUE(file == bytes);
    EXPECT_EQ(written_layout.sat_sids, built_layout.sat_sids);
    EXPECT_EQ(written_layout.streams.size(), built_layout.streams.size());
    EXPECT_FALSE(write_compound_file(
        std::wstring(L"no_such_folder") + platform::kSeparator + L"x.cfb", *shape.root));
}

TEST(Builder, ScanFolderTree) {
    namespace fs = std::filesystem;
    const fs::path top = platform::to_path(L"scan_input");
    fs::remove_all(top);
    fs::create_directories(top / "sub" / "deeper");
    fs::create_directories(platform::to_path(L"scan_input") / platform::to_path(L"中文目录"));
    test::write_bytes_to_file(L"scan_input" + std::wstring(1, platform::kSeparator) + L"a.bin",
                              test::random_bytes(5000, 1));
    const std::wstring sep(1, platform::kSeparator);
    test::write_bytes_to_file(L"scan_input" + sep + L"sub" + sep + L"deeper" + sep + L"文件.txt",
                              {1, 2, 3});
    test::write_bytes_to_file(L"scan_input" + sep + L"sub" + sep + L"empty", {});

    const auto root = scan_folder_tree(L"scan_input");
    std::vector<test::Expected_Stream> streams;
    std::vector<std::u16string> storages;
    test::collect_expected(*root, streams, storages);
    std::vector<std::u16string> paths;
    paths.reserve(streams.size());
    for (const auto& s : streams) paths.push_back(s.path);
    std::sort(paths.begin(), paths.end());
    std::sort(storages.begin(), storages.end());
    EXPECT_EQ(paths, (std::vector<std::u16string>{u"a.bin", u"sub/deeper/文件.txt", u"sub/empty"}));
    EXPECT_EQ(storages, (std::vector<std::u16string>{u"sub", u"sub/deeper", u"中文目录"}));
    for (const auto& s : streams) {
        if (s.path == u"a.bin") {
            EXPECT_TRUE(s.node->data == test::random_bytes(5000, 1));
        }
    }
    EXPECT_NO_THROW(build_compound_file(*root));

    test::write_bytes_to_file(L"scan_input" + sep + std::wstring(32, L'n'), {});
    EXPECT_THROW(scan_folder_tree(L"scan_input"), std::runtime_error);
    EXPECT_THROW(scan_folder_tree(L"no_such_scan_folder"), std::runtime_error);
    fs::remove_all(top);
}

TEST(Builder, PatchHelpers) {
    auto shape = test::make_sample_shape("nested_storages");
    Build_Layout layout;
    auto bytes = build_compound_file(*shape.root, {}, &layout);
    const auto& large = test::stream_place(layout, u"Level1/Large");
    ASSERT_GE(large.chain.size(), 2u);
    EXPECT_EQ(get_u32(bytes, test::sat_entry_offset(layout, large.chain[0])), large.chain[1]);
    const auto& small = test::stream_place(layout, u"Level1/Small");
    EXPECT_EQ(get_u32(bytes, test::minisat_entry_offset(layout, small.chain[0])), small.chain[1]);
    EXPECT_EQ(get_u32(bytes, test::directory_entry_offset(layout, small.did) + off::kEntrySize),
              100u);

    test::patch_u32(bytes, off::kNumSatSecs, 7);
    EXPECT_EQ(get_u32(bytes, off::kNumSatSecs), 7u);
    test::patch_u16(bytes, off::kMajorVersion, 4);
    EXPECT_EQ(read_u16_le(&bytes[off::kMajorVersion]), 4);
    test::zero_range(bytes, 0, 8);
    EXPECT_EQ(read_u64_le(bytes.data()), 0u);
    const std::size_t size = bytes.size();
    EXPECT_THROW(test::patch_u32(bytes, size - 3, 0), std::out_of_range);
    EXPECT_THROW(test::zero_range(bytes, size, 1), std::out_of_range);
    EXPECT_THROW(test::truncate(bytes, size + 1), std::out_of_range);
    test::truncate(bytes, 1000);
    EXPECT_EQ(bytes.size(), 1000u);
    EXPECT_THROW((void)test::sat_entry_offset(layout, 1u << 30), std::out_of_range);
}

TEST(Builder, TestDataHelpers) {
    EXPECT_EQ(test::sha256_hex(nullptr, 0),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    const std::string abc = "abc";
    EXPECT_EQ(test::sha256_hex(reinterpret_cast<const uint8_t*>(abc.data()), abc.size()),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // 56 bytes: the length no longer fits the first final block.
    const std::string two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ(test::sha256_hex(reinterpret_cast<const uint8_t*>(two.data()), two.size()),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(test::random_bytes(100, 5), test::random_bytes(100, 5));
    EXPECT_NE(test::random_bytes(100, 5), test::random_bytes(100, 6));
    EXPECT_EQ(test::utf16_to_utf8(u"文A"),
              "\xE6\x96\x87"
              "A");
}

// This library's own strict header checks accept every default-built shape and reject each
// option that departs from a sound version-3 file at the field it changes.
TEST(Builder, HeaderChecksOfTheLibrary) {
    for (const std::string& name : test::sample_shape_names()) {
        SCOPED_TRACE(name);
        const test::Sample_Shape shape = test::make_sample_shape(name);
        File_Description in;
        in.path_utf8 = "checked_" + name + ".cfb";
        in.path_wstr = in.open_path_wstr = platform::from_utf8(in.path_utf8);
        ASSERT_TRUE(write_compound_file(in.path_wstr, *shape.root, shape.options));
        Error_Code expected = ec::kSuccess;
        if (shape.options.major_version == 4) {
            expected = ec::kMajorVersion;
        } else if (shape.options.minor_version != 0x003E) {
            expected = ec::kMinorVersion;
        } else if (shape.options.sat_in_last_sector) {
            expected = ec::kHeaderDisatSid;
        }
        {
            Cfb_File file(in);
            EXPECT_EQ(file.parse_header(), 0);
            EXPECT_EQ(file.validate_header(), expected);
        }
        std::error_code ignored;
        std::filesystem::remove(platform::to_path(in.path_wstr), ignored);
    }
}

// The outside readers: olefile (Debian's python3-olefile) and gsf (libgsf-bin) must read every
// shape exactly as the manifest describes it.
TEST(Builder, OutsideReadersAgree) {
    if (platform::kWindows) GTEST_SKIP() << "olefile and gsf run natively only";
    const std::wstring folder = L"builder_samples";
    std::error_code ec;
    std::filesystem::remove_all(platform::to_path(folder), ec);
    std::filesystem::create_directories(platform::to_path(folder));
    for (const std::string& name : test::sample_shape_names()) {
        std::string error;
        ASSERT_TRUE(test::write_sample_files(folder, test::make_sample_shape(name), error))
            << error;
    }
    const std::string command =
        std::string("/usr/bin/python3 ") + CFB_OLEFILE_CHECK + " builder_samples";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

}  // namespace
}  // namespace vrk
