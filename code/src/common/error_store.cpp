#include "common/error_store.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "common/platform.h"

namespace vrk {

namespace {

// A thread's history reaching this size loses its oldest kTrimCount records.
constexpr std::size_t kTrimAt = 2000;
constexpr std::size_t kTrimCount = 1000;

// This thread's serial number, never 0 and never given to another thread of the process.
uint64_t thread_serial() {
    static std::atomic<uint64_t> next{0};
    thread_local uint64_t serial = 0;
    if (serial == 0) serial = next.fetch_add(1, std::memory_order_relaxed) + 1;
    return serial;
}

// The calling thread's entry, made on first use; taken over from an ended thread of the same
// id, the records before now are not its own. The store's mutex is held.
Thread_Records& own_records(Error_Store& store) {
    Thread_Records& entry = store.by_thread[platform::current_thread_id()];
    const uint64_t me = thread_serial();
    if (entry.owner != me) {
        entry.owner = me;
        entry.own_from = entry.records.size();
    }
    return entry;
}

}  // namespace

Error_Store& get_error_store() {
    static Error_Store store;
    return store;
}

void push_error(Error_Store& store, Error_Code code, std::string&& occur_file, int32_t line) {
    std::lock_guard<std::mutex> lock(store.mutex);
    // An unknown code leaves the shared current record's code and text as the previous push
    // (of any thread) set them, so an unknown code never reaches a record.
    const char* text = nullptr;
    if (find_error_code_exact(code, &text)) {
        store.current.code = code;
        store.current.text = text;
    }
    store.current.occur_file = std::move(occur_file);
    occur_file.clear();
    store.current.line = std::to_string(line);
    Thread_Records& entry = own_records(store);
    entry.records.push_back(store.current);
    if (entry.records.size() >= kTrimAt) {
        entry.records.erase(entry.records.begin(), entry.records.begin() + kTrimCount);
        entry.own_from -= std::min(entry.own_from, kTrimCount);
    }
}

Error_Record last_error(Error_Store& store) {
    std::lock_guard<std::mutex> lock(store.mutex);
    const Thread_Records& entry = own_records(store);
    if (entry.records.size() == entry.own_from) return Error_Record{};
    return entry.records.back();
}

Error_Code last_error_code(Error_Store& store) {
    return last_error(store).code;
}

void dump_all_error_info(Error_Store& store, std::ostream& out) {
    if (!out.good()) return;
    std::lock_guard<std::mutex> lock(store.mutex);
    out << "dump_all_error_info begin -----------------------\n";
    for (const auto& [thread_id, entry] : store.by_thread) {
        out << "std::thread::id :[" << thread_id << "] errors:\n";
        std::size_t index = 0;
        for (const auto& record : entry.records) {
            out << "err_index:[" << index++ << "] \n"
                << "err_no:[" << record.code << "] \n"
                << "err_info:[" << (record.text != nullptr ? record.text : "") << "] \n"
                << "occur_file:[" << record.occur_file << "] \n"
                << "err_line:[" << record.line << "] \n";
        }
    }
    out << "dump_all_error_info   end -----------------------\n";
}

}  // namespace vrk
