// The check's floor: every occurrence of the 22-byte root entry name counted with one memmem
// pass over the bytes (the check benchmarks and the memmem_pass process share it).
#pragma once

#include <string.h>

#include <cstdint>

#include "cfb_vornak/probe/Root_Signature_Search.h"

namespace vrk::bench {

inline uint64_t count_root_names(const uint8_t* data, uint64_t size) {
    uint64_t hits = 0;
    const uint8_t* at = data;
    const uint8_t* const end = data + size;
    const auto& needle = kRootEntrySignature;
    while (const void* hit =
               memmem(at, static_cast<std::size_t>(end - at), needle.data(), needle.size())) {
        ++hits;
        at = static_cast<const uint8_t*>(hit) + 1;
    }
    return hits;
}

}  // namespace vrk::bench
