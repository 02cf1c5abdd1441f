#include "cfb_vornak/Cfb_Reports.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>
#include <vector>

#include "cfb_vornak/Cfb_Directory_Tree.h"
#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Sids_Text.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

constexpr std::size_t kFlushAt = 1u << 16;
constexpr std::size_t kFileBuffer = 1u << 20;

void append_decimal(std::string& text, uint64_t value) {
    std::array<char, 24> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    text.append(digits.data(), result.ptr);
}

// Right-aligned in a field of ten characters, padded with blanks.
void append_width10(std::string& text, uint64_t value) {
    std::array<char, 24> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    const auto length = static_cast<std::size_t>(result.ptr - digits.data());
    if (length < 10) {
        text.append(10 - length, ' ');
    }
    text.append(digits.data(), length);
}

void append_hex(std::string& text, uint64_t value) {
    std::array<char, 24> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value, 16);
    text.append(digits.data(), result.ptr);
}

// Each byte in lower-case hexadecimal, two wide, padded with a blank, followed by a blank.
template <std::size_t N>
void append_field_bytes(std::string& text, const std::array<uint8_t, N>& bytes) {
    for (const uint8_t byte : bytes) {
        if (byte < 16) {
            text.push_back(' ');
        }
        append_hex(text, byte);
        text.push_back(' ');
    }
}

template <typename T>
std::array<uint8_t, sizeof(T)> le_bytes(T value) {
    std::array<uint8_t, sizeof(T)> bytes{};
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bytes[i] = static_cast<uint8_t>((static_cast<uint64_t>(value) >> (8 * i)) & 0xFFu);
    }
    return bytes;
}

// "d0 , cf , 11 }": each byte in hexadecimal and a blank, bytes separated by ", ".
template <std::size_t N>
void append_entry_bytes(std::string& text, const std::array<uint8_t, N>& bytes) {
    for (std::size_t i = 0; i < N; ++i) {
        if (i != 0) {
            text.append(", ");
        }
        append_hex(text, bytes[i]);
        text.push_back(' ');
    }
}

void flush_if_full(std::ostream& out, std::string& text) {
    if (text.size() >= kFlushAt) {
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        text.clear();
    }
}

void flush(std::ostream& out, std::string& text) {
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    text.clear();
}

// A report file opened for binary writing with a large buffer; not open when the file system
// refuses it.
class Report_File {
  public:
    explicit Report_File(const std::wstring& path) : m_buffer(kFileBuffer) {
        m_out.rdbuf()->pubsetbuf(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
        m_out.open(platform::to_path(path), std::ios::binary | std::ios::out | std::ios::trunc);
    }
    bool is_open() const { return m_out.is_open(); }
    std::ostream& stream() { return m_out; }

  private:
    std::vector<char> m_buffer;
    std::ofstream m_out;
};

void write_chain_tail(std::string& text, const sids_list& chain) {
    for (std::size_t i = 0; i < chain.size(); ++i) {
        append_decimal(text, chain[i]);
        text.append(i + 1 < chain.size() ? "->" : " ]\n");
    }
}

struct Table_Texts {
    const char* title;
    const char* dicts_heading;
    const char* dict_key_prefix;
    const char* big_array_heading;
    const char* chains_heading;
};

void write_allocation_table(std::ostream& out, const Table_Texts& texts,
                            const std::map<sid_t, sids_array>& dicts, const sids_array& big,
                            const std::vector<sids_list>& chains) {
    std::string text = texts.title;
    text.append(texts.dicts_heading);
    for (const auto& [sid, entries] : dicts) {
        text.append(texts.dict_key_prefix);
        append_decimal(text, sid);
        text.append("]：");
        flush(out, text);
        write_table_rows(out, entries);
    }
    text.append(texts.big_array_heading);
    append_decimal(text, big.size());
    text.append("]项)：\n");
    flush(out, text);
    write_table_rows(out, big);
    text.append(texts.chains_heading);
    append_decimal(text, chains.size());
    text.append("]条)：\n");
    for (std::size_t i = 0; i < chains.size(); ++i) {
        text.append("----------第[");
        append_width10(text, i);
        text.append("]条的信息：");
        write_chain_tail(text, chains[i]);
        flush_if_full(out, text);
    }
    flush(out, text);
}

std::wstring utf8_to_wide(const char* text) {
    return platform::from_utf8(text);
}

// Creates the report's folder; a folder the file system refuses leaves the report unwritten.
void make_report_folder(const std::wstring& report_file_path) {
    try {
        fs::make_parent_folder(report_file_path);
    } catch (const std::exception&) {
        // The open of the report then fails and the report is skipped.
    }
}

template <typename Dump>
std::wstring write_report(const Cfb_File& file, const char* folder, const char* file_name,
                          Dump dump) {
    std::wstring path = report_path(file, folder, file_name);
    if (path.empty()) {
        return path;
    }
    make_report_folder(path);
    dump(path);
    return path;
}

}  // namespace

