// The builder works in three steps:
// 1. Flatten the item tree into directory entries (root first, each storage's children given
//    consecutive ids in name order) and link each storage's children as a sibling tree.
// 2. Plan the sectors: mini streams packed into the short-stream container, every other table
//    and stream given one contiguous run of sector ids, in the order the options ask for, with
//    enough SAT and DISAT sectors to cover the whole file and free padding where the strict
//    header checks would otherwise reject the file.
// 3. Emit the header, the tables and the stream data in file order to a sink: a byte vector
//    or an output file, to which stream data goes straight from the items.
#include "cfb_vornak/builder/Cfb_Builder.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "cfb_vornak/builder/Prepared_Output.h"
#include "cfb_vornak/builder/Sibling_Tree_Layout.h"
#include "cfb_vornak/format/Cfb_Header.h"
#include "cfb_vornak/format/Directory_Entry.h"
#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk {

namespace {

constexpr uint32_t kMiniStreamCutoff = layout::kMiniStreamCutoff;
constexpr uint32_t kMiniSectorSize = layout::kMiniSectorSize;
constexpr uint32_t kDirEntrySize = layout::kDirectoryEntrySize;
constexpr std::size_t kMaxNameUnits = 31;
using layout::kTypeStorage;
using layout::kTypeStream;
constexpr uint8_t kTypeRoot = layout::kTypeRootStorage;

struct Flat_Entry {
    const Cfb_Fs_Item_AbstractNode* node = nullptr;
    std::u16string name;
    std::u16string path;
    uint8_t type = 0;
    uint32_t child = NOSTREAM;
    sid_t start = ENDOFCHAIN;
    uint32_t size = 0;
    bool in_mini = false;
    bool orphan = false;  // no link from the root reaches it
};

// The contiguous runs of the file, in file order.
enum class Region { older, sat, disat, minisat, directory, spare, container, streams, padding };

struct Plan {
    uint32_t sector_size = 512;
    uint32_t minisat_sectors = 0;
    uint32_t directory_sectors = 0;
    uint32_t container_sectors = 0;
    uint32_t stream_sectors = 0;
    uint32_t sat_sectors = 0;
    uint32_t disat_sectors = 0;
    uint32_t padding_sectors = 0;
    uint32_t older_sectors = 0;
    uint32_t spare_sectors = 0;  // free sectors right after the directory
    std::vector<Region> order;
    // First sector id of each region, indexed by Region.
    sid_t first[9] = {};

    uint32_t count(Region r) const {
        switch (r) {
            case Region::older:
                return older_sectors;
            case Region::sat:
                return sat_sectors;
            case Region::disat:
                return disat_sectors;
            case Region::minisat:
                return minisat_sectors;
            case Region::directory:
                return directory_sectors;
            case Region::spare:
                return spare_sectors;
            case Region::container:
                return container_sectors;
            case Region::streams:
                return stream_sectors;
            case Region::padding:
                return padding_sectors;
        }
        return 0;
    }
    uint64_t total() const {
        return uint64_t{sat_sectors} + disat_sectors + minisat_sectors + directory_sectors +
               container_sectors + stream_sectors + padding_sectors + older_sectors + spare_sectors;
    }
    sid_t start(Region r) const { return first[static_cast<int>(r)]; }
};

uint64_t ceil_div(uint64_t a, uint64_t b) {
    return (a + b - 1) / b;
}

class Sink {
  public:
    virtual ~Sink() = default;
    virtual void write(const uint8_t* data, std::size_t size) = 0;
    // Sinks that write a file can have runs of another file copied into it.
    [[nodiscard]] virtual bool copies_files() const { return false; }
    virtual void copy(const platform::Input_File& /*file*/, uint64_t /*offset*/,
                      uint64_t /*length*/) {}
    void write_zeros(std::size_t size) {
        static const uint8_t zeros[4096] = {};
        while (size > 0) {
            const std::size_t n = std::min(size, sizeof(zeros));
            write(zeros, n);
            size -= n;
        }
    }
};

class Vector_Sink final : public Sink {
  public:
    explicit Vector_Sink(std::vector<uint8_t>& out) : m_out(out) {}
    void write(const uint8_t* data, std::size_t size) override {
        m_out.insert(m_out.end(), data, data + size);
    }

