#include "map_svg.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <vector>

#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr int kColumns = 64;
constexpr int kPitch = 10;  // a cell and its gap
constexpr int kCellSize = 9;
constexpr int kLeft = 84;  // room for the row labels
constexpr int kLegendColumn = 240;
constexpr int kLegendRow = 18;
constexpr std::size_t kLegendStreams = 16;

const std::array<const char*, kCellRoles> kRoleColours = {
    "#1f2937",  // header
    "#dc2626",  // SAT
    "#9333ea",  // DISAT
    "#f97316",  // MiniSAT
    "#2563eb",  // directory
    "#0d9488",  // container
    "#64748b",  // stream data (each stream has its own colour)
    "#e5e7eb",  // free
    "#9ca3af",  // unclaimed
    "#fecaca",  // past the end
    "#16a34a",  // recovered
    "#eab308",  // partial
    "#78350f",  // unverified
    "#be185d",  // lost chain
};

// Buffered writing to the output file.
class Svg_Out {
  public:
    platform::Create_Result open(const std::wstring& path, const platform::File_Identity* input) {
        return m_file.create(path, platform::Create_Mode::staged, input);
    }
    void add(const std::string& text) {
        m_buffer += text;
        if (m_buffer.size() >= (1u << 20)) flush();
    }
    void flush() {
        if (!m_buffer.empty() && !m_file.write(m_buffer.data(), m_buffer.size())) m_failed = true;
        m_buffer.clear();
    }
    bool close() {
        flush();
        return !m_failed && m_file.commit();
    }

  private:
    platform::Output_File m_file;
    std::string m_buffer;
    bool m_failed = false;
};

// Text for XML: markup characters as entities, bytes that are not UTF-8 as U+FFFD.
std::string xml_text(const std::string& bytes) {
    const std::string utf8 = platform::to_utf8(platform::widen(bytes));
    std::string out;
    for (const char c : utf8) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

// Stream colours: hues spread by the golden angle, so that neighbours in the file differ.
std::string owner_colour(int32_t owner) {
    const double hue = std::fmod(static_cast<double>(owner) * 137.508 + 200.0, 360.0);
    const double s = 0.55;
    const double l = 0.55;
    const double c = (1 - std::fabs(2 * l - 1)) * s;
    const double x = c * (1 - std::fabs(std::fmod(hue / 60.0, 2.0) - 1));
    const double m = l - c / 2;
    double r = 0;
    double g = 0;
    double b = 0;
    if (hue < 60) {
        r = c, g = x;
    } else if (hue < 120) {
        r = x, g = c;
    } else if (hue < 180) {
        g = c, b = x;
    } else if (hue < 240) {
        g = x, b = c;
    } else if (hue < 300) {
        r = x, b = c;
    } else {
        r = c, b = x;
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "#%02x%02x%02x", static_cast<unsigned>((r + m) * 255),
                  static_cast<unsigned>((g + m) * 255), static_cast<unsigned>((b + m) * 255));
    return buffer;
}

std::string hex(uint64_t value) {
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "0x%06llX", static_cast<unsigned long long>(value));
    return buffer;
}

std::string fill_of(const Map_Cell& cell) {
    return cell.role == Cell_Role::stream && cell.owner >= 0
               ? owner_colour(cell.owner)
               : kRoleColours[static_cast<std::size_t>(cell.role)];
}

// What hovering a run of cells says: which blocks, where, and what holds them.
std::string run_title(const Sector_Map& map, uint64_t first, uint64_t last) {
    const Map_Cell& cell = map.cells[first];
    std::string text;
    if (first == 0) {
        text = "header";
        if (last > first) text += " and sectors 0-" + std::to_string(last - 1);
    } else {
        text = first == last
                   ? "sector " + std::to_string(first - 1)
                   : "sectors " + std::to_string(first - 1) + "-" + std::to_string(last - 1);
    }
    text +=
        " at " + hex(first * 512) + "-" + hex((last + 1) * 512 - 1) + ": " + role_name(cell.role);
    if (cell.owner >= 0 && static_cast<std::size_t>(cell.owner) < map.owners.size()) {
        text += ", " + map.owners[static_cast<std::size_t>(cell.owner)];
    }
    if (cell.twice) text += " (named by two structures or chains)";
    return xml_text(text);
}

