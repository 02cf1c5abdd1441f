// The random-access file layer: block cache recency and eviction, the three door modes against
// the bytes on disk, and the exact failure texts every caller may see.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/platform.h"
#include "file_operation/Data_Block_List.h"
#include "file_operation/File_Anywhere_Door.h"
#include "file_operation/File_Block_Cache.h"
#include "file_operation/File_Memory_Map.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

// The text a failure of the file layer carries.
std::string failure_text(int line, const std::string& function, const std::string& message) {
    return "[code/src/file_operation/File_Anywhere_Door:" + std::to_string(line) + "->" + function +
           "] " + message + "\n";
}

std::string out_of_range(const std::string& unit, uint64_t offset) {
    return unit + " access is illegal ! the offset [" + std::to_string(offset) +
           "]is  out of  range! \n";
}

std::string state_not_fine(const std::string& unit, uint64_t offset) {
    return unit + " state is not fine ! the file [" + std::to_string(offset) +
           "]can not access! \n";
}

void expect_failure(const std::function<void()>& action, const std::string& expected) {
    try {
        action();
        ADD_FAILURE() << "no failure, expected: " << expected;
    } catch (const std::logic_error& error) {
        EXPECT_EQ(error.what(), expected);
    }
}

size_t count_of(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::vector<uint8_t> pattern(size_t size, uint8_t salt = 0) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i * 131 + (i >> 10) * 17 + salt);
    return bytes;
}

// Every test starts with an empty folder of its own under the working folder.
class File_Layer : public ::testing::Test {
  protected:
    std::wstring write_file(const std::string& name, const std::vector<uint8_t>& bytes) {
        test::write_file(m_folder / name, std::string(bytes.begin(), bytes.end()));
        return platform::from_path(m_folder / name);
    }

    // Overwrites one byte in place while readers keep the file open.
    static void patch_byte(const std::wstring& path, uint64_t offset, uint8_t value) {
        std::fstream io(platform::to_path(path), std::ios::in | std::ios::out | std::ios::binary);
        io.seekp(static_cast<std::streamoff>(offset));
        io.put(static_cast<char>(value));
    }

    test::Temp_Folder m_folder{"file_layer"};
};

// ---- block cache

std::vector<uint64_t> cached_offsets(const File_Block_Cache& cache) {
    std::vector<uint64_t> offsets;
    const Data_Block_List& list = cache.blocks();
    for (const Data_Block_Node* node = list.head()->next; node != list.tail(); node = node->next)
        offsets.push_back(node->offset);
    return offsets;
}

TEST_F(File_Layer, CacheKeepsTheMostRecentBlocksAndReloadsEvictedOnes) {
    const std::vector<uint8_t> bytes = pattern(4096);
    const std::wstring path = write_file("lru.bin", bytes);
    File_Block_Cache cache(path, 10, 2);

    for (const uint64_t offset : {0, 1024, 0, 2048})
        EXPECT_EQ(cache.get_char_in_offset(offset), bytes[offset]);
    EXPECT_EQ(cached_offsets(cache), (std::vector<uint64_t>{2048, 0}));

    // Changed on disk: cached blocks keep the old bytes, the evicted block is read again.
    for (const uint64_t offset : {0, 1024, 2048}) patch_byte(path, offset, bytes[offset] ^ 0xFF);
    EXPECT_EQ(cache.get_char_in_offset(0), bytes[0]);
    EXPECT_EQ(cache.get_char_in_offset(2048), bytes[2048]);
    EXPECT_EQ(cached_offsets(cache), (std::vector<uint64_t>{2048, 0}));
    EXPECT_EQ(cache.get_char_in_offset(1024), bytes[1024] ^ 0xFF);
    EXPECT_EQ(cached_offsets(cache), (std::vector<uint64_t>{1024, 2048}));
    EXPECT_EQ(cache.get_char_in_offset(0), bytes[0] ^ 0xFF);
}

