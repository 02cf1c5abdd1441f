#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "cfb_vornak/reports/Sector_Units.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

std::string text_of(const std::wstring& path) {
    const std::vector<uint8_t> bytes = test::read_bytes(path);
    return std::string(bytes.begin(), bytes.end());
}

// Streams "Alpha" (100 bytes) and "Gamma" (10) in the container, "Sub/Beta" (5000) in sectors,
// written and parsed, with an output folder of a Chinese name.
class ReportsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Cfb_Fs_Item_DirNode root;
        root.add_stream(u"Alpha", test::random_bytes(100, 1));
        root.add_stream(u"Gamma", test::random_bytes(10, 2));
        root.add_storage(u"Sub").add_stream(u"Beta", test::random_bytes(5000, 3));
        open(root);
    }
    void open(const Cfb_Fs_Item_DirNode& root) {
        source = folder.wide(true) + L"sample.cfb";
        ASSERT_TRUE(write_compound_file(source, root, {}, &layout));
        output = folder.wide(true) + platform::from_utf8("输出");
        file = test::open_parsed(source, output);
        file->m_output = test::describe(with_one_trailing_separator(output));
    }

    test::Temp_Folder folder{"reports"};
    Build_Layout layout;
    std::wstring source, output;
    std::unique_ptr<Cfb_File> file;
};

// Rows of sixteen under a label of the row's first index and (15 + 16 * index), a full stop
// after the last id; labels restart for every array, an empty array writes nothing.
TEST(TableRows, RowsOfSixteenAndLabelsPerArray) {
    std::ostringstream out;
    sids_array seventeen(17, 7);
    seventeen[16] = ENDOFCHAIN;
    write_table_rows(out, seventeen);
    write_table_rows(out, {});
    write_table_rows(out, {FATSECT});
    std::string sevens;
    for (int i = 0; i < 16; ++i) sevens += "         7, ";
    EXPECT_EQ(out.str(), "\n         0 -         15 : " + sevens +
                             "\n        16 -        271 : 4294967294. \n"
                             "\n         0 -         15 : 4294967293. \n");

    // Ids that follow each other are written by raising the last digit: 9 to 10 carries, and
    // FREESECT to 0 starts afresh.
    out.str("");
    write_table_rows(out, {8, 9, 10, 99, 100, 101, FREESECT, 0, 1});
    EXPECT_EQ(out.str(),
              "\n         0 -         15 :          8,          9,         10,         99, "
              "       100,        101, 4294967295,          0,          1. \n");
}

TEST_F(ReportsTest, HeaderReport) {
    const std::string expected =
        "------------------------cfb头部信息------------------------\n"
        "魔数头[magic]:d0 cf 11 e0 a1 b1 1a e1 \n"
        "文件id[file_id]: 0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0 \n"
        "次版本号[minor_version]:3e  0 \n"
        "主版本号[major_version]: 3  0 \n"
        "大小端[endian]:fe ff 是[小端]   \n"
        "扇区大小[sector_shift]:512 \n"
        "小扇区大小[mini_sector_shift]:64 \n"
        "保留字[reserved_word]: 0  0 \n"
        "保留双字[reserved_dword]: 0  0  0  0 \n"
        "目录流扇区有数[num_of_dir_secs]:   "
        "目录流扇区有0个，注意主版本号为3时这里必是0，因为此时这个字段无效~\n"
        "sat表的扇区数[num_of_sat_secs]:   存放sat的扇区有1个\n"
        "第一个存放dir的扇区id[first_dir_sid]:   [" +
        std::to_string(layout.directory_sids.at(0)) +
        "] \n"
        "事务签名数（这个没什么卵用）[transaction_sign_num]: 0  0  0  0 \n"
        "小流阈值[mini_stream_cutoff_size]:4096 \n"
        "第一个存放minisat的扇区id[first_minisat_sid]:   [" +
        std::to_string(layout.minisat_sids.at(0)) +
        "] \n"
        "用来存放minisat的扇区数[num_of_minisat_secs]:   [1]个 \n"
        "第一个存放disat的扇区id[first_disat_sid]:   [4294967294] \n"
        "用来存放disat的扇区数[num_of_disat_secs]:   [0]个 \n";
    EXPECT_EQ(text_of(write_header_report(*file)), expected);
    // A big-endian mark; a shift reduced mod 32; bytes below 16 padded with a blank, not 16.
    file->header.endian = {0xFF, 0xFE};
    file->header.sector_shift = 41;
    EXPECT_NE(text_of(write_header_report(*file))
                  .find("大小端[endian]:ff fe 是[大端]   \n扇区大小[sector_shift]:512 \n"),
              std::string::npos);
    file->header.endian = {0x0F, 0x10};
    EXPECT_NE(text_of(write_header_report(*file)).find("大小端[endian]: f 10 出错了~   \n"),
              std::string::npos);
}