  private:
    std::vector<uint8_t>& m_out;
};

// Small writes gather in a buffer; once one write fails, nothing more is written.
class File_Sink final : public Sink {
  public:
    explicit File_Sink(platform::Output_File& out) : m_out(out) { m_buffer.reserve(kBuffer); }
    void write(const uint8_t* data, std::size_t size) override {
        if (m_buffer.size() + size > kBuffer) flush();
        if (size >= kBuffer) {
            m_ok = m_ok && m_out.write(data, size);
            return;
        }
        m_buffer.insert(m_buffer.end(), data, data + size);
    }
    [[nodiscard]] bool copies_files() const override { return true; }
    void copy(const platform::Input_File& file, uint64_t offset, uint64_t length) override {
        flush();
        m_ok = m_ok && m_out.append_range(file, offset, length) == length;
    }
    // Writes what is still buffered; false when any write failed.
    bool finish() {
        flush();
        return m_ok;
    }

  private:
    void flush() {
        if (!m_buffer.empty()) m_ok = m_ok && m_out.write(m_buffer.data(), m_buffer.size());
        m_buffer.clear();
    }

    static constexpr std::size_t kBuffer = std::size_t{1} << 20;
    platform::Output_File& m_out;
    std::vector<uint8_t> m_buffer;
    bool m_ok = true;
};

class Builder {
  public:
    Builder(const Cfb_Fs_Item_DirNode& root, const Builder_Options& options,
            const Stream_Source* source = nullptr)
        : m_options(options), m_source(source) {
        if (options.major_version != 3 && options.major_version != 4) {
            throw std::invalid_argument("build_compound_file: major version must be 3 or 4");
        }
        m_plan.sector_size = options.major_version == 4 ? 4096 : 512;
        const std::size_t older = options.older_save.size();
        if (older != 0 && (older % m_plan.sector_size != 0 || older < 2 * m_plan.sector_size)) {
            throw std::invalid_argument(
                "build_compound_file: an older save must be whole sectors after its header");
        }
        m_plan.older_sectors =
            older == 0 ? 0 : static_cast<uint32_t>(older / m_plan.sector_size - 1);
        flatten(root);
        place_mini_streams();
        if (options.bad_record != Bad_Record::none) {
            for (uint32_t did = 1; did < m_entries.size() && m_bad_record == NOSTREAM; ++did) {
                if (m_entries[did].type == kTypeStream &&
                    m_entries[did].path == m_entries[did].name)
                    m_bad_record = did;
            }
        }
        plan_sectors();
        place_sectors();
        fill_tables();
    }

    uint64_t file_size() const { return (m_plan.total() + 1) * m_plan.sector_size; }
    void emit(Sink& sink) const;
    void describe(Build_Layout& layout) const;

  private:
    void flatten(const Cfb_Fs_Item_DirNode& root);
    uint32_t add_children(const Cfb_Fs_Item_DirNode& storage, const std::u16string& prefix,
                          const Flat_Entry* orphan_parent = nullptr);
    void place_mini_streams();
    void plan_sectors();
    bool passes_header_checks() const;
    void place_sectors();
    void fill_tables();
    void emit_header(Sink& sink) const;
    void emit_directory(Sink& sink) const;
    // The directory entry of flat entry `slot`.
    Directory_Entry directory_record(std::size_t slot) const;
    void emit_container(Sink& sink) const;
    void emit_streams(Sink& sink) const;
    void emit_table(Sink& sink, const std::vector<uint32_t>& entries, uint32_t sectors) const;
    void emit_data(Sink& sink, const Flat_Entry& e) const {
        const auto& item = static_cast<const Cfb_Fs_Item_FileNode&>(*e.node);
        if (m_source == nullptr) {
            sink.write(item.data.data(), item.data.size());
            return;
        }
        const auto out = [&sink](const uint8_t* p, std::size_t n) { sink.write(p, n); };
        const platform::Input_File* file = m_source->input_file();
        if (file == nullptr || !sink.copies_files()) {
            m_source->write(item, out);
            return;
        }
        m_source->write_or_copy(item, out, [&sink, file](uint64_t offset, uint64_t length) {
            sink.copy(*file, offset, length);
        });
    }

