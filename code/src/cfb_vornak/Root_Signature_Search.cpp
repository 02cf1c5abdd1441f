#include "cfb_vornak/Root_Signature_Search.h"

#include <cstring>
#include <vector>

namespace vrk {

namespace {
// Large enough to run at memory speed, small enough to stay out of the resident set.
constexpr std::size_t kBlockSize = std::size_t{1} << 20;
}  // namespace

const uint8_t* find_root_entry_signature(const uint8_t* data, std::size_t size) {
    constexpr std::size_t n = kRootEntrySignature.size();
    if (data == nullptr || size < n) return nullptr;
    // Anchored on the leading 'R': memchr skips runs of any other byte (zeros above all,
    // where shift-table searches crawl) at vector speed, and a candidate costs one compare.
    const uint8_t* const last = data + (size - n);
    for (const uint8_t* p = data; p <= last; ++p) {
        const void* hit =
            std::memchr(p, kRootEntrySignature[0], static_cast<std::size_t>(last - p) + 1);
        if (hit == nullptr) return nullptr;
        p = static_cast<const uint8_t*>(hit);
        if (std::memcmp(p + 1, kRootEntrySignature.data() + 1, n - 1) == 0) return p;
    }
    return nullptr;
}

bool stream_holds_root_entry_signature(std::istream& in) {
    constexpr std::size_t overlap = kRootEntrySignature.size() - 1;
    std::vector<uint8_t> block(kBlockSize + overlap);
    std::size_t carried = 0;
    // Every round reads at least one byte or ends, so the loop ends at the end of the stream.
    while (in) {
        in.read(reinterpret_cast<char*>(block.data() + carried),
                static_cast<std::streamsize>(kBlockSize));
        const auto got = static_cast<std::size_t>(in.gcount());
        if (got == 0) break;
        const std::size_t filled = carried + got;
        if (find_root_entry_signature(block.data(), filled) != nullptr) return true;
        carried = filled < overlap ? filled : overlap;
        std::memmove(block.data(), block.data() + filled - carried, carried);
    }
    return false;
}

}  // namespace vrk