std::wstring with_one_trailing_separator(const std::wstring& folder) {
    if (folder.empty()) {
        return folder;
    }
    std::size_t end = folder.size();
    while (end > 1 && (folder[end - 1] == platform::kSeparator || folder[end - 1] == L'/')) {
        --end;
    }
    std::wstring result = folder.substr(0, end);
    if (result.back() != platform::kSeparator && result.back() != L'/') {
        result.push_back(platform::kSeparator);
    }
    return result;
}

std::wstring report_base_folder(const Cfb_File& file) {
    return with_one_trailing_separator(file.m_output.path_wstr);
}

std::wstring report_path(const Cfb_File& file, const char* folder, const char* file_name) {
    std::wstring base = report_base_folder(file);
    if (base.empty()) {
        return base;
    }
    return base + utf8_to_wide(folder) + platform::kSeparator + utf8_to_wide(file_name);
}

void write_table_rows(std::ostream& out, const sids_array& entries) {
    std::string text;
    text.reserve(kFlushAt + 256);
    for (std::size_t j = 0; j < entries.size(); ++j) {
        if (j % 16 == 0) {
            text.push_back('\n');
            append_width10(text, j);
            text.append(" - ");
            append_width10(text, 15 + 16 * static_cast<uint64_t>(j));
            text.append(" : ");
            flush_if_full(out, text);
        }
        append_width10(text, entries[j]);
        text.append(j + 1 < entries.size() ? ", " : ". ");
    }
    if (!entries.empty()) {
        text.push_back('\n');
    }
    flush(out, text);
}

void print_a_directory_entry(std::ostream& out, const Directory_Entry& entry) {
    const std::u16string units = entry.name_units();
    std::string text = "------------------------print_a_directory_entry\nname[";
    text.append(platform::to_utf8(platform::from_utf16(units.data(), units.size())));
    text.append("]\nname_valid_size[");
    append_decimal(text, entry.name_valid_size);
    text.append("]\nobject_type[");
    text.append(object_type_text(entry.object_type));
    text.append("]\ncolor_flag[");
    text.append(color_flag_text(entry.color_flag));
    text.append("]\nleft_sibling_id[");
    append_decimal(text, entry.left_sibling_id);
    text.append("]\nright_sibling_id[");
    append_decimal(text, entry.right_sibling_id);
    text.append("]\nchild_id[");
    append_decimal(text, entry.child_id);
    text.append("]\nclsid{");
    append_entry_bytes(text, entry.clsid);
    text.append("}\nstate_bits{");
    append_entry_bytes(text, entry.state_bits);
    text.append("}\ncreation_time{");
    append_entry_bytes(text, entry.creation_time);
    text.append("}\nmodified_time{");
    append_entry_bytes(text, entry.modified_time);
    text.append("}\nstart_sid[");
    append_decimal(text, entry.start_sid);
    text.append("]\nstream_size[");
    append_decimal(text, entry.stream_size);
    text.append("]\n");
    flush(out, text);
}