    Builder_Options m_options;
    const Stream_Source* m_source = nullptr;
    Plan m_plan;
    std::vector<Flat_Entry> m_entries;
    std::vector<Sibling_Links> m_links;
    uint32_t m_mini_sectors = 0;
    std::vector<uint32_t> m_minisat;
    std::vector<uint32_t> m_sat;
    std::vector<uint32_t> m_disat;  // the DISAT sectors' entries, next-sector links included
    std::vector<sid_t> m_header_disat;
    uint32_t m_bad_record = NOSTREAM;  // the entry written with a broken name
};

void Builder::flatten(const Cfb_Fs_Item_DirNode& root) {
    Flat_Entry entry;
    entry.node = &root;
    entry.name = u"Root Entry";
    entry.type = kTypeRoot;
    m_entries.push_back(entry);
    m_links.emplace_back();
    const uint32_t child = add_children(root, u"");
    m_entries[0].child = child;
}

// Gives the children of `storage` consecutive entries in name order, links them, then descends
// into the child storages. Returns the id of the children's tree root. `orphan_parent` is set
// below a storage that no link reaches.
uint32_t Builder::add_children(const Cfb_Fs_Item_DirNode& storage, const std::u16string& prefix,
                               const Flat_Entry* orphan_parent) {
    std::vector<const Cfb_Fs_Item_AbstractNode*> kids;
    kids.reserve(storage.children.size());
    for (const auto& child : storage.children) {
        if (!child) continue;
        if (child->name.size() > kMaxNameUnits) {
            throw std::invalid_argument(
                "build_compound_file: a name is longer than 31 UTF-16 units");
        }
        kids.push_back(child.get());
    }
    std::stable_sort(kids.begin(), kids.end(), [](const auto* a, const auto* b) {
        return compare_entry_names(a->name, b->name) < 0;
    });
    for (std::size_t i = 1; i < kids.size(); ++i) {
        if (compare_entry_names(kids[i - 1]->name, kids[i]->name) == 0) {
            throw std::invalid_argument(
                "build_compound_file: two children of one storage have "
                "the same name");
        }
    }
    // The root's last children may be left out of its tree (orphans): they keep their records.
    const std::size_t orphans = prefix.empty() && orphan_parent == nullptr
                                    ? std::min<std::size_t>(m_options.orphans, kids.size())
                                    : 0;
    std::vector<uint32_t> sorted;
    sorted.reserve(kids.size());
    for (std::size_t k = 0; k < kids.size(); ++k) {
        const auto* kid = kids[k];
        Flat_Entry entry;
        entry.node = kid;
        entry.name = kid->name;
        entry.path = prefix + kid->name;
        entry.orphan = orphan_parent != nullptr || k + orphans >= kids.size();
        if (kid->is_dir()) {
            entry.type = kTypeStorage;
            entry.start = 0;
        } else {
            const auto& item = static_cast<const Cfb_Fs_Item_FileNode&>(*kid);
            const uint64_t size = m_source != nullptr ? m_source->size(item) : item.data.size();
            if (size > std::numeric_limits<uint32_t>::max()) {
                throw std::invalid_argument("build_compound_file: a stream of 4 GiB or more");
            }
            entry.type = kTypeStream;
            entry.size = static_cast<uint32_t>(size);
            entry.in_mini = entry.size < kMiniStreamCutoff;
        }
        sorted.push_back(static_cast<uint32_t>(m_entries.size()));
        m_entries.push_back(std::move(entry));
        m_links.emplace_back();
    }
    const std::vector<uint32_t> linked(sorted.begin(),
                                       sorted.end() - static_cast<std::ptrdiff_t>(orphans));
    const uint32_t tree_root = link_siblings(m_links, linked, m_options.sibling_chain);
    for (const uint32_t did : sorted) {
        if (m_entries[did].type != kTypeStorage) continue;
        const auto& sub = static_cast<const Cfb_Fs_Item_DirNode&>(*m_entries[did].node);
        const std::u16string sub_prefix = m_entries[did].path + u"/";
        const uint32_t child =
            add_children(sub, sub_prefix, m_entries[did].orphan ? &m_entries[did] : nullptr);
        m_entries[did].child = child;
    }
    return tree_root;
}

void Builder::place_mini_streams() {
    for (Flat_Entry& e : m_entries) {
        if (e.type != kTypeStream || !e.in_mini || e.size == 0) continue;
        const auto n = static_cast<uint32_t>(ceil_div(e.size, kMiniSectorSize));
        e.start = m_mini_sectors;
        for (uint32_t i = 0; i < n; ++i) {
            m_minisat.push_back(i + 1 < n ? m_mini_sectors + i + 1 : ENDOFCHAIN);
        }
        m_mini_sectors += n;
    }
}

// The strict header checks of this library measure sector ids in 512-byte units whatever the
// sector size: max_sid = ((file size - 512) >> 9) - 1, and every count and first-sector field
// must be below it. No table or directory sector may be the file's last sector either.
bool Builder::passes_header_checks() const {
    const uint64_t size = file_size();
    const uint64_t max_sid = ((size - 512) >> 9) - 1;
    const uint64_t last = m_plan.total() - 1;
    const uint32_t dir_count = m_options.major_version == 4 ? m_plan.directory_sectors : 0;
    if (dir_count >= max_sid || m_plan.sat_sectors >= max_sid || m_plan.disat_sectors >= max_sid) {
        return false;
    }
    for (const Region r : {Region::sat, Region::disat, Region::minisat, Region::directory}) {
        const uint32_t n = m_plan.count(r);
        if (n == 0) continue;
        // The one deliberate exception: a file asked to end with a SAT sector.
        const uint32_t checked = r == Region::sat && m_options.sat_in_last_sector ? n - 1 : n;
        if (checked == 0) continue;
        const uint64_t end = uint64_t{m_plan.start(r)} + checked - 1;
        if (end >= max_sid || end >= last) return false;
    }
    return true;
}

void Builder::plan_sectors() {
    const uint32_t ss = m_plan.sector_size;
    const uint64_t per_sector = ss / 4;
    m_plan.minisat_sectors = static_cast<uint32_t>(ceil_div(m_mini_sectors, per_sector));
    m_plan.directory_sectors =
        static_cast<uint32_t>(ceil_div(m_entries.size(), ss / kDirEntrySize));
    m_plan.container_sectors =
        static_cast<uint32_t>(ceil_div(uint64_t{m_mini_sectors} * kMiniSectorSize, ss));
    if (m_plan.container_sectors > 0) m_plan.container_sectors += m_options.slack_sectors;
    uint64_t stream_sectors = 0;
    for (const Flat_Entry& e : m_entries) {
        if (e.type == kTypeStream && !e.in_mini && e.size > 0)
            stream_sectors += ceil_div(e.size, ss) + m_options.slack_sectors;
    }
    if (stream_sectors > MAXREGSECT / 2) {
        throw std::invalid_argument("build_compound_file: the streams need too many sectors");
    }
    m_plan.stream_sectors = static_cast<uint32_t>(stream_sectors);

    const bool sat_last = m_options.sat_in_last_sector;
    m_plan.order.clear();
    if (m_options.tables_at_end) {
        m_plan.order = {Region::container, Region::streams, Region::directory, Region::minisat};
        if (sat_last) {
            m_plan.order.insert(m_plan.order.end(), {Region::disat, Region::padding, Region::sat});
        } else {
            m_plan.order.insert(m_plan.order.end(), {Region::sat, Region::disat, Region::padding});
        }
    } else if (sat_last) {
        m_plan.order = {Region::disat,   Region::minisat, Region::directory, Region::container,
                        Region::streams, Region::padding, Region::sat};
    } else {
        m_plan.order = {Region::sat,       Region::disat,   Region::minisat, Region::directory,
                        Region::container, Region::streams, Region::padding};
    }
    m_plan.order.insert(m_plan.order.begin(), Region::older);
    m_plan.spare_sectors = m_options.free_after_directory;
    m_plan.order.insert(std::find(m_plan.order.begin(), m_plan.order.end(), Region::directory) + 1,
                        Region::spare);

    // Few padding sectors are ever needed (tiny files only); the bound keeps the search finite.
    constexpr uint32_t kMaxPadding = 64;
    for (uint32_t pad = 0; pad <= kMaxPadding; ++pad) {
        m_plan.padding_sectors = pad;
        // The SAT covers every sector of the file, its own and the DISAT's included.
        uint64_t sat = 0;
        uint64_t disat = 0;
        for (int round = 0; round < 64; ++round) {
            disat = sat > Cfb_Header::kHeaderDisatCount
                        ? ceil_div(sat - Cfb_Header::kHeaderDisatCount, per_sector - 1)
                        : 0;
            const uint64_t data = uint64_t{m_plan.minisat_sectors} + m_plan.directory_sectors +
                                  m_plan.container_sectors + m_plan.stream_sectors + pad +
                                  m_plan.older_sectors + m_plan.spare_sectors;
            const uint64_t need = ceil_div(data + sat + disat, per_sector);
            if (need <= sat) break;
            sat = need;
        }
        m_plan.sat_sectors = static_cast<uint32_t>(sat);
        m_plan.disat_sectors = static_cast<uint32_t>(disat);
        sid_t next = 0;
        for (const Region r : m_plan.order) {
            m_plan.first[static_cast<int>(r)] = next;
            next += m_plan.count(r);
        }
        if (passes_header_checks()) return;
    }
    throw std::logic_error("build_compound_file: no sector plan passes the header checks");
}

void Builder::place_sectors() {
    sid_t next = m_plan.start(Region::streams);
    for (Flat_Entry& e : m_entries) {
        if (e.type != kTypeStream || e.in_mini || e.size == 0) continue;
        e.start = next;
        next +=
            static_cast<uint32_t>(ceil_div(e.size, m_plan.sector_size)) + m_options.slack_sectors;
    }
    Flat_Entry& root = m_entries[0];
    root.size = m_mini_sectors * kMiniSectorSize;
    root.start = m_plan.container_sectors > 0 ? m_plan.start(Region::container) : ENDOFCHAIN;
}

void Builder::fill_tables() {
    const uint32_t per_sector = m_plan.sector_size / 4;
    m_sat.assign(uint64_t{m_plan.sat_sectors} * per_sector, FREESECT);
    auto chain = [this](sid_t first, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) {
            m_sat[first + i] = i + 1 < count ? first + i + 1 : ENDOFCHAIN;
        }
    };
    for (uint32_t i = 0; i < m_plan.sat_sectors; ++i)
        m_sat[m_plan.start(Region::sat) + i] = FATSECT;
    for (uint32_t i = 0; i < m_plan.disat_sectors; ++i) {
        m_sat[m_plan.start(Region::disat) + i] = DIFSECT;
    }
    chain(m_plan.start(Region::minisat), m_plan.minisat_sectors);
    chain(m_plan.start(Region::directory), m_plan.directory_sectors);
    chain(m_plan.start(Region::container), m_plan.container_sectors);
    for (const Flat_Entry& e : m_entries) {
        if (e.type == kTypeStream && !e.in_mini && e.size > 0) {
            chain(e.start, static_cast<uint32_t>(ceil_div(e.size, m_plan.sector_size)) +
                               m_options.slack_sectors);
        }
    }

