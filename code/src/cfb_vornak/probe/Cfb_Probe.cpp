// Damage classification of Cfb_File: is the file a compound file at all, does its directory
// still hold a root entry and the core stream of a known document kind, is its header sound,
// and does the name's extension fit the kind found.
//
// The directory is not located through the header (which may be the damaged part): every
// 128-byte slot of every whole sector is tested for a plausible directory entry instead.
// Every read goes through the checked input view: the check's one pass over the whole file
// (signature search and slot test together) and the repair's slot scan read it in blocks, the
// scan a large file's upper half on a second thread.
#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/probe/Root_Signature_Search.h"
#include "common/aligned_bytes.h"
#include "common/byte_order.h"
#include "common/platform.h"
#include "common/split_pass.h"
#include "file_operation/Input_Blocks.h"
#include "file_operation/Input_View.h"

namespace vrk {

namespace {

// The probe's log lines carry the class's source name and these fixed line numbers.
constexpr char kCfbFileSource[] = "code/src/cfb_vornak/Cfb_File";
constexpr int kLineSearchStart = 2128;
constexpr int kLineCannotOpen = 2132;
constexpr int kLineFound = 2145;
constexpr int kLineNotFound = 2152;

constexpr uint32_t kRootNotFound = 0xFFFFFFFFu;
// The estimate of the short-stream container's size in mini sectors; 63 rather than 64 makes
// it a little generous.
constexpr uint32_t kMiniSectorEstimateDivisor = 63;
// The scan reads bytes 0..123 of a slot only: the last four (the high half of a version-4
// stream size) are never needed.
constexpr std::size_t kSlotReadSize = layout::kEntryBytesRead;
namespace at = layout::entry;

// The name fills `name_valid_size` bytes; the rest of the 64-byte field must be zero.
bool name_shape_plausible(const uint8_t* name, uint16_t name_valid_size) {
    if (name_valid_size < 1 || name_valid_size > at::kNameSize) return false;
    for (std::size_t i = name_valid_size; i < at::kNameSize; ++i) {
        if (name[i] != 0) return false;
    }
    return true;
}

bool link_plausible(uint32_t id) {
    return id <= layout::kMaxItems || id == NOSTREAM;
}

// A stream must fit in the file; a large one must also start inside it.
bool stream_plausible(uint32_t stream_size, sid_t start_sid, uint64_t file_size, uint64_t max_sid) {
    if (!(stream_size < file_size - layout::kHeaderSize)) return false;
    return stream_size <= layout::kMiniStreamCutoff || start_sid <= max_sid;
}

// The same test as Cfb_File::is_plausible_directory_entry, straight off the slot's bytes and
// cheapest field first: almost every slot of stream data fails at the name length.
bool slot_plausible(const uint8_t* slot, uint64_t file_size, uint64_t max_sid) {
    return name_shape_plausible(slot + at::kName, read_u16_le(slot + at::kNameValidSize)) &&
           link_plausible(read_u32_le(slot + at::kLeftSibling)) &&
           link_plausible(read_u32_le(slot + at::kRightSibling)) &&
           link_plausible(read_u32_le(slot + at::kChild)) &&
           stream_plausible(read_u32_le(slot + at::kStreamSize), read_u32_le(slot + at::kStartSid),
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

// The kind named by the first core stream in layout order, or unknown.
Document_Kind core_document_kind(const std::map<uint64_t, std::vector<Directory_Entry>>& layout) {
    using namespace std::string_view_literals;
    for (const auto& [sector, records] : layout) {
        for (const Directory_Entry& record : records) {
            if (name_starts_with(record, u"0Table\0"sv) ||
                name_starts_with(record, u"1Table\0"sv)) {
                return Document_Kind::word_processing;
            }
            if (name_starts_with(record, u"Workbook\0"sv)) return Document_Kind::spreadsheet;
            if (name_starts_with(record, u"PowerPoint Document\0"sv)) {
                return Document_Kind::presentation;
            }
        }
    }
    return Document_Kind::unknown;
}

// The three-letter extensions of the known kinds must name the kind found; any other
// extension passes. The extension is the text after the last "." of the whole path (all of
// it when there is no "."), lower-cased; only ASCII letters can lower-case into the three
// names, so ASCII lower-casing decides the same.
bool extension_fits_kind(const std::wstring& path, Document_Kind kind) {
    const std::size_t dot = path.rfind(L'.');
    std::wstring extension = dot == std::wstring::npos ? path : path.substr(dot + 1);
    if (extension.size() != 3) return true;
    for (wchar_t& c : extension) {
        if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    }
    if (extension == L"doc") return kind == Document_Kind::word_processing;
    if (extension == L"xls") return kind == Document_Kind::spreadsheet;
    if (extension == L"ppt") return kind == Document_Kind::presentation;
    return true;
}

void probe_log(const std::string& message, int line) {
    Cfb_Logger::write(message, kCfbFileSource, line, Cfb_Logger::kInfo);
}

// What one pass over the file found: the name, and (when asked for, and the file has two
// sectors or more) the offsets of every plausible directory slot.
struct Signature_Pass {
    bool opened = false;
    bool found = false;
    bool slots_collected = false;
    uint64_t file_size = 0;
    std::vector<uint64_t> plausible_slots;
};

// Pieces small enough to stay in the core's cache between the name search and the slot test,
// a multiple of the 128-byte slot size and a divisor of the block size.
constexpr std::size_t kPassPiece = std::size_t{64} << 10;
static_assert(Input_Blocks::kBlockSize % kPassPiece == 0);

void collect_plausible_slots(const uint8_t* data, uint64_t from, uint64_t to, uint64_t file_size,
                             uint64_t max_sid, std::vector<uint64_t>& plausible) {
    // `data` holds the bytes from `from` on, whole slots up to `to`.
    for (uint64_t offset = from; offset < to; offset += Directory_Entry::kSize) {
        if (slot_plausible(data + (offset - from), file_size, max_sid)) {
            plausible.push_back(offset);
        }
    }
}

// Searches the whole file for the root entry name through the checked view, and with
// `collect_slots` does the slot scan's first half on the same bytes, so that a check reads the
// file once. A file the view does not open (a zero-length one, or one another process holds
// without read sharing) is searched as a stream.
Signature_Pass signature_pass(const std::wstring& path, bool collect_slots) {
    Signature_Pass pass;
    Input_View view;
    if (view.open(path) != platform::Map_Step::ok) {
        std::ifstream in(platform::to_path(path), std::ios::binary);
        pass.opened = in.is_open();
        pass.found = pass.opened && stream_holds_root_entry_signature(in);
        return pass;
    }
    pass.opened = true;
    const uint64_t size = view.size();
    pass.file_size = size;
    // Below 1024 bytes some slots of sector 0 run past the end; the door's scan handles them.
    pass.slots_collected = collect_slots && size >= layout::kSmallestCompoundFile;
    const uint64_t max_sid =
        pass.slots_collected ? ((size - layout::kSector0Offset) >> layout::kSectorShift) - 1 : 0;
    // Every slot of every whole sector: [512, (max_sid + 2) * 512).
    const uint64_t slots_end = pass.slots_collected ? (max_sid + 2) * layout::kSectorSize : 0;
    constexpr uint64_t lookahead = kRootEntrySignature.size() - 1;
    Input_Blocks blocks(view);
    for (uint64_t block = 0; block < size; block += Input_Blocks::kBlockSize) {
        const uint64_t block_end = std::min<uint64_t>(block + Input_Blocks::kBlockSize, size);
        // The block and the few bytes a match starting in it may run into.
        const uint64_t read_end = std::min<uint64_t>(block_end + lookahead, size);
        const uint8_t* data = blocks.at(block, static_cast<std::size_t>(read_end - block));
        for (uint64_t piece = block; piece < block_end; piece += kPassPiece) {
            const uint64_t piece_end = std::min<uint64_t>(piece + kPassPiece, block_end);
            if (!pass.found) {
                // Every match starting in this piece; it may end in the next one.
                const uint64_t search_end = std::min<uint64_t>(piece_end + lookahead, size);
                pass.found = contains_root_entry_signature(
                    data + (piece - block), static_cast<std::size_t>(search_end - piece));
                if (pass.found && !pass.slots_collected) return pass;
            }
            const uint64_t from = std::max<uint64_t>(piece, layout::kSector0Offset);
            const uint64_t to = std::min(piece_end, slots_end);
            if (from < to) {
                collect_plausible_slots(data + (from - block), from, to, size, max_sid,
                                        pass.plausible_slots);
            }
        }
    }
    return pass;
}

// Logs the search's outcome as the literal stream search does.
bool report_signature(const Signature_Pass& pass) {
    if (!pass.opened) {
        Cfb_Logger::write("无法打开文件！", kCfbFileSource, kLineCannotOpen, Cfb_Logger::kError);
        return false;
    }
    if (pass.found) {
        probe_log("找到了指定的二进制序列,文件是cfb~", kLineFound);
        return true;
    }
    probe_log("没有找到指定的二进制序列,文件不是cfb~", kLineNotFound);
    return false;
}

// The slot bytes for the scan, through the door's checked view: a slot that runs past the end
// of the file fails exactly as a byte-wise read would.
class Slot_Reader {
  public:
    explicit Slot_Reader(Cfb_File& file) : m_view(file.door().view()) {}

    const uint8_t* at(uint64_t offset) { return m_view.bytes(offset, kSlotReadSize); }

  private:
    Input_View& m_view;
};

// The repair's slot scan splits a file of this size or more over two threads.
constexpr uint64_t kSplitScanFrom = uint64_t{8} << 20;

// The scan's second half: from the plausible slots (ascending offsets) choose the root entry
// and fill the scanned layout.
uint32_t choose_root_entry(Cfb_File& file, const std::vector<uint64_t>& plausible) {
    Slot_Reader slots(file);
    const auto record_at = [&](uint64_t offset) {
        const uint64_t index = (offset - layout::kSector0Offset) / layout::kDirectoryEntrySize;
        return decode_directory_entry(slots.at(offset), static_cast<uint32_t>(index));
    };
    // The last root storage in layout (that is, file) order wins.
    const uint64_t* root_offset = nullptr;
    for (const uint64_t& offset : plausible) {
        if (slots.at(offset)[at::kObjectType] == layout::kTypeRootStorage) root_offset = &offset;
    }
    if (root_offset == nullptr) return kRootNotFound;

    file.root_entry = record_at(*root_offset);
    file.mini_sector_count = file.root_entry.stream_size / kMiniSectorEstimateDivisor;
    for (const uint64_t offset : plausible) {
        Directory_Entry record = record_at(offset);
        // A small stream must start inside the estimated short-stream container. Exactly
        // 4096 bytes counts as large here, unlike in the plausibility test.
        if (record.stream_size < layout::kMiniStreamCutoff &&
            record.start_sid > file.mini_sector_count) {
            continue;
        }
        const uint64_t sector = (offset - layout::kSector0Offset) / layout::kSectorSize;
        file.scanned_directory_layout[sector].push_back(record);
    }
    return 0;
}

// check_cfb_core from its second step on, given the scan's result.
Error_Code check_core_after_scan(Cfb_File& file, uint32_t scan_result) {
    if (scan_result == kRootNotFound) return ec::kRootLost;
    const Document_Kind kind = core_document_kind(file.scanned_directory_layout);
    if (kind == Document_Kind::unknown) return ec::kCoreLost;
    file.document_kind = kind;
    file.parse_header();
    const Error_Code header_result = file.validate_header();
    if (header_result != ec::kSuccess) return header_result;
    if (!extension_fits_kind(file.m_input.open_path_wstr, file.document_kind)) {
        return ec::kExtension;
    }
    return ec::kSuccess;
}

}  // namespace

Error_Code Cfb_File::get_cfb_file_damaged_type(const File_Description& input) {
    probe_log("search_root_entry_signature input file:[" + input.path_utf8 + "]", kLineSearchStart);
    const Signature_Pass pass = signature_pass(input.open_path_wstr, true);
    if (!report_signature(pass)) return ec::kNotCfb;
    const auto file = std::make_unique<Cfb_File>(input);
    // The pass saw the same file through a view of its own; should the file have changed size in
    // between, scan again through the door.
    if (!pass.slots_collected || pass.file_size != file->file_size) return check_cfb_core(*file);
    file->scanned_directory_layout.clear();
    return check_core_after_scan(*file, choose_root_entry(*file, pass.plausible_slots));
}

bool Cfb_File::search_root_entry_signature(const File_Description& input) {
    probe_log("search_root_entry_signature input file:[" + input.path_utf8 + "]", kLineSearchStart);
    return report_signature(signature_pass(input.open_path_wstr, false));
}

Error_Code Cfb_File::check_cfb_core(Cfb_File& file) {
    return check_core_after_scan(file, file.find_root_entry_by_scan());
}

uint32_t Cfb_File::find_root_entry_by_scan() {
    scanned_directory_layout.clear();
    // The first half keeps only the offsets of plausible slots: stream data is almost never
    // plausible, and a directory is small next to its file.
    std::vector<uint64_t> plausible;
    Input_View& view = door().view();
    // max_sid is derived from the file size, so this walks each whole sector once: the slots of
    // [512, slots_end). A large file's upper half is tested on a second thread meanwhile.
    const uint64_t slots_end =
        layout::kSector0Offset + (max_sid + 1) * uint64_t{layout::kSectorSize};
    const bool split = file_size >= kSplitScanFrom && slots_end <= file_size;
    const uint64_t half =
        split ? slots_end / 2 / layout::kSectorSize * layout::kSectorSize : slots_end;
    // The upper half is read beside the view (Input_View::read_up_to_beside), and what it finds
    // kept only where every one of its slots was tested.
    std::vector<uint64_t> upper_plausible;
    Split_Pass upper(half, split ? slots_end : half, Input_Blocks::kBlockSize,
                     [&view, &upper_plausible, size = file_size, max = max_sid,
                      block = Aligned_Bytes{}](uint64_t at, uint64_t end) mutable {
                         block.resize(Input_Blocks::kBlockSize);
                         if (view.read_up_to_beside(at, end - at, block.data()) != end - at) {
                             return false;
                         }
                         for (uint64_t slot = 0; slot < end - at;
                              slot += layout::kDirectoryEntrySize) {
                             if (slot_plausible(block.data() + slot, size, max)) {
                                 upper_plausible.push_back(at + slot);
                             }
                         }
                         return true;
                     });
    Input_Blocks blocks(view);
    const auto scan_on_this_thread = [&](uint64_t from, uint64_t to) {
        for (uint64_t offset = from; offset < to; offset += layout::kDirectoryEntrySize) {
            if (slot_plausible(blocks.at(offset, kSlotReadSize), file_size, max_sid)) {
                plausible.push_back(offset);
            }
        }
    };
    if (!split) {
        for (uint64_t sector = 0; sector <= max_sid; ++sector) {
            const uint64_t first = layout::kSector0Offset + sector * layout::kSectorSize;
            scan_on_this_thread(first, first + layout::kSectorSize);
        }
        return choose_root_entry(*this, plausible);
    }
    scan_on_this_thread(layout::kSector0Offset, half);
    // Where the second thread got less than the file held when opened, the slots are read
    // again here, and fail where a read on this thread fails.
    if (upper.finish() == slots_end) {
        plausible.insert(plausible.end(), upper_plausible.begin(), upper_plausible.end());
    } else {
        scan_on_this_thread(half, slots_end);
    }
    return choose_root_entry(*this, plausible);
}

bool Cfb_File::is_plausible_directory_entry(const Directory_Entry& record) const {
    return name_shape_plausible(record.name.data(), record.name_valid_size) &&
           link_plausible(record.left_sibling_id) && link_plausible(record.right_sibling_id) &&
           link_plausible(record.child_id) &&
           stream_plausible(record.stream_size, record.start_sid, file_size, max_sid);
}

}  // namespace vrk
