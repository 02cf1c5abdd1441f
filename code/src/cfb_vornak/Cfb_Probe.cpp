// Damage classification of Cfb_File: is the file a compound file at all, does its directory
// still hold a root entry and the core stream of a known document kind, is its header sound,
// and does the name's extension fit the kind found.
//
// The directory is not located through the header (which may be the damaged part): every
// 128-byte slot of every whole sector is tested for a plausible directory entry instead.
// Both whole-file passes (signature search and slot scan) run over the memory map.
#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Cfb_Logger.h"
#include "cfb_vornak/Root_Signature_Search.h"
#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk {

namespace {

// The probe's log lines carry the class's source name and these fixed line numbers.
constexpr char kCfbFileSource[] = "code/src/cfb_vornak/Cfb_File";
constexpr int kLineSearchStart = 2128;
constexpr int kLineCannotOpen = 2132;
constexpr int kLineFound = 2145;
constexpr int kLineNotFound = 2152;

constexpr uint32_t kRootNotFound = 0xFFFFFFFFu;
constexpr uint8_t kRootStorageType = 5;
constexpr uint32_t kMiniStreamCutoff = 4096;
// The estimate of the short-stream container's size in mini sectors; 63 rather than 64 makes
// it a little generous.
constexpr uint32_t kMiniSectorEstimateDivisor = 63;
constexpr int32_t kKindWord = 0;
constexpr int32_t kKindSheet = 1;
constexpr int32_t kKindSlides = 2;
constexpr int32_t kKindUnknown = 3;

// Offsets inside a 128-byte directory entry. The scan reads bytes 0..123 only: the last four
// (the high half of a version-4 stream size) are never needed.
constexpr std::size_t kNameSize = 64;
constexpr std::size_t kOffNameValidSize = 64;
constexpr std::size_t kOffObjectType = 66;
constexpr std::size_t kOffColor = 67;
constexpr std::size_t kOffLeft = 68;
constexpr std::size_t kOffRight = 72;
constexpr std::size_t kOffChild = 76;
constexpr std::size_t kOffClsid = 80;
constexpr std::size_t kOffStateBits = 96;
constexpr std::size_t kOffCreationTime = 100;
constexpr std::size_t kOffModifiedTime = 108;
constexpr std::size_t kOffStartSid = 116;
constexpr std::size_t kOffStreamSize = 120;
constexpr std::size_t kSlotReadSize = 124;

template <std::size_t N>
void copy_bytes(const uint8_t* from, std::array<uint8_t, N>& to) {
    std::memcpy(to.data(), from, N);
}

Directory_Entry decode_slot(const uint8_t* slot, uint32_t did) {
    Directory_Entry record;
    copy_bytes(slot, record.name);
    record.name_valid_size = read_u16_le(slot + kOffNameValidSize);
    record.object_type = slot[kOffObjectType];
    record.color_flag = slot[kOffColor];
    record.left_sibling_id = read_u32_le(slot + kOffLeft);
    record.right_sibling_id = read_u32_le(slot + kOffRight);
    record.child_id = read_u32_le(slot + kOffChild);
    copy_bytes(slot + kOffClsid, record.clsid);
    copy_bytes(slot + kOffStateBits, record.state_bits);
    copy_bytes(slot + kOffCreationTime, record.creation_time);
    copy_bytes(slot + kOffModifiedTime, record.modified_time);
    record.start_sid = read_u32_le(slot + kOffStartSid);
    record.stream_size = read_u32_le(slot + kOffStreamSize);
    record.did = did;
    return record;
}

// The name fills `name_valid_size` bytes; the rest of the 64-byte field must be zero.
bool name_shape_plausible(const uint8_t* name, uint16_t name_valid_size) {
    if (name_valid_size < 1 || name_valid_size > kNameSize) return false;
    for (std::size_t i = name_valid_size; i < kNameSize; ++i) {
        if (name[i] != 0) return false;
    }
    return true;
}

bool link_plausible(uint32_t id, uint32_t max_items) {
    return id <= max_items || id == NOSTREAM;
}

// A stream must fit in the file; a large one must also start inside it.
bool stream_plausible(uint32_t stream_size, sid_t start_sid, uint64_t file_size, uint64_t max_sid) {
    if (!(stream_size < file_size - 512u)) return false;
    return stream_size <= kMiniStreamCutoff || start_sid <= max_sid;
}

// The same test as Cfb_File::is_plausible_directory_entry, straight off the slot's bytes and
// cheapest field first: almost every slot of stream data fails at the name length.
bool slot_plausible(const uint8_t* slot, uint32_t max_items, uint64_t file_size, uint64_t max_sid) {
    return name_shape_plausible(slot, read_u16_le(slot + kOffNameValidSize)) &&
           link_plausible(read_u32_le(slot + kOffLeft), max_items) &&
           link_plausible(read_u32_le(slot + kOffRight), max_items) &&
           link_plausible(read_u32_le(slot + kOffChild), max_items) &&
           stream_plausible(read_u32_le(slot + kOffStreamSize), read_u32_le(slot + kOffStartSid),
                            file_size, max_sid);
}

// True when the name field starts with `units` (the terminating zero included), compared
// as UTF-16LE code units; the stated name length is not consulted.
bool name_starts_with(const Directory_Entry& record, std::u16string_view units) {
    if (units.size() * 2 > record.name.size()) return false;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (read_u16_le(record.name.data() + 2 * i) != units[i]) return false;
    }
    return true;
}