    m_header_disat.assign(Cfb_Header::kHeaderDisatCount, FREESECT);
    m_disat.assign(uint64_t{m_plan.disat_sectors} * per_sector, FREESECT);
    for (uint32_t i = 0; i < m_plan.sat_sectors; ++i) {
        const sid_t sid = m_plan.start(Region::sat) + i;
        if (i < Cfb_Header::kHeaderDisatCount) {
            m_header_disat[i] = sid;
        } else {
            const uint32_t k = i - static_cast<uint32_t>(Cfb_Header::kHeaderDisatCount);
            m_disat[(k / (per_sector - 1)) * per_sector + k % (per_sector - 1)] = sid;
        }
    }
    for (uint32_t d = 0; d < m_plan.disat_sectors; ++d) {
        m_disat[d * per_sector + per_sector - 1] =
            d + 1 < m_plan.disat_sectors ? m_plan.start(Region::disat) + d + 1 : ENDOFCHAIN;
    }
    m_minisat.resize(uint64_t{m_plan.minisat_sectors} * per_sector, FREESECT);
}

void Builder::emit_header(Sink& sink) const {
    const bool v4 = m_options.major_version == 4;
    Cfb_Header h;
    h.magic = Cfb_Header::kSignature;
    write_u16_le(h.minor_version.data(), m_options.minor_version);
    write_u16_le(h.major_version.data(), m_options.major_version);
    write_u16_le(h.endian.data(), layout::kByteOrderMark);
    h.sector_shift = v4 ? layout::kSectorShiftV4 : layout::kSectorShift;
    h.mini_sector_shift = layout::kMiniSectorShift;
    h.num_of_dir_secs = v4 ? m_plan.directory_sectors : 0;
    h.num_of_sat_secs = m_plan.sat_sectors;
    h.first_dir_sid = m_plan.start(Region::directory);
    h.mini_stream_cutoff_size = kMiniStreamCutoff;
    h.first_minisat_sid = m_plan.minisat_sectors > 0 ? m_plan.start(Region::minisat) : ENDOFCHAIN;
    h.num_of_minisat_secs = m_plan.minisat_sectors;
    h.first_disat_sid = m_plan.disat_sectors > 0 ? m_plan.start(Region::disat) : ENDOFCHAIN;
    h.num_of_disat_secs = m_plan.disat_sectors;
    const auto bytes = encode_header(h, m_header_disat);
    sink.write(bytes.data(), bytes.size());
    sink.write_zeros(m_plan.sector_size - Cfb_Header::kSize);
}