// The header's 109 entries, then each DISAT sector's (a sector not read has none), numbered on.
TEST_F(ReportsTest, DisatReportNumbersSectorEntriesOnFromTheHeader) {
    file->disat_sids = {10, 20, 30};
    file->disat_sector_entries = {{1, FREESECT}, {77}};
    const std::string text = text_of(write_disat_report(*file));
    EXPECT_EQ(text.substr(0, text.find("DISAT_sids[1]:")).substr(text.find("\n") + 1),
              "------------------------放在header中的disat信息：\nDISAT_sids[0]:" +
                  std::to_string(layout.sat_sids.at(0)) + "\n");
    const std::string tail =
        "DISAT_sids[108]:4294967295\n"
        "------------------------放在扇区中的disat信息：\n"
        "----------扇区[10]中的disat信息：\nDISAT_sids[109]:1\n"
        "DISAT_sids[110]:4294967295\n"
        "----------扇区[20]中的disat信息：\nDISAT_sids[111]:77\n"
        "----------扇区[30]中的disat信息：\n";
    EXPECT_EQ(text.substr(text.size() - std::min(text.size(), tail.size())), tail);
}

TEST_F(ReportsTest, SatAndMinisatReports) {
    file->sat_sector_dicts = {{2, 4, 0}};
    file->big_sids_array = {FATSECT, ENDOFCHAIN, 3, ENDOFCHAIN};
    file->sat_sids_lists = {{1, 2}, {2, 3}};
    EXPECT_EQ(text_of(write_sat_report(*file)),
              "------------------------sat信息(sat物理上是一个数组结构但是实际上是n条扇区链，"
              "记录扇区间的接续关系)------------------------\n"
              "------------------------std::map<sid_t,sids_array >信息(一个sat扇区上的具体形式)：\n"
              "sat[2]：\n"
              "         0 -         15 : 4294967293, 4294967294,          3, 4294967294. \n"
              "------------------------big_sids_array信息(一个sat扇区上代表的大数组，共计[4]项)：\n"
              "\n"
              "         0 -         15 : 4294967293, 4294967294,          3, 4294967294. \n"
              "------------------------sat提取到的扇区链信息(共计[2]条)：\n"
              "----------第[         0]条的信息：1->4294967294 ]\n"
              "----------第[         1]条的信息：2->3->4294967294 ]\n");
    // Empty structures keep their headings.
    file->minisat_sector_dicts.clear();
    file->minisat_big_sids_array.clear();
    file->minisat_sids_lists.clear();
    EXPECT_EQ(
        text_of(write_minisat_report(*file)),
        "------------------------minisat信息(minisat物理上是一个超大数组结构但是实际上是n条扇区链，"
        "记录扇区间的接续关系)------------------------\n"
        "------------------------std::map<sid_t,sids_array >信息(一个minisat扇区上的具体形式)：\n"
        "------------------------big_sids_array信息(一个minisat扇区上代表的大数组，共计[0]项)：\n"
        "------------------------minisat提取到的扇区链信息(共计[0]条)：\n");
}

