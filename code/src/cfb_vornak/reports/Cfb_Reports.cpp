#include "cfb_vornak/reports/Cfb_Reports.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <numeric>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "cfb_vornak/model/Sids_Text.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

constexpr std::size_t kTextBuffer = std::size_t{1} << 18;
constexpr std::size_t kFileBuffer = std::size_t{1} << 16;

// "00" to "99": numbers are formatted two digits at a time.
constexpr std::array<char, 200> kDigitPairs = [] {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// Writes the decimal digits of `value` so that they end just before `end`; returns where
// they start.
char* put_digits_before(char* end, uint64_t value) {
    while (value >= 100) {
        end -= 2;
        std::memcpy(end, kDigitPairs.data() + 2 * (value % 100), 2);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        std::memcpy(end, kDigitPairs.data() + 2 * value, 2);
    } else {
        *--end = static_cast<char>('0' + value);
    }
    return end;
}

// `value` right-aligned in a field of ten characters padded with blanks (wider when it has
// more digits) at `out`; returns the end. A 32-bit value always takes exactly ten.
char* put_width10(char* out, uint64_t value) {
    constexpr std::size_t kWidth = 10;
    if (value <= std::numeric_limits<uint32_t>::max()) {
        std::memset(out, ' ', kWidth);
        put_digits_before(out + kWidth, value);
        return out + kWidth;
    }
    std::array<char, 20> digits{};
    char* const end = digits.data() + digits.size();
    const char* const first = put_digits_before(end, value);
    const auto length = static_cast<std::size_t>(end - first);
    std::memcpy(out, first, length);
    return out + length;
}

// Writes the characters of a string literal at `out`; returns the end.
template <std::size_t N>
char* put(char* out, const char (&text)[N]) {
    std::memcpy(out, text, N - 1);
    return out + N - 1;
}

// Formats the 32-bit ids of a table, which mostly follow each other: a value one above the
// last one, whose last digit does not carry, is the last field with its last digit raised.
// The field itself is rewritten only when a value does not follow: the raise goes to the
// copy, so that the next copy does not wait for a one-byte store into the field.
class Id_Field {
  public:
    static constexpr std::size_t kWidth = 10;

    // `value` right-aligned in ten characters padded with blanks; returns the end.
    char* width10(char* out, uint32_t value) {
        take(value);
        std::memcpy(out, m_text.data(), kWidth);
        out[kWidth - 1] = static_cast<char>(out[kWidth - 1] + m_raise);
        return out + kWidth;
    }
    // The digits of `value` alone; ten characters are written, the end of the digits returned.
    char* decimal(char* out, uint32_t value) {
        take(value);
        std::memcpy(out, m_text.data() + m_first, kWidth);
        const std::size_t length = kWidth - m_first;
        out[length - 1] = static_cast<char>(out[length - 1] + m_raise);
        return out + length;
    }

  private:
    void take(uint32_t value) {
        if (m_valid && uint64_t{value} == uint64_t{m_value} + 1 &&
            m_text[kWidth - 1] + m_raise < '9') {
            ++m_raise;
        } else {
            m_text.fill(' ');
            m_first = static_cast<std::size_t>(put_digits_before(m_text.data() + kWidth, value) -
                                               m_text.data());
            m_raise = 0;
            m_valid = true;
        }
        m_value = value;
    }

    // The field and ten blanks after it, so that ten characters can be copied from any digit.
    std::array<char, 2 * kWidth> m_text{};
    std::size_t m_first = 0;
    int m_raise = 0;
    uint32_t m_value = 0;
    bool m_valid = false;
};

// Report text gathered in a buffer of its own and handed to the stream in large writes;
// numbers are formatted in place. Whatever is left is written when the object goes.
class Report_Text {
  public:
    // The buffer is left uninitialised: a short report touches only the pages it fills.
    explicit Report_Text(std::ostream& out) : m_out(out), m_buffer(new char[kTextBuffer]) {}
    ~Report_Text() { flush(); }
    Report_Text(const Report_Text&) = delete;
    Report_Text& operator=(const Report_Text&) = delete;

    void add(std::string_view text) {
        if (text.size() > kTextBuffer - m_used) {
            flush();
            if (text.size() > kTextBuffer) {
                m_out.write(text.data(), static_cast<std::streamsize>(text.size()));
                return;
            }
        }
        std::memcpy(m_buffer.get() + m_used, text.data(), text.size());
        m_used += text.size();
    }
    void add(char c) {
        make_room(1);
        m_buffer[m_used++] = c;
    }
    void decimal(uint64_t value) {
        make_room(kNumberRoom);
        char* const at = m_buffer.get() + m_used;
        m_used += static_cast<std::size_t>(std::to_chars(at, at + kNumberRoom, value).ptr - at);
    }
    // Right-aligned in a field of ten characters, padded with blanks.
    void width10(uint64_t value) {
        make_room(kNumberRoom);
        m_used += static_cast<std::size_t>(put_width10(m_buffer.get() + m_used, value) -
                                           (m_buffer.get() + m_used));
    }
    // Room for `n` more characters, written from the pointer returned; `commit` takes them.
    char* room(std::size_t n) {
        make_room(n);
        return m_buffer.get() + m_used;
    }
    void commit(const char* end) { m_used = static_cast<std::size_t>(end - m_buffer.get()); }
    void hex(uint64_t value) {
        make_room(kNumberRoom);
        char* const at = m_buffer.get() + m_used;
        m_used += static_cast<std::size_t>(std::to_chars(at, at + kNumberRoom, value, 16).ptr - at);
    }
    void flush() {
        m_out.write(m_buffer.get(), static_cast<std::streamsize>(m_used));
        m_used = 0;
    }

    static constexpr std::size_t kNumberRoom = 24;  // any 64-bit number, width 10 included

  private:
    void make_room(std::size_t n) {
        if (kTextBuffer - m_used < n) {
            flush();
        }
    }

    std::ostream& m_out;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_used = 0;
};

// Each byte in lower-case hexadecimal, two wide, padded with a blank, followed by a blank.
template <std::size_t N>
void add_field_bytes(Report_Text& text, const std::array<uint8_t, N>& bytes) {
    for (const uint8_t byte : bytes) {
        if (byte < 16) {
            text.add(' ');
        }
        text.hex(byte);
        text.add(' ');
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
void add_entry_bytes(Report_Text& text, const std::array<uint8_t, N>& bytes) {
    for (std::size_t i = 0; i < N; ++i) {
        if (i != 0) {
            text.add(", ");
        }
        text.hex(bytes[i]);
        text.add(' ');
    }
}

// A report file opened for binary writing with a large buffer; not open when the file system
// refuses it.
class Report_File {
  public:
    explicit Report_File(const std::wstring& path) : m_buffer(kFileBuffer) {
        m_out.rdbuf()->pubsetbuf(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
        fs::remove_link_at(path);
        m_out.open(platform::to_path(path), std::ios::binary | std::ios::out | std::ios::trunc);
    }
    bool is_open() const { return m_out.is_open(); }
    std::ostream& stream() { return m_out; }

  private:
    std::vector<char> m_buffer;
    std::ofstream m_out;
};

void add_table_rows(Report_Text& text, const sid_t* entries, std::size_t count) {
    constexpr std::size_t kPerRow = 16;
    constexpr std::size_t kRowRoom = 2 * Report_Text::kNumberRoom + 8 + kPerRow * 12;
    Id_Field ids;
    for (std::size_t row = 0; row < count; row += kPerRow) {
        const std::size_t end = std::min(count, row + kPerRow);
        char* out = text.room(kRowRoom);
        *out++ = '\n';
        out = put_width10(out, row);
        out = put(out, " - ");
        out = put_width10(out, 15 + 16 * static_cast<uint64_t>(row));
        out = put(out, " : ");
        for (std::size_t j = row; j < end; ++j) {
            out = ids.width10(out, entries[j]);
            *out++ = ',';
            *out++ = ' ';
        }
        if (end == count) {
            out[-2] = '.';
        }
        text.commit(out);
    }
    if (count != 0) {
        text.add('\n');
    }
}

void add_directory_entry(Report_Text& text, const Directory_Entry& entry) {
    const std::u16string units = entry.name_units();
    text.add("------------------------print_a_directory_entry\nname[");
    text.add(platform::to_utf8(platform::from_utf16(units.data(), units.size())));
    text.add("]\nname_valid_size[");
    text.decimal(entry.name_valid_size);
    text.add("]\nobject_type[");
    text.add(object_type_text(entry.object_type));
    text.add("]\ncolor_flag[");
    text.add(color_flag_text(entry.color_flag));
    text.add("]\nleft_sibling_id[");
    text.decimal(entry.left_sibling_id);
    text.add("]\nright_sibling_id[");
    text.decimal(entry.right_sibling_id);
    text.add("]\nchild_id[");
    text.decimal(entry.child_id);
    text.add("]\nclsid{");
    add_entry_bytes(text, entry.clsid);
    text.add("}\nstate_bits{");
    add_entry_bytes(text, entry.state_bits);
    text.add("}\ncreation_time{");
    add_entry_bytes(text, entry.creation_time);
    text.add("}\nmodified_time{");
    add_entry_bytes(text, entry.modified_time);
    text.add("}\nstart_sid[");
    text.decimal(entry.start_sid);
    text.add("]\nstream_size[");
    text.decimal(entry.stream_size);
    text.add("]\n");
}

struct Table_Texts {
    const char* title;
    const char* dicts_heading;
    const char* dict_key_prefix;
    const char* big_array_heading;
    const char* chains_heading;
};

// The entries of one reading of a table sector: cut to the table, so that a record that does
// not fit it shows what the table holds.
std::pair<const sid_t*, std::size_t> sector_entries(const Table_Sector& sector,
                                                    const sids_array& table) {
    const std::size_t first = std::min(sector.first, table.size());
    return {table.data() + first, std::min<std::size_t>(sector.count, table.size() - first)};
}

// Each sector under its id in ascending order; the readings of a sector read more than once
// are joined in reading order under one id.
void add_sector_dicts(Report_Text& text, const char* key_prefix,
                      const std::vector<Table_Sector>& sectors, const sids_array& table) {
    std::vector<std::size_t> order(sectors.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return sectors[a].sid < sectors[b].sid; });
    sids_array joined;
    for (std::size_t i = 0; i < order.size();) {
        const sid_t sid = sectors[order[i]].sid;
        std::size_t end = i + 1;
        while (end < order.size() && sectors[order[end]].sid == sid) {
            ++end;
        }
        text.add(key_prefix);
        text.decimal(sid);
        text.add("]：");
        if (end == i + 1) {
            const auto [entries, count] = sector_entries(sectors[order[i]], table);
            add_table_rows(text, entries, count);
        } else {
            joined.clear();
            for (std::size_t k = i; k < end; ++k) {
                const auto [entries, count] = sector_entries(sectors[order[k]], table);
                joined.insert(joined.end(), entries, entries + count);
            }
            add_table_rows(text, joined.data(), joined.size());
        }
        i = end;
    }
}

// Each chain's ids from its head along the table, "->" between them, " ]\n" after the last.
void add_chain(Report_Text& text, const Chain_Extent& chain, const sids_array& table,
               Id_Field& ids) {
    sid_t id = chain.head;
    for (uint32_t k = 0; k < chain.length; ++k) {
        char* out = text.room(Report_Text::kNumberRoom);
        out = ids.decimal(out, id);
        // Only the last id of a chain can lie outside the table; the test keeps the walk in
        // it whatever the record says.
        const bool last = k + 1 == chain.length || id >= table.size();
        out = last ? put(out, " ]\n") : put(out, "->");
        text.commit(out);
        if (last) {
            break;
        }
        id = table[id];
    }
}

void write_allocation_table(std::ostream& out, const Table_Texts& texts,
                            const std::vector<Table_Sector>& sectors, const sids_array& big,
                            const std::vector<Chain_Extent>& chains) {
    Report_Text text(out);
    text.add(texts.title);
    text.add(texts.dicts_heading);
    add_sector_dicts(text, texts.dict_key_prefix, sectors, big);
    text.add(texts.big_array_heading);
    text.decimal(big.size());
    text.add("]项)：\n");
    add_table_rows(text, big.data(), big.size());
    text.add(texts.chains_heading);
    text.decimal(chains.size());
    text.add("]条)：\n");
    Id_Field ids;
    for (std::size_t i = 0; i < chains.size(); ++i) {
        text.add("----------第[");
        text.width10(i);
        text.add("]条的信息：");
        add_chain(text, chains[i], big, ids);
    }
}

std::wstring utf8_to_wide(const char* text) {
    return platform::from_utf8(text);
}

// Creates the report's folder; a folder the file system refuses leaves the report unwritten.
void make_report_folder(const std::wstring& report_file_path) {
    try {
        (void)fs::make_parent_folder(report_file_path);  // a missing folder fails the open
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
    Report_Text text(out);
    add_table_rows(text, entries.data(), entries.size());
}

void print_a_directory_entry(std::ostream& out, const Directory_Entry& entry) {
    Report_Text text(out);
    add_directory_entry(text, entry);
}

int dump_header(const Cfb_Header& header, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    Report_Text text(file.stream());
    text.add("------------------------cfb头部信息------------------------\n");
    text.add("魔数头[magic]:");
    add_field_bytes(text, le_bytes(header.magic));
    text.add("\n文件id[file_id]:");
    add_field_bytes(text, header.file_id);
    text.add("\n次版本号[minor_version]:");
    add_field_bytes(text, header.minor_version);
    text.add("\n主版本号[major_version]:");
    add_field_bytes(text, header.major_version);
    text.add("\n大小端[endian]:");
    add_field_bytes(text, header.endian);
    if (header.endian[0] == 0xFE && header.endian[1] == 0xFF) {
        text.add("是[小端]   ");
    } else if (header.endian[0] == 0xFF && header.endian[1] == 0xFE) {
        text.add("是[大端]   ");
    } else {
        text.add("出错了~   ");
    }
    // The shifts come from the file: reduce them so that any value gives a defined size.
    text.add("\n扇区大小[sector_shift]:");
    text.decimal(uint32_t{1} << (header.sector_shift % 32u));
    text.add(" \n小扇区大小[mini_sector_shift]:");
    text.decimal(uint32_t{1} << (header.mini_sector_shift % 32u));
    text.add(" \n保留字[reserved_word]:");
    add_field_bytes(text, le_bytes(header.reserved_word));
    text.add("\n保留双字[reserved_dword]:");
    add_field_bytes(text, header.reserved_dword);
    text.add("\n目录流扇区有数[num_of_dir_secs]:   目录流扇区有");
    text.decimal(header.num_of_dir_secs);
    text.add("个，注意主版本号为3时这里必是0，因为此时这个字段无效~\n");
    text.add("sat表的扇区数[num_of_sat_secs]:   存放sat的扇区有");
    text.decimal(header.num_of_sat_secs);
    text.add("个\n第一个存放dir的扇区id[first_dir_sid]:   [");
    text.decimal(header.first_dir_sid);
    text.add("] \n事务签名数（这个没什么卵用）[transaction_sign_num]:");
    add_field_bytes(text, header.transaction_sign_num);
    text.add("\n小流阈值[mini_stream_cutoff_size]:");
    text.decimal(header.mini_stream_cutoff_size);
    text.add(" \n第一个存放minisat的扇区id[first_minisat_sid]:   [");
    text.decimal(header.first_minisat_sid);
    text.add("] \n用来存放minisat的扇区数[num_of_minisat_secs]:   [");
    text.decimal(header.num_of_minisat_secs);
    text.add("]个 \n第一个存放disat的扇区id[first_disat_sid]:   [");
    text.decimal(header.first_disat_sid);
    text.add("] \n用来存放disat的扇区数[num_of_disat_secs]:   [");
    text.decimal(header.num_of_disat_secs);
    text.add("]个 \n");
    return 0;
}

int dump_disat(const Cfb_File& cfb, const std::wstring& path) {
    Report_File file(path);
    if (!file.is_open()) {
        return 0;
    }
    Report_Text text(file.stream());
    text.add(
        "------------------------disat信息(这是一个数组存放着哪一些sid对应的扇区上放着SAT)"
        "------------------------\n"
        "------------------------放在header中的disat信息：\n");
    uint64_t k = 0;
    const auto add_entry = [&](sid_t sid) {
        text.add("DISAT_sids[");
        text.decimal(k++);
        text.add("]:");
        text.decimal(sid);
        text.add('\n');
    };
    for (const sid_t sid : cfb.header_disat) {
        add_entry(sid);
    }
    text.add("------------------------放在扇区中的disat信息：\n");
    for (std::size_t i = 0; i < cfb.disat_sids.size(); ++i) {
        text.add("----------扇区[");
        text.decimal(cfb.disat_sids[i]);
        text.add("]中的disat信息：\n");
        if (i < cfb.disat_sector_entries.size()) {
            for (const sid_t sid : cfb.disat_sector_entries[i]) {
                add_entry(sid);
            }
        }
    }
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
    Report_Text text(file.stream());
    text.add(
        "------------------------directory_entrys信息(directory_entrys物理上是一个数组结构，"
        "记录文件中仓库和流的信息)------------------------\n\n"
        "------------------------directory_entrys_sids_list信息(目录项存放的扇区链)：\n");
    text.add(print_sids_list(cfb.directory_entrys_sids_list));
    text.add("\n------------------------directory_entry_layout_dicts信息(目录项分布字典)：\n");
    for (const auto& [sid, records] : cfb.directory_entry_layout_dicts) {
        text.add("扇区sid[");
        text.decimal(sid);
        text.add("]存放的目录项(DID)是：{ ");
        for (std::size_t i = 0; i < records.size(); ++i) {
            text.decimal(records[i].did);
            text.add(' ');
            if (i + 1 < records.size()) {
                text.add(", ");
            }
        }
        text.add("}\n");
    }
    text.add("------------------------directory_entrys信息(directory_entry数组)：\n");
    for (std::size_t i = 0; i < cfb.directory_entrys.size(); ++i) {
        text.add("directory_entrys[");
        text.decimal(i);
        text.add("]:\n");
        add_directory_entry(text, cfb.directory_entrys[i]);
        text.add("\n\n");
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
