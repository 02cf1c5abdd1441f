#!/usr/bin/env bash
# Fault injection for the test suite: applies one-line faults to the library, one at a time,
# rebuilds only the tests that should notice, runs them, and restores the file. A fault counts as
# caught when at least one of its tests fails. Prints caught/total and exits non-zero unless every
# fault is caught. Slow (one incremental build per fault), so not part of scripts/test.sh.
#
#   bash scripts/mutants.sh            # every fault
#   bash scripts/mutants.sh repair     # only faults whose file path or test names contain "repair"
#
# Each fault names a line by a fixed text that must occur exactly once in its file: when the code
# has moved on and the text is gone, the fault is reported as stale (and fails the run) instead of
# being counted as caught.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
build=$(realpath -m "${CFB_MUTANTS_BUILD:-build/mutants}")
jobs=${CFB_JOBS:-2}
filter=${1:-}
log="$build/mutants.log"

# "file|tests" (ctest names; a replay test builds its fuzz target), then "line text @@ faulty text"
mutants=(
    # The door: the last readable byte, the failure text's shape, empty files, the failing offset.
    "code/src/file_operation/File_Anywhere_Door.cpp|file_layer_test"
    "    if (offset > m_file_size - 1) { @@     if (offset > m_file_size) {"
    "code/src/file_operation/door_failure.cpp|file_layer_test"
    '    std::snprintf(text.data(), text.size(), "[%s:%d->%s] %s\n", kDoorSourceFile, throw_line, @@     std::snprintf(text.data(), text.size(), "[%s:%d-->%s] %s\n", kDoorSourceFile, throw_line,'
    "code/src/file_operation/Input_View.cpp|input_view_test file_layer_test"
    "    if (!sized || size == 0) { @@     if (!sized) {"
    "code/src/file_operation/Input_View.cpp|input_view_test file_layer_test"
    "    if (!inside(offset, length)) throw_out_of_range(std::max(offset, m_size), site); @@     if (!inside(offset, length)) throw_out_of_range(offset, site);"
    "code/src/file_operation/File_Block_Cache.cpp|file_layer_test"
    "    if (m_list.size() > m_list.capacity()) { @@     if (m_list.size() >= m_list.capacity()) {"
    "code/src/file_operation/Input_View.cpp|input_view_test"
    "    const uint64_t end = std::min(std::max(start + read_size, offset + length), m_size); @@     const uint64_t end = std::min(start + read_size, m_size);"
    # The folders, the error records and the log beside the door: clearing a link given with a
    # trailing separator, the history's trim, the lowest level logged.
    "code/src/common/platform_posix.cpp|fs_utils_test"
    "    while (path.size() > 1 && path.back() == '/') path.pop_back(); @@     while (path.size() > 1 && path.back() == '\\\\') path.pop_back();"
    "code/src/common/error_store.cpp|error_store_test"
    "    if (entry.records.size() >= kTrimAt) { @@     if (entry.records.size() > kTrimAt) {"
    "code/src/cfb_vornak/entries/Cfb_Logger.cpp|logger_test"
    "    return level >= kLowestLoggedLevel; @@     return level > kLowestLoggedLevel;"
    # Folder clearing opening a link, the repair's extension rule, the header codes' result.
    "code/src/common/platform_posix.cpp|fs_utils_test data_safety_test"
    "constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC; @@ constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;"
    # An output written in place opened through a link at its name.
    "code/src/common/platform_posix.cpp|data_safety_test"
    "    int fd = ::open(native.c_str(), kWrite | O_NOFOLLOW, 0666); @@     int fd = ::open(native.c_str(), kWrite, 0666);"
    # Room set aside for a staged output and not written is given back at close.
    "code/src/common/platform_posix.cpp|salvage_output_test"
    "    if (m_reserved > m_written) @@     if (m_reserved < m_written)"
    "code/src/cfb_vornak/entries/Repair_Output_Path.cpp|repair_entry_test data_safety_test"
    "            path.erase(start + dot); @@             path.erase(start + dot + 1);"
    "code/src/common/error_codes.cpp|error_codes_test check_entry_test"
    "    for (int c = 59; c <= 71; ++c) k[c] = 8; @@     for (int c = 59; c <= 71 - 1; ++c) k[c] = 8;"
    # Parse: chains, the DISAT walk, the tree.
    "code/src/cfb_vornak/model/Sector_Chains.cpp|cfb_file_test parse_equivalence_test"
    "    chain.push_back(ENDOFCHAIN); @@     chain.push_back(FREESECT);"
    "code/src/cfb_vornak/model/Sector_Chains.cpp|cfb_file_test parse_equivalence_test"
    "            } else if (next < size && visited.test(next)) { @@             } else if (next < size && !visited.test(next)) {"
    "code/src/cfb_vornak/model/Allocation_Table.cpp|cfb_file_test parse_equivalence_test"
    "    for (; k < count && k < limit; ++k) { @@     for (; k <= count && k < limit; ++k) {"
    "code/src/cfb_vornak/model/Cfb_Directory_Tree.cpp|directory_tree_test reports_test"
    "        if (placed[did] == 0) root->add_child(nodes[did].get()); @@         if (placed[did] != 0) root->add_child(nodes[did].get());"
    "code/src/cfb_vornak/model/Mini_Allocation_Table.cpp|cfb_file_test release_test"
    "        if (sid == FREESECT || sid == FATSECT || sid == DIFSECT || sid > max_sid) { @@         if (sid == FREESECT || sid == FATSECT || sid == DIFSECT || sid >= max_sid) {"
    "code/src/cfb_vornak/model/Allocation_Table.cpp|cfb_file_test parse_equivalence_test"
    "    const uint64_t limit = 2 * (max_sid + 1) + Cfb_Header::kHeaderDisatCount; @@     const uint64_t limit = 2 * max_sid + Cfb_Header::kHeaderDisatCount;"
    "code/src/cfb_vornak/model/Sector_Chains.cpp|cfb_file_test parse_equivalence_test"
    "    for (uint32_t steps = 0; steps < limit && cur < size; ++steps) { @@     for (uint32_t steps = 0; steps <= limit && cur < size; ++steps) {"
    "code/src/cfb_vornak/model/Cfb_File.cpp|cfb_file_test"
    "    if (!(header.first_dir_sid < max_sid)) { @@     if (!(header.first_dir_sid <= max_sid)) {"
    # Probe: the document kind, the extension rule, the root's type, a slot's name, the shortest
    # buffer searched.
    "code/src/cfb_vornak/probe/Cfb_Probe.cpp|probe_test check_entry_test"
    '            if (name_starts_with(record, u"Workbook\0"sv)) return Document_Kind::spreadsheet; @@             if (name_starts_with(record, u"Workbook\0"sv)) return Document_Kind::presentation;'
    "code/src/cfb_vornak/probe/Cfb_Probe.cpp|probe_test check_entry_test"
    "    if (extension == L\"xls\") return kind == Document_Kind::spreadsheet; @@     if (extension == L\"xls\") return kind != Document_Kind::spreadsheet;"
    "code/src/cfb_vornak/probe/Cfb_Probe.cpp|probe_test check_entry_test"
    "        if (slots.at(offset)[at::kObjectType] == layout::kTypeRootStorage) root_offset = &offset; @@         if (slots.at(offset)[at::kObjectType] != layout::kTypeRootStorage) root_offset = &offset;"
    "code/src/cfb_vornak/probe/Cfb_Probe.cpp|probe_test check_entry_test"
    "    if (name_valid_size < 1 || name_valid_size > at::kNameSize) return false; @@     if (name_valid_size < 2 || name_valid_size > at::kNameSize) return false;"
    "code/src/cfb_vornak/probe/Cfb_Probe.cpp|probe_test check_entry_test"
    "    return stream_size <= layout::kMiniStreamCutoff || start_sid <= max_sid; @@     return stream_size < layout::kMiniStreamCutoff || start_sid <= max_sid;"
    "code/src/cfb_vornak/probe/Cfb_Probe.cpp|probe_test check_entry_test"
    "        if (record.stream_size < layout::kMiniStreamCutoff && @@         if (record.stream_size <= layout::kMiniStreamCutoff &&"
    "code/src/cfb_vornak/probe/Root_Signature_Search.cpp|probe_test check_entry_test"
    "    if (data == nullptr || size < kNeedle) return false; @@     if (data == nullptr || size <= kNeedle) return false;"
    # Repair: sector classification, the expected mini chains, the extension rule, the header's
    # DISAT start.
    "code/src/cfb_vornak/repair/Repair_Sectors.cpp|repair_test repair_entry_test"
    "        if (facts.past_the_file) sets.beyond_end_sids.insert(sid); @@         if (!facts.past_the_file) sets.beyond_end_sids.insert(sid);"
    "code/src/cfb_vornak/repair/Repair_Sectors.cpp|repair_test repair_entry_test"
    "        if (repeats.has_repeat(bytes, hashes)) continue; @@         if (!repeats.has_repeat(bytes, hashes)) continue;"
    "code/src/cfb_vornak/repair/Repair_Sectors.cpp|repair_test repair_entry_test"
    "                size / mini_sector_size + (size % mini_sector_size != 0 ? 1 : 0); @@                 size / mini_sector_size;"
    "code/src/cfb_vornak/repair/Repair_Sectors.cpp|repair_test repair_entry_test"
    "    const uint64_t quota = sets.mini_sector_count / kValuesPerSector + 1; @@     const uint64_t quota = sets.mini_sector_count / kValuesPerSector;"
    "code/src/cfb_vornak/repair/Repair_Sectors.cpp|repair_test repair_entry_test"
    "                m = chain.length; @@                 m = 0;"
    "code/src/cfb_vornak/repair/Repair_Pipeline.cpp|repair_test repair_entry_test"
    "    return probe < ec::kCannotRepair || probe == ec::kExtension; @@     return probe < ec::kCannotRepair;"
    "code/src/cfb_vornak/format/Cfb_Header.cpp|repair_test"
    "    write_u32_le(p + at::kFirstDisatSid, header.first_disat_sid); @@     write_u32_le(p + at::kFirstDisatSid, header.num_of_disat_secs);"
    # Release: the last piece of a stream, the mini/normal split, joined runs.
    "code/src/cfb_vornak/model/Tree_Release.cpp|release_test analysis_entry_test"
    "        const uint64_t n = std::min(remaining, unit); @@         const uint64_t n = unit;"
    "code/src/cfb_vornak/model/Tree_Release.cpp|release_test analysis_entry_test"
    "    normal = size > cutoff; @@     normal = size >= cutoff;"
    "code/src/cfb_vornak/model/Tree_Release.cpp|release_test analysis_entry_test"
    "            if (!runs.empty() && runs.back().offset + runs.back().length == offset) { @@             if (!runs.empty()) {"
    "code/src/cfb_vornak/model/Tree_Release.cpp|release_test"
    "    const uint64_t id_count = normal ? file.max_sid + 1 : file.mini_sectors_in_container(); @@     const uint64_t id_count = normal ? file.max_sid : file.mini_sectors_in_container();"
    "code/src/cfb_vornak/model/Tree_Release.cpp|release_test analysis_entry_test"
    "                result.failing_offset = std::max(offset, source_size); @@                 result.failing_offset = offset;"
    "code/src/cfb_vornak/model/Tree_Release.cpp|release_test data_safety_test"
    "        if (is_refused_file_name(name)) { @@         if (name.empty()) {"
    # Reports: a row's range, the list's end mark, byte padding.
    "code/src/cfb_vornak/reports/Cfb_Reports.cpp|reports_test analysis_entry_test"
    "        out = put_width10(out, 15 + 16 * static_cast<uint64_t>(row)); @@         out = put_width10(out, 16 + 16 * static_cast<uint64_t>(row));"
    "code/src/cfb_vornak/reports/Cfb_Reports.cpp|reports_test analysis_entry_test"
    "            out[-2] = '.'; @@             out[-2] = ',';"
    "code/src/cfb_vornak/reports/Cfb_Reports.cpp|reports_test analysis_entry_test"
    "        if (byte < 16) { @@         if (byte < 15) {"
    "code/src/cfb_vornak/reports/Cfb_Reports.cpp|reports_test"
    "            m_text[kWidth - 1] + m_raise < '9') { @@             m_text[kWidth - 1] + m_raise <= '9') {"
    "code/src/cfb_vornak/reports/Cfb_Reports.cpp|reports_test"
    "            if (i + 1 < records.size()) { @@             if (i < records.size()) {"
    # Salvage: the verifier's root test, its mini/normal split, a short stream's state.
    "code/src/cfb_vornak/salvage/Salvage_Verifier.cpp|salvage_test salvage_output_test tool_test"
    "               m_records[0].entry.object_type == kTypeRootStorage; @@                m_records[0].entry.object_type != kTypeRootStorage;"
    "code/src/cfb_vornak/salvage/Salvage_Verifier.cpp|salvage_test salvage_output_test tool_test"
    "            w.mini = e.size < Mini_Stream::kCutoff; @@             w.mini = e.size > Mini_Stream::kCutoff;"
    "code/src/cfb_vornak/salvage/Salvage_Verifier.cpp|salvage_test salvage_output_test tool_test"
    "            e.state = got == 0 ? Salvage_State::lost : Salvage_State::partial; @@             e.state = got == 0 ? Salvage_State::partial : Salvage_State::lost;"
    # Salvage: a 31-unit name, a root whose name was wiped, directory-like sectors, a sector the
    # header names twice, the sectors a stream's size needs, twin names, partial streams kept.
    "code/src/cfb_vornak/salvage/Salvage_Evidence.cpp|salvage_test salvage_output_test tool_test"
    "        if (name_length < 4 || name_length > 64 || name_length % 2 != 0) return false; @@         if (name_length < 4 || name_length >= 64 || name_length % 2 != 0) return false;"
    "code/src/cfb_vornak/salvage/Salvage_Evidence.cpp|salvage_test salvage_output_test tool_test"
    "    if (type == kTypeRootStorage && left == NOSTREAM && right == NOSTREAM) @@     if (type == kTypeRootStorage && left == NOSTREAM && right != NOSTREAM)"
    "code/src/cfb_vornak/salvage/Salvage_Classifier.cpp|salvage_test salvage_output_test tool_test"
    "            if (valid > 0) f |= kDirLike; @@             if (valid > 1) f |= kDirLike;"
    "code/src/cfb_vornak/salvage/Salvage_Layout.cpp|salvage_test salvage_output_test tool_test"
    "            !is_special(s) && s < g.count && named[s] == 1 && readable_named_table(classes, s); @@             !is_special(s) && s < g.count && named[s] >= 1 && readable_named_table(classes, s);"
    "code/src/cfb_vornak/salvage/Salvage_Verifier.cpp|salvage_test salvage_output_test tool_test"
    "        rules.needed = ceil_div(size, m_g.sector_size); @@         rules.needed = size / m_g.sector_size;"
    "code/src/cfb_vornak/salvage/Salvage_Output.cpp|salvage_test salvage_output_test tool_test"
    "            return compare_entry_names(a, b) < 0; @@             return a < b;"
    "code/src/cfb_vornak/salvage/Salvage_Output.cpp|salvage_test salvage_output_test tool_test"
    "            if (keep.partial) return {{e.name, &e.pieces}}; @@             if (!keep.partial) return {{e.name, &e.pieces}};"
    # Builder: a name's stored length, the mini stream cutoff.
    "code/src/cfb_vornak/builder/Cfb_Builder.cpp|builder_test salvage_test"
    "    record.name_valid_size = static_cast<uint16_t>((e.name.size() + 1) * 2); @@     record.name_valid_size = static_cast<uint16_t>(e.name.size() * 2);"
    "code/src/cfb_vornak/builder/Cfb_Builder.cpp|builder_test salvage_test"
    "            entry.in_mini = entry.size < kMiniStreamCutoff; @@             entry.in_mini = entry.size <= kMiniStreamCutoff;"
    # What the project writes: the block files' hex offsets, the dump's middle gap, a rebuilt
    # file's times.
    "code/src/cfb_vornak/reports/Sector_Units.cpp|reports_test"
    "    if (length < 4) { @@     if (length < 3) {"
    "code/tools/cfbvornak/cmd_sectors.cpp|tool_test"
    "            if (k == 7) text += ' '; @@             if (k == 8) text += ' ';"
    "code/src/cfb_vornak/salvage/Salvage_Output.cpp|salvage_output_test tool_test"
    "        item.modified_time = e.modified_time; @@         item.modified_time = e.creation_time;"
    # The threads that write: the release's count of files written whole, the first stream in
    # order that could not be read and its first unread byte, and the files an extraction
    # removes after a failed one.
    "code/src/cfb_vornak/model/Release_Lanes.cpp|release_lanes_test release_test analysis_entry_test"
    "        if (out.close() && ok) ++m_written; @@         if (out.close() || ok) ++m_written;"
    "code/src/cfb_vornak/model/Release_Lanes.cpp|release_lanes_test"
    "        if (entry.failed && !m_unread) { @@         if (entry.failed) {"
    "code/src/cfb_vornak/model/Release_Lanes.cpp|release_lanes_test"
    "                    job.unread_at = run.offset + done + got; @@                     job.unread_at = run.offset + got;"
    "code/src/cfb_vornak/salvage/Salvage_Writers.cpp|salvage_writers_test salvage_output_test"
    "    for (auto it = thrown ? jobs.begin() + 1 : jobs.begin(); it != jobs.end(); ++it) { @@     for (auto it = jobs.begin() + 1; it != jobs.end(); ++it) {"
)

