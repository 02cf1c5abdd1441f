// The compound file builder: every sample shape is read back here by a small reader of its own
// (header, SAT through header and DISAT, MiniSAT, directory tree, stream bytes) and compared
// with what Build_Layout says; natively the files also go through olefile and gsf.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Sibling_Tree_Layout.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "common/byte_order.h"
#include "common/error_codes.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/sample_shapes.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::get_u32;
namespace off = test::offsets;

uint64_t ceil_div(uint64_t a, uint64_t b) {
    return (a + b - 1) / b;
}

struct Entry {
    std::u16string name;
    uint8_t type = 0;
    uint8_t color = 0;
    uint32_t left = 0, right = 0, child = 0;
    const uint8_t* raw = nullptr;
    uint16_t name_size() const { return read_u16_le(raw + 64); }
    sid_t start() const { return read_u32_le(raw + 116); }
    uint64_t size() const { return read_u64_le(raw + 120); }
};

class Reader {
  public:
    Reader(const std::vector<uint8_t>& bytes, uint32_t sector_size)
        : m_bytes(bytes), m_ss(sector_size) {}

    uint64_t sector_count() const { return m_bytes.size() / m_ss - 1; }
    const uint8_t* sector(sid_t sid) const {
        const uint64_t at = (uint64_t{sid} + 1) * m_ss;
        if (!range_inside(at, m_ss, m_bytes.size())) throw std::out_of_range("sector past the end");
        return m_bytes.data() + at;
    }
    uint32_t u32(uint64_t offset) const { return get_u32(m_bytes, offset); }
    // Every 32-bit entry of the sectors, in order.
    std::vector<uint32_t> entries(const std::vector<sid_t>& sids) const {
        std::vector<uint32_t> out;
        for (const sid_t sid : sids) {
            for (uint32_t i = 0; i < m_ss / 4; ++i) out.push_back(read_u32_le(sector(sid) + 4 * i));
        }
        return out;
    }

    // The SAT sector ids as the header and the DISAT chain list them.
    void read_sat_sids(std::vector<sid_t>& sat_sids, std::vector<sid_t>& disat_sids) const {
        for (uint32_t i = 0; i < 109; ++i) {
            const sid_t sid = u32(test::header_disat_offset(i));
            if (sid != FREESECT) sat_sids.push_back(sid);
        }
        sid_t next = u32(off::kFirstDisatSid);
        const uint32_t per = m_ss / 4;
        for (uint32_t k = 0; k < u32(off::kNumDisatSecs); ++k) {
            disat_sids.push_back(next);
            const std::vector<uint32_t> disat = entries({next});
            std::copy_if(disat.begin(), disat.end() - 1, std::back_inserter(sat_sids),
                         [](sid_t sid) { return sid != FREESECT; });
            next = disat[per - 1];
        }
        EXPECT_EQ(next, disat_sids.empty() ? u32(off::kFirstDisatSid) : ENDOFCHAIN);
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
        for (uint32_t i = 0; i < 32 && read_u16_le(p + 2 * i) != 0; ++i) {
            e.name.push_back(static_cast<char16_t>(read_u16_le(p + 2 * i)));
        }
        e.type = p[66];
        e.color = p[67];
        e.left = read_u32_le(p + 68);
        e.right = read_u32_le(p + 72);
        e.child = read_u32_le(p + 76);
        return e;
    }

    std::vector<uint8_t> stream_bytes(const Build_Layout::Stream_Place& place,
                                      const std::vector<sid_t>& container) const {
        std::vector<uint8_t> out;
        for (const sid_t sid : place.chain) {
            const uint32_t unit = place.in_mini ? 64 : m_ss;
            const uint64_t at = uint64_t{sid} * 64;
            const uint8_t* p =
                place.in_mini ? sector(container.at(at / m_ss)) + at % m_ss : sector(sid);
            const uint64_t n = std::min<uint64_t>(unit, place.size - out.size());
            out.insert(out.end(), p, p + n);
        }
        return out;
    }