void write_svg(Svg_Out& out, const Sector_Map& map, const Map_Picture& picture, bool standalone) {
    const uint64_t first = picture.first;
    const uint64_t last = first + picture.count;  // one past the last cell drawn
    std::array<uint64_t, kCellRoles> per_role{};
    std::map<int32_t, uint64_t> per_stream;
    for (uint64_t i = first; i < last; ++i) {
        const Map_Cell& cell = map.cells[i];
        ++per_role[static_cast<std::size_t>(cell.role)];
        if (cell.role == Cell_Role::stream) ++per_stream[cell.owner];
    }
    // The legend: every role present, then the largest streams with their own colours.
    std::vector<std::pair<std::string, std::string>> legend;  // colour, text
    for (int r = 0; r < kCellRoles; ++r) {
        if (per_role[static_cast<std::size_t>(r)] == 0) continue;
        const auto role = static_cast<Cell_Role>(r);
        // Stream data has no colour of its own: each stream's follows in the legend.
        const bool streams = role == Cell_Role::stream;
        legend.emplace_back(streams ? "" : kRoleColours[static_cast<std::size_t>(r)],
                            std::string(role_name(role)) + " (" +
                                grouped(per_role[static_cast<std::size_t>(r)]) + ")" +
                                (streams ? ", each stream:" : ""));
    }
    std::vector<std::pair<int32_t, uint64_t>> streams(per_stream.begin(), per_stream.end());
    std::stable_sort(streams.begin(), streams.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    for (std::size_t k = 0; k < streams.size() && k < kLegendStreams; ++k) {
        const int32_t owner = streams[k].first;
        const std::string name = owner >= 0 && static_cast<std::size_t>(owner) < map.owners.size()
                                     ? map.owners[static_cast<std::size_t>(owner)]
                                     : "?";
        legend.emplace_back(owner_colour(owner), name + " (" + grouped(streams[k].second) + ")");
    }
    if (streams.size() > kLegendStreams) {
        legend.emplace_back("",
                            "and " + grouped(streams.size() - kLegendStreams) + " more streams");
    }

    const int width = kLeft + kColumns * kPitch + 16;
    const int legend_columns = std::max(1, width / kLegendColumn);
    const int legend_rows = static_cast<int>((legend.size() + legend_columns - 1) / legend_columns);
    const int top = 44 + legend_rows * kLegendRow + 8;
    const auto rows = static_cast<int>((picture.count + kColumns - 1) / kColumns);
    const int height = top + rows * kPitch + 16;

    if (standalone) out.add("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    out.add("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(width) +
            "\" height=\"" + std::to_string(height) + "\" viewBox=\"0 0 " + std::to_string(width) +
            " " + std::to_string(height) + "\" font-family=\"sans-serif\" font-size=\"12\">\n");
    out.add("<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n<style>");
    for (int r = 0; r < kCellRoles; ++r) {
        out.add(std::string(".") + role_key(static_cast<Cell_Role>(r)) +
                "{fill:" + kRoleColours[static_cast<std::size_t>(r)] + "}");
    }
    out.add(".twice{stroke:#000;stroke-width:1}</style>\n");
    out.add("<text x=\"8\" y=\"18\" font-size=\"14\" font-weight=\"bold\">" +
            xml_text(picture.title) + "</text>\n");
    std::string range = grouped(map.file_size) + " bytes; cells " + grouped(first) + "-" +
                        grouped(last == 0 ? 0 : last - 1) + " of " + grouped(map.cells.size()) +
                        " (one per 512-byte block, the header first)";
    out.add("<text x=\"8\" y=\"36\">" + xml_text(range) + "</text>\n<g class=\"legend\">\n");
    for (std::size_t k = 0; k < legend.size(); ++k) {
        const int x = 8 + static_cast<int>(k % legend_columns) * kLegendColumn;
        const int y = 44 + static_cast<int>(k / legend_columns) * kLegendRow;
        if (!legend[k].first.empty()) {
            out.add("<rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y + 2) +
                    "\" width=\"12\" height=\"12\" fill=\"" + legend[k].first + "\"/>");
        }
        out.add("<text x=\"" + std::to_string(x + 18) + "\" y=\"" + std::to_string(y + 12) + "\">" +
                xml_text(legend[k].second) + "</text>\n");
    }
    out.add("</g>\n<g class=\"cells\">\n");
    for (uint64_t row_start = first; row_start < last; row_start += kColumns) {
        const int y = top + static_cast<int>((row_start - first) / kColumns) * kPitch;
        out.add("<text x=\"" + std::to_string(kLeft - 6) + "\" y=\"" + std::to_string(y + 8) +
                "\" text-anchor=\"end\" font-size=\"9\" font-family=\"monospace\">" +
                hex(row_start * 512) + "</text>\n");
    }
    // Runs of alike cells (same role, owner and flag) share one title.
    for (uint64_t i = first; i < last;) {
        uint64_t end = i;
        const Map_Cell& cell = map.cells[i];
        while (end + 1 < last && map.cells[end + 1].role == cell.role &&
               map.cells[end + 1].owner == cell.owner && map.cells[end + 1].twice == cell.twice) {
            ++end;
        }
        out.add("<g><title>" + run_title(map, i, end) + "</title>");
        // A style, not a fill attribute: the role's class rule would win over an attribute.
        const std::string fill = cell.role == Cell_Role::stream
                                     ? " style=\"fill:" + fill_of(cell) + "\""
                                     : std::string();
        const std::string classes = std::string(role_key(cell.role)) + (cell.twice ? " twice" : "");
        for (uint64_t k = i; k <= end; ++k) {
            const uint64_t at = k - first;
            out.add("<rect x=\"" +
                    std::to_string(kLeft + static_cast<int>(at % kColumns) * kPitch) + "\" y=\"" +
                    std::to_string(top + static_cast<int>(at / kColumns) * kPitch) + "\" width=\"" +
                    std::to_string(kCellSize) + "\" height=\"" + std::to_string(kCellSize) +
                    "\" class=\"" + classes + "\"" + fill + "/>");
        }
        out.add("</g>\n");
        i = end + 1;
    }
    out.add("</g>\n</svg>\n");
}

}  // namespace

bool write_map(const Sector_Map& map, const Map_Picture& picture, bool html,
               const std::wstring& path, const platform::File_Identity* input, std::string& error) {
    Svg_Out out;
    const platform::Create_Result created = out.open(path, input);
    if (created != platform::Create_Result::created) {
        error = created == platform::Create_Result::is_input ? "it is the input file"
                                                             : platform::errno_text();
        return false;
    }
    if (html) {
        out.add("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" +
                xml_text(picture.title) +
                "</title>\n<style>body{font-family:sans-serif;margin:16px}</style>\n</head>\n"
                "<body>\n<p>Hover over a cell to see what it holds.</p>\n");
    }
    write_svg(out, map, picture, !html);
    if (html) out.add("</body>\n</html>\n");
    if (!out.close()) {
        error = platform::errno_text();
        return false;
    }
    return true;
}

}  // namespace vrk::cli