void Builder::emit_table(Sink& sink, const std::vector<uint32_t>& entries, uint32_t sectors) const {
    const std::size_t per_sector = m_plan.sector_size / 4;
    std::vector<uint8_t> bytes(m_plan.sector_size);
    for (std::size_t s = 0; s < sectors; ++s) {
        for (std::size_t i = 0; i < per_sector; ++i) {
            write_u32_le(bytes.data() + 4 * i, entries[s * per_sector + i]);
        }
        sink.write(bytes.data(), bytes.size());
    }
}

void Builder::emit_directory(Sink& sink) const {
    std::vector<uint8_t> bytes(uint64_t{m_plan.directory_sectors} * m_plan.sector_size);
    for (std::size_t slot = 0; slot * kDirEntrySize < bytes.size(); ++slot) {
        // An unused slot keeps the defaults: type 0, no siblings, no child.
        Directory_Entry record;
        if (slot < m_entries.size()) record = directory_record(slot);
        encode_directory_entry(record, bytes.data() + slot * kDirEntrySize);
    }
    sink.write(bytes.data(), bytes.size());
}

Directory_Entry Builder::directory_record(std::size_t slot) const {
    const Flat_Entry& e = m_entries[slot];
    const Sibling_Links& links = m_links[slot];
    Directory_Entry record;
    for (std::size_t i = 0; i < e.name.size(); ++i) {
        write_u16_le(record.name.data() + 2 * i, static_cast<uint16_t>(e.name[i]));
    }
    record.name_valid_size = static_cast<uint16_t>((e.name.size() + 1) * 2);
    if (slot == m_bad_record && m_options.bad_record == Bad_Record::name_length) {
        record.name_valid_size = 80;
    } else if (slot == m_bad_record && m_options.bad_record == Bad_Record::nul_in_name) {
        write_u16_le(record.name.data() + 2, 0);
    }
    record.object_type = e.type;
    record.color_flag = e.type == kTypeRoot ? 1 : links.color;
    record.left_sibling_id = e.type == kTypeRoot ? NOSTREAM : links.left;
    record.right_sibling_id = e.type == kTypeRoot ? NOSTREAM : links.right;
    record.child_id = e.type == kTypeStream ? NOSTREAM : e.child;
    record.clsid = e.node->clsid;
    record.state_bits = e.node->state_bits;
    record.creation_time = e.node->creation_time;
    record.modified_time = e.node->modified_time;
    record.start_sid = e.type == kTypeStorage ? 0 : e.start;
    record.stream_size = e.size;
    return record;
}