  private:
    const std::vector<uint8_t>& m_bytes;
    uint32_t m_ss;
};

// Checks one storage's sibling tree below `top`: in-order names strictly ascending, red-black
// rules (or a plain all-black right chain), no entry visited twice. Returns the DIDs in order.
std::vector<uint32_t> check_siblings(const std::vector<Entry>& entries, uint32_t top, bool as_chain,
                                     std::set<uint32_t>& seen) {
    std::vector<uint32_t> order;
    if (as_chain) {
        for (uint32_t did = top; did != NOSTREAM && order.size() <= entries.size();
             did = entries.at(did).right) {
            EXPECT_TRUE(seen.insert(did).second) << "entry " << did << " reached twice";
            EXPECT_EQ(entries[did].left, NOSTREAM);
            EXPECT_EQ(entries[did].color, 1);
            order.push_back(did);
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

std::vector<std::u16string> sorted(std::vector<std::u16string> names) {
    std::sort(names.begin(), names.end());
    return names;
}

void check_shape(const test::Sample_Shape& shape) {
    SCOPED_TRACE(shape.name);
    Build_Layout layout;
    const std::vector<uint8_t> bytes = build_compound_file(*shape.root, shape.options, &layout);
    const bool v4 = shape.options.major_version == 4;
    const uint32_t ss = v4 ? 4096 : 512;
    ASSERT_EQ(layout.sector_size, ss);
    ASSERT_EQ(bytes.size() % ss, 0u);
    const Reader reader(bytes, ss);
    const uint64_t sectors = reader.sector_count();
    const auto first_or_end = [](const std::vector<sid_t>& sids) {
        return sids.empty() ? ENDOFCHAIN : sids[0];
    };

    // Header: every field at its offset; reserved bytes and the rest of a v4 header zero.
    EXPECT_EQ(read_u64_le(bytes.data()), 0xE11AB1A1E011CFD0ull);
    const std::pair<uint64_t, uint32_t> u16_fields[] = {
        {off::kMinorVersion, shape.options.minor_version},
        {off::kMajorVersion, shape.options.major_version},
        {off::kByteOrder, 0xFFFE},
        {off::kSectorShift, v4 ? 12 : 9},
        {off::kMiniSectorShift, 6}};
    for (const auto& [at, want] : u16_fields) EXPECT_EQ(read_u16_le(&bytes[at]), want) << at;
    const std::pair<uint64_t, uint64_t> u32_fields[] = {
        {off::kNumDirSecs, v4 ? layout.directory_sids.size() : 0},
        {off::kNumSatSecs, layout.sat_sids.size()},
        {off::kFirstDirSid, layout.directory_sids.at(0)},
        {52, 0},
        {off::kMiniStreamCutoff, 4096},
        {off::kFirstMinisatSid, first_or_end(layout.minisat_sids)},
        {off::kNumMinisatSecs, layout.minisat_sids.size()},
        {off::kFirstDisatSid, first_or_end(layout.disat_sids)},
        {off::kNumDisatSecs, layout.disat_sids.size()}};
    for (const auto& [at, want] : u32_fields) EXPECT_EQ(reader.u32(at), want) << at;
    for (int i = 8; i < 40; ++i) {
        if (i < 24 || i >= 34) {
            EXPECT_EQ(bytes[i], 0) << "byte " << i;
        }
    }
    if (v4) {
        EXPECT_TRUE(std::all_of(bytes.begin() + 512, bytes.begin() + 4096,
                                [](uint8_t b) { return b == 0; }));
    }

    // SAT: exactly the chains and markers the layout names; every other sector free.
    std::vector<sid_t> sat_sids;
    std::vector<sid_t> disat_sids;
    reader.read_sat_sids(sat_sids, disat_sids);
    ASSERT_EQ(sat_sids, layout.sat_sids);
    ASSERT_EQ(disat_sids, layout.disat_sids);
    EXPECT_EQ(layout.sat_sids.size() > 109, !layout.disat_sids.empty());
    const std::vector<uint32_t> sat = reader.entries(sat_sids);
    ASSERT_GE(sat.size(), sectors);
    std::vector<uint32_t> expected(sat.size(), FREESECT);
    auto claim = [&](sid_t sid, uint32_t value) {
        ASSERT_LT(sid, sectors);
        EXPECT_EQ(expected[sid], FREESECT) << "sector " << sid << " used twice";
        expected[sid] = value;
    };
    auto claim_chain = [&](std::vector<uint32_t>& table, const std::vector<sid_t>& chain) {
        for (std::size_t i = 0; i < chain.size(); ++i) {
            ASSERT_LT(chain[i], table.size());
            table[chain[i]] = i + 1 < chain.size() ? chain[i + 1] : ENDOFCHAIN;
        }
    };
    for (const sid_t sid : layout.sat_sids) claim(sid, FATSECT);
    for (const sid_t sid : layout.disat_sids) claim(sid, DIFSECT);
    for (const auto* chain :
         {&layout.minisat_sids, &layout.directory_sids, &layout.container_sids}) {
        for (const sid_t sid : *chain) claim(sid, 0);
        claim_chain(expected, *chain);
    }
    for (const auto& place : layout.streams) {
        if (place.in_mini || place.chain.empty()) continue;
        // Slack runs on from the chain's last sector.
        std::vector<sid_t> chain = place.chain;
        for (uint32_t k = 1; k <= layout.slack_sectors; ++k)
            chain.push_back(place.chain.back() + k);
        for (const sid_t sid : chain) claim(sid, 0);
        claim_chain(expected, chain);
    }
    EXPECT_EQ(sat, expected);
    EXPECT_EQ(Reader::walk(sat, reader.u32(off::kFirstDirSid)), layout.directory_sids);

    // MiniSAT, read through its SAT chain.
    const std::vector<uint32_t> minisat =
        reader.entries(Reader::walk(sat, reader.u32(off::kFirstMinisatSid)));
    std::vector<uint32_t> expected_mini(minisat.size(), FREESECT);
    uint64_t mini_sectors = 0;
    for (const auto& place : layout.streams) {
        if (!place.in_mini) continue;
        claim_chain(expected_mini, place.chain);
        mini_sectors += place.chain.size();
    }
    EXPECT_EQ(minisat, expected_mini);
    EXPECT_EQ(layout.minisat_sids.size(), ceil_div(mini_sectors, ss / 4));
    EXPECT_EQ(layout.container_sids.size(),
              ceil_div(mini_sectors * 64, ss) + (mini_sectors > 0 ? layout.slack_sectors : 0));

    // Directory.
    const uint32_t slots = static_cast<uint32_t>(layout.directory_sids.size() * (ss / 128));
    std::vector<Entry> entries;
    for (uint32_t did = 0; did < slots; ++did) {
        entries.push_back(reader.entry(layout.directory_sids, did));
    }
    const Entry& root = entries[0];
    EXPECT_EQ(root.name, u"Root Entry");
    EXPECT_EQ(root.name_size(), 22);
    EXPECT_EQ(root.type, 5);
    EXPECT_EQ(root.left, NOSTREAM);
    EXPECT_EQ(root.right, NOSTREAM);
    EXPECT_EQ(root.size(), mini_sectors * 64);
    EXPECT_EQ(root.start(), first_or_end(layout.container_sids));
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
            EXPECT_EQ(e.name_size(), (e.name.size() + 1) * 2);
            const std::u16string path = prefix + e.name;
            if (e.type == 1) {
                found_storages.push_back(path);
                EXPECT_EQ(e.start(), 0u);
                EXPECT_EQ(e.size(), 0u);
                visit(did, path + u"/");
                continue;
            }
            ASSERT_EQ(e.type, 2) << "entry " << did;
            EXPECT_EQ(e.child, NOSTREAM);
            found_streams.push_back(path);
            const auto& place = test::stream_place(layout, path);
            EXPECT_EQ(place.did, did);
            EXPECT_EQ(e.size(), place.size);
            EXPECT_EQ(e.start(), first_or_end(place.chain));
        }
    };
    visit(0, u"");
    EXPECT_EQ(seen.size(), 1 + shape.streams.size() + shape.storages.size());
    for (uint32_t did = static_cast<uint32_t>(seen.size()); did < slots; ++did) {
        for (int i = 0; i < 128; ++i) {
            ASSERT_EQ(entries[did].raw[i], i >= 68 && i < 80 ? 0xFF : 0)
                << "unused entry " << did << " byte " << i;
        }
    }
    std::vector<std::u16string> want_streams;
    for (const auto& s : shape.streams) want_streams.push_back(s.path);
    EXPECT_EQ(sorted(found_streams), sorted(want_streams));
    EXPECT_EQ(sorted(found_storages), sorted(shape.storages));
    EXPECT_EQ(sorted(layout.storages), sorted(shape.storages));

    // Bytes and item fields of every stream, through the layout's chains.
    for (const auto& s : shape.streams) {
        const auto& place = test::stream_place(layout, s.path);
        EXPECT_EQ(place.in_mini, s.node->data.size() < 4096);
        EXPECT_EQ(place.chain.size(), ceil_div(place.size, place.in_mini ? 64 : ss));
        EXPECT_TRUE(reader.stream_bytes(place, layout.container_sids) == s.node->data)
            << test::utf16_to_utf8(s.path);
        const uint8_t* raw = entries[place.did].raw;
        EXPECT_TRUE(std::equal(s.node->clsid.begin(), s.node->clsid.end(), raw + 80));
        EXPECT_TRUE(std::equal(s.node->state_bits.begin(), s.node->state_bits.end(), raw + 96));
        EXPECT_TRUE(
            std::equal(s.node->creation_time.begin(), s.node->creation_time.end(), raw + 100));
    }

    // Strict readers count in 512-byte sectors and refuse tables in the last one; only the
    // sat_in_last_sector option puts a SAT sector there.
    const uint64_t max_sid = ((bytes.size() - 512) >> 9) - 1;
    const sid_t last = static_cast<sid_t>(sectors - 1);
    for (const uint64_t at :
         {off::kNumDirSecs, off::kNumSatSecs, off::kFirstDirSid, off::kNumDisatSecs}) {
        EXPECT_LT(reader.u32(at), max_sid) << at;
    }
    for (const auto* run : {&layout.minisat_sids, &layout.directory_sids, &layout.disat_sids}) {
        for (const sid_t sid : *run) EXPECT_NE(sid, last);
    }
    EXPECT_EQ(layout.sat_sids.back() == last, shape.options.sat_in_last_sector);
}

class Builder_Shape : public ::testing::TestWithParam<std::string> {};

TEST_P(Builder_Shape, ReadsBackAsTheLayoutSays) {
    check_shape(test::make_sample_shape(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(All, Builder_Shape, ::testing::ValuesIn(test::sample_shape_names()),
                         [](const auto& info) { return info.param; });

TEST(Builder, SmallestFileAndTableOrders) {
    // Header, SAT, directory, a free sector: the smallest file whose SAT count (1) is below
    // max_sid and whose directory is not the last sector.
    EXPECT_EQ(build_compound_file(Cfb_Fs_Item_DirNode{}).size(), 2048u);

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
    build_compound_file(*shape.root, at_end, &tail);
    EXPECT_EQ(tail.container_sids.front(), 0u);
    EXPECT_LT(test::stream_place(tail, u"ThreeMiB").chain.back(), tail.directory_sids.front());
    EXPECT_LT(tail.directory_sids.back(), tail.minisat_sids.front());
    EXPECT_LT(tail.minisat_sids.back(), tail.sat_sids.front());
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
    struct Case {
        const char16_t* a;
        const char16_t* b;
        int sign;
    };
    // Units are upper-cased before comparing: '_' (0x5F) sorts after 'a' (0x41 as 'A').
    for (const Case c :
         {Case{u"z", u"aa", -1}, Case{u"abc", u"ABC", 0}, Case{u"abc", u"ABD", -1},
          Case{u"b", u"A", 1}, Case{u"é", u"É", 0}, Case{u"_", u"a", 1}, Case{u"文", u"档", -1}}) {
        const int got = compare_entry_names(c.a, c.b);
        EXPECT_EQ((got > 0) - (got < 0), c.sign) << test::utf16_to_utf8(c.a);
    }
}

TEST(Builder, SiblingTreesAreRedBlackForEverySize) {
    for (uint32_t n = 0; n <= 300; ++n) {
        SCOPED_TRACE(n);
        std::vector<Entry> entries(n);
        std::vector<Sibling_Links> links(n);
        std::vector<uint32_t> order(n);
        for (uint32_t i = 0; i < n; ++i) {
            order[i] = i;
            const std::string digits = std::to_string(1000 + i);
            entries[i].name.assign(digits.begin(), digits.end());
        }
        const uint32_t top = link_siblings(links, order, false);
        for (uint32_t i = 0; i < n; ++i) {
            entries[i].left = links[i].left;
            entries[i].right = links[i].right;
            entries[i].color = links[i].color;
        }
        std::set<uint32_t> seen;
        EXPECT_EQ(check_siblings(entries, top, false, seen), order);
    }
}

TEST(Builder, WriteMatchesBuildAndReportsFailure) {
    auto shape = test::make_sample_shape("unicode_names");
    const auto bytes = build_compound_file(*shape.root);
    ASSERT_TRUE(write_compound_file(L"written.cfb", *shape.root));
    EXPECT_EQ(test::read_file("written.cfb"), std::string(bytes.begin(), bytes.end()));
    EXPECT_FALSE(write_compound_file(
        std::wstring(L"no_such_folder") + platform::kSeparator + L"x.cfb", *shape.root));
}

TEST(Builder, ScanFolderTree) {
    test::Temp_Folder top("scan_input");
    test::write_file(top / "a.bin", "12345");
    test::write_file(top / "sub" / "deeper" / "f.txt", "abc");
    test::write_file(top / "sub" / "empty", "");
    std::filesystem::create_directories(top.path() / platform::to_path(L"中文目录"));

    const auto root = scan_folder_tree(top.wide());
    std::vector<test::Expected_Stream> streams;
    std::vector<std::u16string> storages;
    test::collect_expected(*root, streams, storages);
    std::vector<std::u16string> paths;
    for (const auto& s : streams) paths.push_back(s.path);
    EXPECT_EQ(sorted(paths),
              (std::vector<std::u16string>{u"a.bin", u"sub/deeper/f.txt", u"sub/empty"}));
    EXPECT_EQ(sorted(storages), (std::vector<std::u16string>{u"sub", u"sub/deeper", u"中文目录"}));
    for (const auto& s : streams) {
        if (s.path == u"a.bin") {
            EXPECT_EQ(s.node->data, (std::vector<uint8_t>{'1', '2', '3', '4', '5'}));
        }
    }
    test::write_file(top / std::string(32, 'n'), "");
    EXPECT_THROW(scan_folder_tree(top.wide()), std::runtime_error);
    EXPECT_THROW(scan_folder_tree(L"no_such_scan_folder"), std::runtime_error);
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
    test::Temp_Folder folder("builder_samples");
    for (const std::string& name : test::sample_shape_names()) {
        std::string error;
        ASSERT_TRUE(test::write_sample_files(folder.wide(), test::make_sample_shape(name), error))
            << error;
    }
    const std::string command =
        std::string("/usr/bin/python3 ") + CFB_OLEFILE_CHECK + " " + folder.path().string();
    EXPECT_EQ(std::system(command.c_str()), 0);
}

}  // namespace
}  // namespace vrk