TEST_F(File_Layer, CacheEdges) {
    // The last byte of an odd-sized file reads, the next one fails.
    const std::vector<uint8_t> bytes = pattern(1500);
    const std::wstring path = write_file("odd.bin", bytes);
    File_Block_Cache cache(path, 10, 4);
    EXPECT_EQ(cache.get_char_in_offset(1499), bytes[1499]);
    expect_failure([&] { cache.get_char_in_offset(1500); },
                   failure_text(252, "get_char_in_offset", out_of_range("File_Block_Cache", 1500)));
    EXPECT_EQ(cached_offsets(cache), std::vector<uint64_t>{1024});

    // An empty file reads as zeros at every offset.
    File_Block_Cache empty(write_file("empty.bin", {}), 10, 2);
    for (const uint64_t offset : {uint64_t{0}, ~uint64_t{0}})
        EXPECT_EQ(empty.get_char_in_offset(offset), 0);

    // The shift is taken mod 64; a block far larger than the file holds only the file's bytes.
    File_Block_Cache wrapped(path, 64 + 10, 2);
    EXPECT_EQ(wrapped.block_mask(), ~uint64_t{1023});
    File_Block_Cache huge(path, 40, 2);
    EXPECT_EQ(huge.get_char_in_offset(1499), bytes[1499]);
    EXPECT_EQ(huge.blocks().head()->next->length, 1500u);

    // With no capacity every read is served and nothing stays cached.
    File_Block_Cache none(path, 10, 0);
    for (const uint64_t offset : {0, 1200, 0})
        EXPECT_EQ(none.get_char_in_offset(offset), bytes[offset]);
    EXPECT_EQ(none.blocks().size(), 0u);
}

TEST(Data_Block_List_Test, OnlyRealNodesAreRemovedAndOnlySentinelsLackData) {
    Data_Block_List list;
    const std::string refused = failure_text(
        173, "remove", "Data_Block_List outside can not erase the inner node outside !\n");
    Data_Block_Node* head = list.head();
    Data_Block_Node* tail = list.tail();
    expect_failure([&] { list.remove(head); }, refused);
    expect_failure([&] { list.remove(tail); }, refused);
    auto* node = new Data_Block_Node(0, std::make_unique<uint8_t[]>(4), 4);
    list.push_front(node);
    list.remove(node);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(list.head()->next, list.tail());
    EXPECT_EQ(list.tail()->prev, list.head());
    expect_failure(
        [] { Data_Block_Node bad(0, nullptr, 0); },
        failure_text(44, "Data_Block_Node", "Data_Block_Node construct failed ! pdata is null \n"));
}

// ---- the door in every mode

struct Door_Case {
    const char* name;
    Door_Config config;
};

class Door_Modes : public File_Layer, public ::testing::WithParamInterface<Door_Case> {};

// Each access mode (blocks, stream, map), with and without the lock.
const Door_Case kDoorCases[] = {
    {"SmallBlocks", Door_Config{2, 10, 0, false}},
    {"StreamLocked", Door_Config{10, 32, 1, true}},
    {"Mapped", Door_Config{10, 32, 2, false}},
    {"MappedLocked", Door_Config{10, 32, 2, true}},
};

