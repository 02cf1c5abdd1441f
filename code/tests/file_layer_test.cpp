// The random-access file layer: block cache recency and eviction, the three door modes against
// the bytes on disk, and the exact failure texts every caller may see.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "common/platform.h"
#include "file_operation/Data_Block_List.h"
#include "file_operation/File_Anywhere_Door.h"
#include "file_operation/File_Block_Cache.h"
#include "file_operation/File_Memory_Map.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::count_of;
using test::door_failure;
using test::out_of_range;
using test::thrown;
const std::string kDoor = "File_Anywhere_Door";

class File_Layer : public ::testing::Test {
  protected:
    std::wstring write_file(const std::string& name, const std::vector<uint8_t>& bytes) {
        test::write_file(m_folder / name, std::string(bytes.begin(), bytes.end()));
        return platform::from_path(m_folder / name);
    }
    test::Temp_Folder m_folder{"file_layer"};
};

std::vector<uint64_t> cached_offsets(const File_Block_Cache& cache) {
    std::vector<uint64_t> offsets;
    const Data_Block_List& list = cache.blocks();
    for (const Data_Block_Node* node = list.head()->next; node != list.tail(); node = node->next)
        offsets.push_back(node->offset);
    return offsets;
}

TEST_F(File_Layer, CacheKeepsTheMostRecentBlocksAndReloadsEvictedOnes) {
    const std::vector<uint8_t> bytes = test::random_bytes(4096, 1);
    const std::wstring path = write_file("lru.bin", bytes);
    File_Block_Cache cache(path, 10, 2);
    for (const uint64_t offset : {0, 1024, 0, 2048})
        EXPECT_EQ(cache.get_char_in_offset(offset), bytes[offset]);
    EXPECT_EQ(cached_offsets(cache), (std::vector<uint64_t>{2048, 0}));
    // Changed on disk while open: cached blocks keep the old bytes, an evicted one is read again.
    for (const uint64_t offset : {0, 1024, 2048}) {
        std::fstream io(platform::to_path(path), std::ios::in | std::ios::out | std::ios::binary);
        io.seekp(static_cast<std::streamoff>(offset));
        io.put(static_cast<char>(bytes[offset] ^ 0xFF));
    }
    EXPECT_EQ(cache.get_char_in_offset(2048), bytes[2048]);
    EXPECT_EQ(cache.get_char_in_offset(1024), bytes[1024] ^ 0xFF);
    EXPECT_EQ(cached_offsets(cache), (std::vector<uint64_t>{1024, 2048}));
    EXPECT_EQ(cache.get_char_in_offset(0), bytes[0] ^ 0xFF);
    // The last byte of an odd-sized file reads and the next fails; the shift is taken mod 64; with
    // no capacity every read is served and nothing stays cached.
    const std::vector<uint8_t> odd = test::random_bytes(1500, 2);
    const std::wstring odd_path = write_file("odd.bin", odd);
    File_Block_Cache four(odd_path, 10, 4);
    EXPECT_EQ(four.get_char_in_offset(1499), odd[1499]);
    EXPECT_EQ(thrown([&] { four.get_char_in_offset(1500); }),
              door_failure(252, "get_char_in_offset", out_of_range("File_Block_Cache", 1500)));
    EXPECT_EQ(cached_offsets(four), std::vector<uint64_t>{1024});
    EXPECT_EQ(File_Block_Cache(odd_path, 64 + 10, 2).block_mask(), ~uint64_t{1023});
    File_Block_Cache none(odd_path, 10, 0);
    for (const uint64_t offset : {0, 1200, 0})
        EXPECT_EQ(none.get_char_in_offset(offset), odd[offset]);
    EXPECT_EQ(none.blocks().size(), 0u);
}

// The door in every mode (blocks, stream, map), with and without the lock.
class Door_Modes : public File_Layer, public ::testing::WithParamInterface<Door_Config> {};
INSTANTIATE_TEST_SUITE_P(File_Layer, Door_Modes,
                         ::testing::Values(Door_Config{2, 10, Access_Mode::block_cache, false},
                                           Door_Config{10, 32, Access_Mode::direct_stream, true},
                                           Door_Config{10, 32, Access_Mode::memory_map, false},
                                           Door_Config{10, 32, Access_Mode::memory_map, true}));

