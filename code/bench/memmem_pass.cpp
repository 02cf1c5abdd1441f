// The file check's floor as a process of its own: maps FILE read-only and counts every
// occurrence of the 22-byte root entry name with one memmem pass, as check_bench's
// BM_MemmemPass does in process. Prints the count; exit status 2 when FILE cannot be mapped.

#include <cstdint>
#include <cstdio>

#include "common/platform.h"
#include "memmem_count.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: memmem_pass FILE\n", stderr);
        return 2;
    }
    vrk::platform::Mapped_File mapped;
    if (vrk::platform::map_file(vrk::platform::widen(argv[1]), mapped) !=
        vrk::platform::Map_Step::ok) {
        std::fprintf(stderr, "memmem_pass: cannot map %s\n", argv[1]);
        return 2;
    }
    const uint64_t hits = vrk::bench::count_root_names(mapped.data, mapped.size);
    std::printf("%llu\n", static_cast<unsigned long long>(hits));
    return 0;
}