INSTANTIATE_TEST_SUITE_P(File_Layer, Door_Modes, ::testing::ValuesIn(kDoorCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(Door_Modes, EveryByteReadsAsOnDiskAndTheEndIsChecked) {
    const Door_Config config = GetParam().config;
    for (const size_t size : {size_t{1}, size_t{1024}, size_t{5000}}) {
        SCOPED_TRACE(size);
        const std::vector<uint8_t> bytes = pattern(size, static_cast<uint8_t>(size));
        File_Anywhere_Door door(write_file("bytes" + std::to_string(size), bytes), config);
        ASSERT_EQ(door.state(), Door_State::fine);
        ASSERT_EQ(door.file_size(), size);
        for (size_t i = 0; i < size; ++i) {
            ASSERT_EQ(door.get_no_mutex(i), bytes[i]) << i;
            ASSERT_EQ(door.get_with_mutex(size - 1 - i), bytes[size - 1 - i]) << i;
        }
        std::vector<uint8_t> copy(size);
        door.copy_data_to_mem(0, size, copy.data());
        EXPECT_EQ(copy, bytes);

        const std::string door_unit = "File_Anywhere_Door";
        for (const uint64_t past : {uint64_t{size}, ~uint64_t{0}}) {
            expect_failure([&] { door.get_no_mutex(past); },
                           failure_text(689, "get_no_mutex", out_of_range(door_unit, past)));
            expect_failure([&] { door.get_with_mutex(past); },
                           failure_text(655, "get_with_mutex", out_of_range(door_unit, past)));
        }
    }
}

TEST_P(Door_Modes, CopyPastTheEndKeepsWhatWasCopiedAndFailsAtTheEnd) {
    const Door_Config config = GetParam().config;
    const std::vector<uint8_t> bytes = pattern(1500);
    File_Anywhere_Door door(write_file("copy.bin", bytes), config);
    const int line = config.use_mutex ? 655 : 689;
    const char* function = config.use_mutex ? "get_with_mutex" : "get_no_mutex";

    std::vector<uint8_t> copy(20, 0xEE);
    expect_failure([&] { door.copy_data_to_mem(1490, copy.size(), copy.data()); },
                   failure_text(line, function, out_of_range("File_Anywhere_Door", 1500)));
    EXPECT_TRUE(std::equal(copy.begin(), copy.begin() + 10, bytes.begin() + 1490));
    EXPECT_EQ(std::vector<uint8_t>(copy.begin() + 10, copy.end()), std::vector<uint8_t>(10, 0xEE));

    std::vector<uint8_t> untouched(4, 0xEE);
    expect_failure(
        [&] { door.copy_data_to_mem(~uint64_t{0} - 1, 4, untouched.data()); },
        failure_text(line, function, out_of_range("File_Anywhere_Door", ~uint64_t{0} - 1)));
    EXPECT_EQ(untouched, std::vector<uint8_t>(4, 0xEE));

    door.copy_data_to_mem(1500, 0, copy.data());
    door.copy_data_to_mem(1499, 1, copy.data());
    EXPECT_EQ(copy[0], bytes[1499]);
}

TEST_P(Door_Modes, NullDestinationLogsOnceAndReturns) {
    File_Anywhere_Door door(write_file("null.bin", pattern(64)), GetParam().config);
    ::testing::internal::CaptureStderr();
    door.copy_data_to_mem(0, 10, nullptr);
    door.copy_data_to_mem(100, 10, nullptr);
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(count_of(log, "File_Anywhere_Door copy_data_to_mem destination is null !"), 2u);
    EXPECT_EQ(count_of(log, "Line[ 718 ]"), 2u);
}

TEST_P(Door_Modes, OnlyTheMappedModeHasAnOpenView) {
    const std::vector<uint8_t> bytes = pattern(700);
    File_Anywhere_Door door(write_file("view.bin", bytes), GetParam().config);
    Input_View& view = door.view();
    if (GetParam().config.access_mode != 2) {
        EXPECT_FALSE(view.is_open());
        return;
    }
    ASSERT_TRUE(view.is_open());
    EXPECT_EQ(view.size(), bytes.size());
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), view.bytes(0, bytes.size())));
    // The view fails as the door's configured read does.
    std::string expected;
    try {
        door.copy_data_to_mem(699, 2, std::vector<uint8_t>(2).data());
    } catch (const std::logic_error& error) {
        expected = error.what();
    }
    expect_failure([&] { (void)view.bytes(699, 2); }, expected);
}