TEST_P(Door_Modes, EveryByteReadsAsOnDiskAndTheEndIsChecked) {
    const Door_Config config = GetParam();
    for (const size_t size : {size_t{1}, size_t{1024}, size_t{5000}}) {
        SCOPED_TRACE(size);
        const std::vector<uint8_t> bytes = test::random_bytes(size, size);
        File_Anywhere_Door door(write_file("bytes" + std::to_string(size), bytes), config);
        ASSERT_EQ(door.file_size(), size);
        for (size_t i = 0; i < size; ++i) {
            ASSERT_EQ(door.get_no_mutex(i), bytes[i]) << i;
            ASSERT_EQ(door.get_with_mutex(size - 1 - i), bytes[size - 1 - i]) << i;
        }
        std::vector<uint8_t> copy(size);
        door.copy_data_to_mem(0, size, copy.data());
        EXPECT_EQ(copy, bytes);
        for (const uint64_t past : {uint64_t{size}, ~uint64_t{0}}) {
            EXPECT_EQ(thrown([&] { door.get_no_mutex(past); }),
                      door_failure(689, "get_no_mutex", out_of_range(kDoor, past)));
            EXPECT_EQ(thrown([&] { door.get_with_mutex(past); }),
                      door_failure(655, "get_with_mutex", out_of_range(kDoor, past)));
        }
    }
    // A copy past the end keeps what was copied and fails at the end, as the configured read; a
    // null destination is logged and returns; only the mapped modes have an open view, which
    // fails as the configured read does.
    const std::vector<uint8_t> bytes = test::random_bytes(1500, 2);
    File_Anywhere_Door door(write_file("copy.bin", bytes), config);
    const std::string past_end =
        config.use_mutex ? door_failure(655, "get_with_mutex", out_of_range(kDoor, 1500))
                         : door_failure(689, "get_no_mutex", out_of_range(kDoor, 1500));
    std::vector<uint8_t> copy(20, 0xEE);
    EXPECT_EQ(thrown([&] { door.copy_data_to_mem(1490, copy.size(), copy.data()); }), past_end);
    EXPECT_TRUE(std::equal(copy.begin(), copy.begin() + 10, bytes.begin() + 1490));
    EXPECT_EQ(std::vector<uint8_t>(copy.begin() + 10, copy.end()), std::vector<uint8_t>(10, 0xEE));
    door.copy_data_to_mem(1500, 0, copy.data());
    door.copy_data_to_mem(1499, 1, copy.data());
    EXPECT_EQ(copy[0], bytes[1499]);
    ::testing::internal::CaptureStderr();
    door.copy_data_to_mem(0, 10, nullptr);
    door.copy_data_to_mem(100, 10, nullptr);
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(count_of(log, "File_Anywhere_Door copy_data_to_mem destination is null !"), 2u);
    EXPECT_EQ(count_of(log, "Line[ 718 ]"), 2u);
    ASSERT_EQ(door.view().is_open(), config.access_mode == Access_Mode::memory_map);
    if (config.access_mode != Access_Mode::memory_map) return;
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), door.view().bytes(0, bytes.size())));
    EXPECT_EQ(thrown([&] { (void)door.view().bytes(1499, 2); }), past_end);
}

// An empty file cannot be mapped but reads as zeros in the other modes; missing files and
// folders fail to open, naming the file.
TEST_F(File_Layer, DoorsThatCannotRead) {
    const std::wstring empty = write_file("empty.bin", {});
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(
        thrown([&] {
            File_Anywhere_Door door(empty, Door_Config{10, 32, Access_Mode::memory_map, false});
        }),
        door_failure(600, kDoor,
                     "File_Anywhere_Door construct failed ! the m_file_memory_map init "
                     "failed! \n"));
    std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(count_of(log, "Error creating file mapping:   ["), 1u);
    EXPECT_EQ(count_of(log, "Line[ 378 ]"), 1u);
    for (const Access_Mode mode : {Access_Mode::block_cache, Access_Mode::direct_stream}) {
        File_Anywhere_Door door(empty, Door_Config{2, 10, mode, false});
        EXPECT_EQ(door.file_size(), 0u);
        EXPECT_EQ(door.get_no_mutex(~uint64_t{0}), 0);
        EXPECT_EQ(door.get_with_mutex(uint64_t{1} << 40), 0);
    }
    const std::wstring missing = platform::from_path(m_folder / "missing.bin");
    const std::wstring folder = platform::from_path(m_folder.path());
    const auto text = [](int line, const std::string& unit, const std::wstring& file,
                         const char* what) {
        return door_failure(line, unit,
                            unit + " construct failed ! the file [" + platform::to_utf8(file) +
                                "]" + what + "! \n");
    };
    EXPECT_EQ(thrown([&] { File_Block_Cache cache(missing, 10, 2); }),
              text(210, "File_Block_Cache", missing, "can not open"));
    EXPECT_EQ(thrown([&] { File_Memory_Map map(missing); }),
              text(358, "File_Memory_Map", missing, "can not open"));
    EXPECT_EQ(thrown([&] { File_Anywhere_Door door(missing, Door_Config{}); }),
              text(532, kDoor, missing, "is not exist"));
    EXPECT_EQ(
        thrown([&] {
            File_Anywhere_Door door(folder, Door_Config{2, 10, Access_Mode::block_cache, false});
        }),
        text(544, kDoor, folder, "can not open"));
}

}  // namespace
}  // namespace vrk