void Builder::emit_container(Sink& sink) const {
    uint64_t written = 0;
    for (const Flat_Entry& e : m_entries) {
        if (e.type != kTypeStream || !e.in_mini || e.size == 0) continue;
        emit_data(sink, e);
        const uint64_t padded = ceil_div(e.size, kMiniSectorSize) * kMiniSectorSize;
        sink.write_zeros(static_cast<std::size_t>(padded - e.size));
        written += padded;
    }
    const uint64_t region = uint64_t{m_plan.container_sectors} * m_plan.sector_size;
    sink.write_zeros(static_cast<std::size_t>(region - written));
}

void Builder::emit_streams(Sink& sink) const {
    for (const Flat_Entry& e : m_entries) {
        if (e.type != kTypeStream || e.in_mini || e.size == 0) continue;
        emit_data(sink, e);
        const uint64_t padded =
            (ceil_div(e.size, m_plan.sector_size) + m_options.slack_sectors) * m_plan.sector_size;
        sink.write_zeros(static_cast<std::size_t>(padded - e.size));
    }
}

void Builder::emit(Sink& sink) const {
    emit_header(sink);
    for (const Region r : m_plan.order) {
        switch (r) {
            case Region::older:
                if (m_plan.older_sectors > 0) {
                    sink.write(m_options.older_save.data() + m_plan.sector_size,
                               uint64_t{m_plan.older_sectors} * m_plan.sector_size);
                }
                break;
            case Region::sat:
                emit_table(sink, m_sat, m_plan.sat_sectors);
                break;
            case Region::disat:
                emit_table(sink, m_disat, m_plan.disat_sectors);
                break;
            case Region::minisat:
                emit_table(sink, m_minisat, m_plan.minisat_sectors);
                break;
            case Region::directory:
                emit_directory(sink);
                break;
            case Region::container:
                emit_container(sink);
                break;
            case Region::streams:
                emit_streams(sink);
                break;
            case Region::spare:
                sink.write_zeros(uint64_t{m_plan.spare_sectors} * m_plan.sector_size);
                break;
            case Region::padding:
                sink.write_zeros(uint64_t{m_plan.padding_sectors} * m_plan.sector_size);
                break;
        }
    }
}