// The kind named by the first core stream in layout order, or kKindUnknown.
int32_t core_document_kind(const std::map<uint64_t, std::vector<Directory_Entry>>& layout) {
    using namespace std::string_view_literals;
    for (const auto& [sector, records] : layout) {
        for (const Directory_Entry& record : records) {
            if (name_starts_with(record, u"0Table\0"sv) ||
                name_starts_with(record, u"1Table\0"sv)) {
                return kKindWord;
            }
            if (name_starts_with(record, u"Workbook\0"sv)) return kKindSheet;
            if (name_starts_with(record, u"PowerPoint Document\0"sv)) return kKindSlides;
        }
    }
    return kKindUnknown;
}

// The three-letter extensions of the known kinds must name the kind found; any other
// extension passes. The extension is the text after the last "." of the whole path (all of
// it when there is no "."), lower-cased; only ASCII letters can lower-case into the three
// names, so ASCII lower-casing decides the same.
bool extension_fits_kind(const std::wstring& path, int32_t kind) {
    const std::size_t dot = path.rfind(L'.');
    std::wstring extension = dot == std::wstring::npos ? path : path.substr(dot + 1);
    if (extension.size() != 3) return true;
    for (wchar_t& c : extension) {
        if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    }
    if (extension == L"doc") return kind == kKindWord;
    if (extension == L"xls") return kind == kKindSheet;
    if (extension == L"ppt") return kind == kKindSlides;
    return true;
}

void probe_log(const std::string& message, int line) {
    Cfb_Logger::write(message, kCfbFileSource, line, Cfb_Logger::kInfo);
}

// Searches the whole file through a read-only map; a file that cannot be mapped (a
// zero-length one, or one another process holds without read sharing) is read as a stream.
// False with `opened` false when the file cannot be read at all.
bool file_holds_root_entry_signature(const std::wstring& path, bool& opened) {
    platform::Mapped_File mapped;
    if (platform::map_file(path, mapped) == platform::Map_Step::ok) {
        opened = true;
        const bool found = find_root_entry_signature(mapped.data, mapped.size) != nullptr;
        platform::unmap_file(mapped);
        return found;
    }
    std::ifstream in(platform::to_path(path), std::ios::binary);
    opened = in.is_open();
    return opened && stream_holds_root_entry_signature(in);
}

}  // namespace

Error_Code Cfb_File::get_cfb_file_damaged_type(const File_Description& input) {
    if (!search_root_entry_signature(input)) return ec::kNotCfb;
    const auto file = std::make_unique<Cfb_File>(input);
    return check_cfb_core(*file);
}

