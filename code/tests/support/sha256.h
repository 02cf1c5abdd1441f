// SHA-256 of a byte buffer, as lower-case hex: lets a manifest name stream contents that an
// outside reader compares without the test handing it the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vrk::test {

std::string sha256_hex(const uint8_t* data, std::size_t size);

}  // namespace vrk::test