void Builder::describe(Build_Layout& layout) const {
    layout = Build_Layout{};
    layout.sector_size = m_plan.sector_size;
    auto run = [](sid_t first, uint32_t count) {
        std::vector<sid_t> sids(count);
        for (uint32_t i = 0; i < count; ++i) sids[i] = first + i;
        return sids;
    };
    layout.sat_sids = run(m_plan.start(Region::sat), m_plan.sat_sectors);
    layout.disat_sids = run(m_plan.start(Region::disat), m_plan.disat_sectors);
    layout.minisat_sids = run(m_plan.start(Region::minisat), m_plan.minisat_sectors);
    layout.directory_sids = run(m_plan.start(Region::directory), m_plan.directory_sectors);
    layout.container_sids = run(m_plan.start(Region::container), m_plan.container_sectors);
    layout.older_save_sids = run(m_plan.start(Region::older), m_plan.older_sectors);
    layout.slack_sectors = m_options.slack_sectors;
    for (uint32_t did = 0; did < m_entries.size(); ++did) {
        const Flat_Entry& e = m_entries[did];
        if (e.type == kTypeStorage) layout.storages.push_back(e.path);
        if (e.type != kTypeStream) continue;
        Build_Layout::Stream_Place place;
        place.path = e.path;
        place.did = did;
        place.in_mini = e.in_mini;
        place.orphan = e.orphan;
        place.bad_name = did == m_bad_record;
        place.size = e.size;
        if (e.size > 0) {
            const uint64_t unit = e.in_mini ? kMiniSectorSize : m_plan.sector_size;
            place.chain = run(e.start, static_cast<uint32_t>(ceil_div(e.size, unit)));
        }
        layout.streams.push_back(std::move(place));
    }
}

}  // namespace