bool Cfb_File::search_root_entry_signature(const File_Description& input) {
    probe_log("search_root_entry_signature input file:[" + input.path_utf8 + "]", kLineSearchStart);
    bool opened = false;
    const bool found = file_holds_root_entry_signature(input.open_path_wstr, opened);
    if (!opened) {
        Cfb_Logger::write("无法打开文件！", kCfbFileSource, kLineCannotOpen, Cfb_Logger::kError);
        return false;
    }
    if (found) {
        probe_log("找到了指定的二进制序列,文件是cfb~", kLineFound);
        return true;
    }
    probe_log("没有找到指定的二进制序列,文件不是cfb~", kLineNotFound);
    return false;
}

Error_Code Cfb_File::check_cfb_core(Cfb_File& file) {
    if (file.find_root_entry_by_scan() == kRootNotFound) return ec::kRootLost;
    const int32_t kind = core_document_kind(file.scanned_directory_layout);
    if (kind == kKindUnknown) return ec::kCoreLost;
    file.document_kind = kind;
    file.parse_header();
    const Error_Code header_result = file.validate_header();
    if (header_result != ec::kSuccess) return header_result;
    if (!extension_fits_kind(file.m_input.open_path_wstr, file.document_kind)) {
        return ec::kExtension;
    }
    return ec::kSuccess;
}

uint32_t Cfb_File::find_root_entry_by_scan() {
    scanned_directory_layout.clear();
    // Pass 1 keeps only the offsets of plausible slots: stream data is almost never
    // plausible, and a directory is small next to its file.
    std::vector<uint64_t> accepted;
    const uint8_t* const mapped = m_door->mapped_data();
    std::array<uint8_t, kSlotReadSize> copied{};
    const auto slot_at = [&](uint64_t offset) -> const uint8_t* {
        if (mapped == nullptr) {
            m_door->copy_data_to_mem(offset, kSlotReadSize, copied.data());
            return copied.data();
        }
        // A byte-wise read would fail at the first byte past the end.
        if (!range_inside(offset, kSlotReadSize, file_size)) {
            m_door->throw_out_of_range(offset < file_size ? file_size : offset);
        }
        // The map is the whole file, read-only, and the range was checked just above.
        return mapped + offset;
    };
    // max_sid is derived from the file size, so this walks each whole sector once.
    for (uint64_t sector = 0; sector <= max_sid; ++sector) {
        for (uint32_t slot = 0; slot < directory_entries_per_sector; ++slot) {
            const uint64_t offset =
                sector0_offset +
                uint64_t{directory_entry_size} * (sector * directory_entries_per_sector + slot);
            if (slot_plausible(slot_at(offset), max_items, file_size, max_sid)) {
                accepted.push_back(offset);
            }
        }
    }

    const auto record_at = [&](uint64_t offset) {
        const uint64_t index = (offset - sector0_offset) / directory_entry_size;
        return decode_slot(slot_at(offset), static_cast<uint32_t>(index));
    };
    const auto sector_of = [&](uint64_t offset) {
        return (offset - sector0_offset) / fixed_sector_size;
    };

    // The last root storage in layout (that is, file) order wins.
    const uint64_t* root_offset = nullptr;
    for (const uint64_t& offset : accepted) {
        if (slot_at(offset)[kOffObjectType] == kRootStorageType) root_offset = &offset;
    }
    if (root_offset == nullptr) return kRootNotFound;

    root_entry = record_at(*root_offset);
    mini_sector_count = root_entry.stream_size / kMiniSectorEstimateDivisor;
    for (const uint64_t offset : accepted) {
        Directory_Entry record = record_at(offset);
        // A small stream must start inside the estimated short-stream container. Exactly
        // 4096 bytes counts as large here, unlike in the plausibility test.
        if (record.stream_size < kMiniStreamCutoff && record.start_sid > mini_sector_count) {
            continue;
        }
        scanned_directory_layout[sector_of(offset)].push_back(std::move(record));
    }
    return 0;
}

bool Cfb_File::is_plausible_directory_entry(const Directory_Entry& record) const {
    return name_shape_plausible(record.name.data(), record.name_valid_size) &&
           link_plausible(record.left_sibling_id, max_items) &&
           link_plausible(record.right_sibling_id, max_items) &&
           link_plausible(record.child_id, max_items) &&
           stream_plausible(record.stream_size, record.start_sid, file_size, max_sid);
}

}  // namespace vrk
