// Per-thread history of error records; the work exports return the folded code of the
// calling thread's most recent record.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "common/error_codes.h"

namespace vrk {

struct Error_Record {
    Error_Code code = 0;
    const char* text = nullptr;
    std::string occur_file;
    std::string line;
};

// The records kept under one thread id. The system gives an ended thread's id to a new thread
// (at once on Windows): the new thread's own records start at own_from, so that it never reads
// what the ended one pushed, while the dump keeps both.
struct Thread_Records {
    std::vector<Error_Record> records;
    uint64_t owner = 0;  // the thread, by a serial number of this process, now using the id
    std::size_t own_from = 0;
};

struct Error_Store {
    std::mutex mutex;
    Error_Record current;
    std::map<uint32_t, Thread_Records> by_thread;
};

Error_Store& get_error_store();
void push_error(Error_Store& store, Error_Code code, std::string&& occur_file, int32_t line);
Error_Record last_error(Error_Store& store);
Error_Code last_error_code(Error_Store& store);
// Writes every record of every thread; nothing when the stream is not good.
void dump_all_error_info(Error_Store& store, std::ostream& out);

}  // namespace vrk

// Pushes a record naming this source line.
#define VRK_PUSH_ERROR(code) \
    ::vrk::push_error(::vrk::get_error_store(), (code), std::string(__FILE__), __LINE__)