std::vector<uint8_t> build_compound_file(const Cfb_Fs_Item_DirNode& root,
                                         const Builder_Options& options, Build_Layout* layout) {
    const Builder builder(root, options);
    std::vector<uint8_t> bytes;
    bytes.reserve(static_cast<std::size_t>(builder.file_size()));
    Vector_Sink sink(bytes);
    builder.emit(sink);
    if (layout != nullptr) builder.describe(*layout);
    return bytes;
}

namespace {

Write_Result write_built(const Write_Target& target, const Builder& builder, Build_Layout* layout) {
    platform::Output_File fresh;
    platform::Output_File* out = target.prepared != nullptr ? target.prepared->file() : nullptr;
    if (out == nullptr) {
        out = &fresh;
        const platform::Create_Result created =
            fresh.create(target.path, target.mode, target.input);
        if (created == platform::Create_Result::is_input) return Write_Result::is_input;
        if (created != platform::Create_Result::created) return Write_Result::failed;
    }
    File_Sink sink(*out);
    builder.emit(sink);
    const bool written = sink.finish();
    if (!written || !out->commit()) return Write_Result::failed;
    if (layout != nullptr) builder.describe(*layout);
    return Write_Result::written;
}

}  // namespace

bool write_compound_file(const std::wstring& path, const Cfb_Fs_Item_DirNode& root,
                         const Builder_Options& options, Build_Layout* layout) {
    return write_built(Write_Target{path}, Builder(root, options), layout) == Write_Result::written;
}

bool write_compound_file(const std::wstring& path, const Cfb_Fs_Item_DirNode& root,
                         const Stream_Source& source, const Builder_Options& options) {
    return write_compound_file(Write_Target{path}, root, source, options) == Write_Result::written;
}

Write_Result write_compound_file(const Write_Target& target, const Cfb_Fs_Item_DirNode& root,
                                 const Stream_Source& source, const Builder_Options& options) {
    return write_built(target, Builder(root, options, &source), nullptr);
}

}  // namespace vrk