// The directory's chain with its end marker, its records per sector, then every record with
// every field in its form.
TEST_F(ReportsTest, LayoutReport) {
    file->directory_entrys_sids_list = {0, 5, ENDOFCHAIN};
    file->directory_entry_layout_dicts.clear();
    Directory_Entry entry;
    entry.did = 1;
    file->directory_entry_layout_dicts[5] = {Directory_Entry{}, entry};
    const std::u16string name = u"数据A";
    for (std::size_t i = 0; i < name.size(); ++i) {
        entry.name[2 * i] = static_cast<uint8_t>(name[i] & 0xFF);
        entry.name[2 * i + 1] = static_cast<uint8_t>(name[i] >> 8);
    }
    entry.name[8] = 'Z';  // after the zero unit: not part of the name
    entry.name_valid_size = 40;
    entry.object_type = 200;
    entry.color_flag = 1;
    entry.left_sibling_id = 3;
    entry.right_sibling_id = NOSTREAM;
    entry.child_id = 7;
    for (uint8_t i = 0; i < 16; ++i) entry.clsid[i] = i;
    entry.state_bits = {0xde, 0xad, 0xbe, 0xef};
    entry.creation_time = {1, 2, 3, 4, 5, 6, 7, 0x80};
    entry.start_sid = 12;
    entry.stream_size = 700;
    file->directory_entrys = {entry};
    EXPECT_EQ(text_of(write_directory_entry_layout_report(*file)),
              "------------------------directory_entrys信息(directory_entrys物理上是一个数组结构，"
              "记录文件中仓库和流的信息)------------------------\n\n"
              "------------------------directory_entrys_sids_list信息(目录项存放的扇区链)：\n"
              "------------------------print_sids_list：\n[0->5->4294967294 ]\n\n"
              "------------------------directory_entry_layout_dicts信息(目录项分布字典)：\n"
              "扇区sid[5]存放的目录项(DID)是：{ 0 , 1 }\n"
              "------------------------directory_entrys信息(directory_entry数组)：\n"
              "directory_entrys[0]:\n"
              "------------------------print_a_directory_entry\n"
              "name[数据A]\n"
              "name_valid_size[40]\n"
              "object_type[未知的数值--56]\n"
              "color_flag[BLACK]\n"
              "left_sibling_id[3]\n"
              "right_sibling_id[4294967295]\n"
              "child_id[7]\n"
              "clsid{0 , 1 , 2 , 3 , 4 , 5 , 6 , 7 , 8 , 9 , a , b , c , d , e , f }\n"
              "state_bits{de , ad , be , ef }\n"
              "creation_time{1 , 2 , 3 , 4 , 5 , 6 , 7 , 80 }\n"
              "modified_time{0 , 0 , 0 , 0 , 0 , 0 , 0 , 0 }\n"
              "start_sid[12]\n"
              "stream_size[700]\n\n\n");
}

// Whole 512-byte blocks only (a short tail is left out), named by index and offset in at least
// four hex digits; a missing source writes nothing.
TEST(SectorUnits, WholeBlocksOnly) {
    test::Temp_Folder folder("sectors");
    const std::wstring source = folder.wide(true) + L"in.bin";
    std::vector<uint8_t> bytes(1600);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
    ASSERT_TRUE(test::write_bytes_to_file(source, bytes));
    const std::wstring out = folder.wide(true) + L"out";
    EXPECT_EQ(split_to_sector_units(source + L"x", sector_units_folder(out)), 0u);
    EXPECT_EQ(test::folder_names(folder.wide()), (std::set<std::string>{"in.bin"}));
    EXPECT_EQ(split_to_sector_units(source, sector_units_folder(out)), 3u);
    const std::wstring units =
        out + platform::kSeparator + platform::from_utf8("物理切割后各个单元");
    EXPECT_EQ(test::folder_names(units),
              (std::set<std::string>{"Header", "sector0[0000H]", "sector1[0200H]"}));
    const std::string header = text_of(units + platform::kSeparator + L"Header");
    const std::string top =
        "我是表头吖~  0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f \n"
        "            ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  \n"
        "0000H:      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F \n"
        "0010H:      10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F ";
    EXPECT_EQ(header.substr(0, top.size()), top);
    const std::string sector1 = text_of(units + platform::kSeparator + L"sector1[0200H]");
    // Block 2 holds file offsets 0x400 to 0x5ff.
    const std::string last_row = "\n05f0H:      F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF ";
    EXPECT_EQ(sector1.substr(sector1.size() - std::min(sector1.size(), last_row.size())), last_row);
    EXPECT_EQ(header.size(), sector1.size());
    EXPECT_EQ(sector_unit_file_name(6), "sector5[0a00H]");
    EXPECT_EQ(sector_unit_file_name(200), "sector199[18e00H]");
}

}  // namespace
}  // namespace vrk