# Configured every time: a build folder made before a test was added would not know its target.
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCFB_WERROR=ON >/dev/null || exit 1
: >"$log"

backup=$(mktemp)
current=""
# The faulty file is put back whatever ends the run.
restore() {
    if [ -n "$current" ]; then
        cp "$backup" "$current"
        current=""
    fi
}
trap 'restore; rm -f "$backup"' EXIT
trap 'exit 130' INT TERM

# Builds the named tests, or the fuzz targets behind their replay tests.
build_tests() {
    local targets=()
    local name
    for name in "$@"; do targets+=(--target "${name%_replay}"); done
    cmake --build "$build" -j "$jobs" "${targets[@]}" >>"$log" 2>&1
}

# Every test the faults name must pass on the unfaulty code first, or a failure would be taken
# for a catch.
all_tests=()
for ((i = 0; i < ${#mutants[@]}; i += 2)); do
    IFS='|' read -r file tests <<<"${mutants[i]}"
    [[ -n "$filter" && "${mutants[i]}" != *"$filter"* ]] && continue
    read -ra names <<<"$tests"
    all_tests+=("${names[@]}")
done
mapfile -t all_tests < <(printf '%s\n' "${all_tests[@]}" | sort -u)
if ! build_tests "${all_tests[@]}" ||
    ! (cd "$build" && ctest -R "^($(IFS='|'; echo "${all_tests[*]}"))\$" --timeout 600 >>"$log" 2>&1); then
    echo "BROKEN  the unfaulty code fails its own tests (see $log)"
    exit 1
fi

total=0
caught=0
failures=()
for ((i = 0; i < ${#mutants[@]}; i += 2)); do
    IFS='|' read -r file tests <<<"${mutants[i]}"
    line=${mutants[i + 1]%% @@ *}
    faulty=${mutants[i + 1]#* @@ }
    [[ -n "$filter" && "${mutants[i]}" != *"$filter"* ]] && continue
    total=$((total + 1))
    label="$file: ${line#"${line%%[![:space:]]*}"}"
    read -ra names <<<"$tests"
    count=$(grep -cxF -- "$line" "$file")
    if [ "$count" != 1 ]; then
        echo "STALE   $label (the line occurs $count times)"
        failures+=("stale: $label")
        continue
    fi
    # The unfaulty build first: the previous fault's objects are rebuilt.
    if ! build_tests "${names[@]}"; then
        echo "BROKEN  the unfaulty build fails (see $log)"
        exit 1
    fi
    cp "$file" "$backup"
    current=$file
    LINE=$line FAULTY=$faulty perl -0pi -e 's/^\Q$ENV{LINE}\E$/$ENV{FAULTY}/m' "$file"
    if cmp -s "$file" "$backup"; then
        echo "INVALID $label (the fault changed nothing)"
        failures+=("invalid: $label")
        restore
        continue
    fi
    regex="^($(IFS='|'; echo "${names[*]}"))\$"
    if ! build_tests "${names[@]}"; then
        echo "INVALID $label (the fault does not compile)"
        failures+=("invalid: $label")
    else
        # Caught only when tests ran and one of them failed; no test run is an error.
        (cd "$build" && ctest -R "$regex" --timeout 600 >"$build/last.log" 2>&1)
        cat "$build/last.log" >>"$log"
        if ! grep -qE "tests passed, [0-9]+ tests failed out of [1-9]" "$build/last.log"; then
            echo "MISSED  $label"
            failures+=("missed: $label")
        elif grep -qE "tests passed, 0 tests failed" "$build/last.log"; then
            echo "MISSED  $label"
            failures+=("missed: $label")
        else
            echo "CAUGHT  $label"
            caught=$((caught + 1))
        fi
    fi
    restore
done

echo "caught $caught/$total"
for failure in "${failures[@]}"; do echo "  $failure"; done
[ "$total" -gt 0 ] && [ "$caught" -eq "$total" ]