int dump_header(const Cfb_Header& header, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    std::string text = "------------------------cfb头部信息------------------------\n";
    text.append("魔数头[magic]:");
    append_field_bytes(text, le_bytes(header.magic));
    text.append("\n文件id[file_id]:");
    append_field_bytes(text, header.file_id);
    text.append("\n次版本号[minor_version]:");
    append_field_bytes(text, header.minor_version);
    text.append("\n主版本号[major_version]:");
    append_field_bytes(text, header.major_version);
    text.append("\n大小端[endian]:");
    append_field_bytes(text, header.endian);
    if (header.endian[0] == 0xFE && header.endian[1] == 0xFF) {
        text.append("是[小端]   ");
    } else if (header.endian[0] == 0xFF && header.endian[1] == 0xFE) {
        text.append("是[大端]   ");
    } else {
        text.append("出错了~   ");
    }
    // The shifts come from the file: reduce them so that any value gives a defined size.
    text.append("\n扇区大小[sector_shift]:");
    append_decimal(text, uint32_t{1} << (header.sector_shift % 32u));
    text.append(" \n小扇区大小[mini_sector_shift]:");
    append_decimal(text, uint32_t{1} << (header.mini_sector_shift % 32u));
    text.append(" \n保留字[reserved_word]:");
    append_field_bytes(text, le_bytes(header.reserved_word));
    text.append("\n保留双字[reserved_dword]:");
    append_field_bytes(text, header.reserved_dword);
    text.append("\n目录流扇区有数[num_of_dir_secs]:   目录流扇区有");
    append_decimal(text, header.num_of_dir_secs);
    text.append("个，注意主版本号为3时这里必是0，因为此时这个字段无效~\n");
    text.append("sat表的扇区数[num_of_sat_secs]:   存放sat的扇区有");
    append_decimal(text, header.num_of_sat_secs);
    text.append("个\n第一个存放dir的扇区id[first_dir_sid]:   [");
    append_decimal(text, header.first_dir_sid);
    text.append("] \n事务签名数（这个没什么卵用）[transaction_sign_num]:");
    append_field_bytes(text, header.transaction_sign_num);
    text.append("\n小流阈值[mini_stream_cutoff_size]:");
    append_decimal(text, header.mini_stream_cutoff_size);
    text.append(" \n第一个存放minisat的扇区id[first_minisat_sid]:   [");
    append_decimal(text, header.first_minisat_sid);
    text.append("] \n用来存放minisat的扇区数[num_of_minisat_secs]:   [");
    append_decimal(text, header.num_of_minisat_secs);
    text.append("]个 \n第一个存放disat的扇区id[first_disat_sid]:   [");
    append_decimal(text, header.first_disat_sid);
    text.append("] \n用来存放disat的扇区数[num_of_disat_secs]:   [");
    append_decimal(text, header.num_of_disat_secs);
    text.append("]个 \n");
    flush(file.stream(), text);
    return 0;
}

int dump_disat(const Cfb_File& cfb, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    std::ostream& out = file.stream();
    std::string text =
        "------------------------disat信息(这是一个数组存放着哪一些sid对应的扇区上放着SAT)"
        "------------------------\n"
        "------------------------放在header中的disat信息：\n";
    uint64_t k = 0;
    for (const sid_t sid : cfb.header_disat) {
        text.append("DISAT_sids[");
        append_decimal(text, k++);
        text.append("]:");
        append_decimal(text, sid);
        text.push_back('\n');
    }
    text.append("------------------------放在扇区中的disat信息：\n");
    for (std::size_t i = 0; i < cfb.disat_sids.size(); ++i) {
        text.append("----------扇区[");
        append_decimal(text, cfb.disat_sids[i]);
        text.append("]中的disat信息：\n");
        if (i < cfb.disat_sector_entries.size()) {
            for (const sid_t sid : cfb.disat_sector_entries[i]) {
                text.append("DISAT_sids[");
                append_decimal(text, k++);
                text.append("]:");
                append_decimal(text, sid);
                text.push_back('\n');
            }
        }
        flush_if_full(out, text);
    }
    flush(out, text);
    return 0;
}

int dump_sat(const Cfb_File& cfb, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    const Table_Texts texts{
        "------------------------sat信息(sat物理上是一个数组结构但是实际上是n条扇区链，"
        "记录扇区间的接续关系)------------------------\n",
        "------------------------std::map<sid_t,sids_array >信息(一个sat扇区上的具体形式)：\n",
        "sat[", "------------------------big_sids_array信息(一个sat扇区上代表的大数组，共计[",
        "------------------------sat提取到的扇区链信息(共计["};
    write_allocation_table(file.stream(), texts, cfb.sat_sector_dicts, cfb.big_sids_array,
                           cfb.sat_sids_lists);
    return 0;
}