TEST_F(File_Layer, EmptyFileCannotBeMappedButReadsAsZerosOtherwise) {
    const std::wstring path = write_file("empty.bin", {});
    ::testing::internal::CaptureStderr();
    std::string failure;
    try {
        File_Anywhere_Door door(path, Door_Config{10, 32, 2, false});
    } catch (const std::logic_error& error) {
        failure = error.what();
    }
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(failure,
              failure_text(600, "File_Anywhere_Door",
                           "File_Anywhere_Door construct failed ! the m_file_memory_map init "
                           "failed! \n"));
    EXPECT_EQ(count_of(log, "Error creating file mapping:   ["), 1u);
    EXPECT_EQ(count_of(log, "Line[ 378 ]"), 1u);

    for (const int32_t mode : {0, 1}) {
        File_Anywhere_Door door(path, Door_Config{2, 10, mode, false});
        EXPECT_EQ(door.file_size(), 0u);
        EXPECT_EQ(door.get_no_mutex(0), 0);
        EXPECT_EQ(door.get_with_mutex(uint64_t{1} << 40), 0);
        EXPECT_EQ(door.get_no_mutex(~uint64_t{0}), 0);
        std::vector<uint8_t> copy(8, 0xEE);
        door.copy_data_to_mem(123, copy.size(), copy.data());
        EXPECT_EQ(copy, std::vector<uint8_t>(8, 0));
    }
}

TEST_F(File_Layer, UnknownModeIsSilentUntilTheFirstRead) {
    const std::wstring path = write_file("mode5.bin", pattern(100));
    ::testing::internal::CaptureStderr();
    File_Anywhere_Door door(path, Door_Config{10, 32, 5, false});
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(door.state(), Door_State::failed);
    EXPECT_FALSE(door.view().is_open());

    const std::string unit = "File_Anywhere_Door";
    expect_failure([&] { door.get_no_mutex(0); },
                   failure_text(683, "get_no_mutex", state_not_fine(unit, 0)));
    expect_failure([&] { door.get_with_mutex(7); },
                   failure_text(649, "get_with_mutex", state_not_fine(unit, 7)));
    expect_failure([&] { door.view().fail_at(100); },
                   failure_text(683, "get_no_mutex", state_not_fine(unit, 100)));
    uint8_t byte = 0xEE;
    expect_failure([&] { door.copy_data_to_mem(3, 1, &byte); },
                   failure_text(683, "get_no_mutex", state_not_fine(unit, 3)));
    EXPECT_EQ(byte, 0xEE);
}

TEST_F(File_Layer, FailuresAreLoggedWithTheFirstLineNumber) {
    File_Anywhere_Door door(write_file("log.bin", pattern(10)), Door_Config{});
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(door.get_no_mutex(10), std::logic_error);
    EXPECT_THROW(door.get_with_mutex(11), std::logic_error);
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(count_of(log, "File[ code/src/file_operation/File_Anywhere_Door ], Line[ 688 ]"), 1u);
    EXPECT_EQ(count_of(log, "Line[ 654 ]"), 1u);
    EXPECT_EQ(count_of(log, out_of_range("File_Anywhere_Door", 11)), 1u);
}

TEST_F(File_Layer, OpenFailuresNameTheFile) {
    const std::wstring missing = platform::from_path(m_folder.path() / "missing.bin");
    const std::wstring folder = platform::from_path(m_folder.path());
    const auto text = [](int line, const std::string& unit, const std::wstring& path,
                         const char* what) {
        return failure_text(line, unit,
                            unit + " construct failed ! the file [" + platform::to_utf8(path) +
                                "]" + what + "! \n");
    };
    expect_failure([&] { File_Block_Cache cache(missing, 10, 2); },
                   text(210, "File_Block_Cache", missing, "can not open"));
    expect_failure([&] { File_Memory_Map map(missing); },
                   text(358, "File_Memory_Map", missing, "can not open"));
    for (const Door_Case& c : kDoorCases) {
        expect_failure([&] { File_Anywhere_Door door(missing, c.config); },
                       text(532, "File_Anywhere_Door", missing, "is not exist"));
        expect_failure([&] { File_Anywhere_Door door(folder, c.config); },
                       text(544, "File_Anywhere_Door", folder, "can not open"));
    }
}

}  // namespace
}  // namespace vrk