int dump_minisat(const Cfb_File& cfb, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    const Table_Texts texts{
        "------------------------minisat信息(minisat物理上是一个超大数组结构但是实际上是n条扇区链，"
        "记录扇区间的接续关系)------------------------\n",
        "------------------------std::map<sid_t,sids_array >信息(一个minisat扇区上的具体形式)：\n",
        "存放minisat的扇区[",
        "------------------------big_sids_array信息(一个minisat扇区上代表的大数组，共计[",
        "------------------------minisat提取到的扇区链信息(共计["};
    write_allocation_table(file.stream(), texts, cfb.minisat_sector_dicts,
                           cfb.minisat_big_sids_array, cfb.minisat_sids_lists);
    return 0;
}

int dump_directory_entry_layout(const Cfb_File& cfb, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    std::ostream& out = file.stream();
    std::string text =
        "------------------------directory_entrys信息(directory_entrys物理上是一个数组结构，"
        "记录文件中仓库和流的信息)------------------------\n\n"
        "------------------------directory_entrys_sids_list信息(目录项存放的扇区链)：\n";
    text.append(print_sids_list(cfb.directory_entrys_sids_list));
    text.append("\n------------------------directory_entry_layout_dicts信息(目录项分布字典)：\n");
    for (const auto& [sid, records] : cfb.directory_entry_layout_dicts) {
        text.append("扇区sid[");
        append_decimal(text, sid);
        text.append("]存放的目录项(DID)是：{ ");
        for (std::size_t i = 0; i < records.size(); ++i) {
            append_decimal(text, records[i].did);
            text.push_back(' ');
            if (i + 1 < records.size()) {
                text.append(", ");
            }
        }
        text.append("}\n");
        flush_if_full(out, text);
    }
    text.append("------------------------directory_entrys信息(directory_entry数组)：\n");
    flush(out, text);
    for (std::size_t i = 0; i < cfb.directory_entrys.size(); ++i) {
        text.append("directory_entrys[");
        append_decimal(text, i);
        text.append("]:\n");
        flush(out, text);
        print_a_directory_entry(out, cfb.directory_entrys[i]);
        out.write("\n\n", 2);
    }
    return 0;
}

int dump_cfb_directory_tree(const Cfb_File& cfb, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    if (cfb.cfb_directory_tree) {
        cfb.cfb_directory_tree->print_cfb_directory_tree(file.stream());
    }
    return 0;
}

int dump_short_stream_container(const Cfb_File& cfb, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    const std::vector<uint8_t>& bytes = cfb.short_stream_container;
    file.stream().write(reinterpret_cast<const char*>(bytes.data()),
                        static_cast<std::streamsize>(bytes.size()));
    return 0;
}

std::wstring write_header_report(const Cfb_File& file) {
    return write_report(file, report_names::kHeaderFolder, report_names::kHeaderFile,
                        [&](const std::wstring& path) { dump_header(file.header, path); });
}

std::wstring write_disat_report(const Cfb_File& file) {
    return write_report(file, report_names::kDisatFolder, report_names::kDisatFile,
                        [&](const std::wstring& path) { dump_disat(file, path); });
}

std::wstring write_sat_report(const Cfb_File& file) {
    return write_report(file, report_names::kSatFolder, report_names::kSatFile,
                        [&](const std::wstring& path) { dump_sat(file, path); });
}

std::wstring write_minisat_report(const Cfb_File& file) {
    return write_report(file, report_names::kMinisatFolder, report_names::kMinisatFile,
                        [&](const std::wstring& path) { dump_minisat(file, path); });
}

std::wstring write_directory_entry_layout_report(const Cfb_File& file) {
    return write_report(file, report_names::kLayoutFolder, report_names::kLayoutFile,
                        [&](const std::wstring& path) { dump_directory_entry_layout(file, path); });
}

std::wstring write_cfb_directory_tree_report(const Cfb_File& file) {
    return write_report(file, report_names::kTreeFolder, report_names::kTreeFile,
                        [&](const std::wstring& path) { dump_cfb_directory_tree(file, path); });
}

std::wstring write_short_stream_container(const Cfb_File& file) {
    return write_report(file, report_names::kContainerFolder, report_names::kContainerFile,
                        [&](const std::wstring& path) { dump_short_stream_container(file, path); });
}

}  // namespace vrk
