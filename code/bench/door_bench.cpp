// Reading a file through the door: 4-byte entries and 512-byte sectors through the door's
// checked view (what the parser's readers do), against get_no_mutex / get_with_mutex byte by
// byte in each mode, and runs copied with copy_data_to_mem. The input is written to the current
// folder and removed at exit.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/byte_order.h"
#include "common/platform.h"
#include "file_operation/File_Anywhere_Door.h"
#include "file_operation/Input_View.h"

namespace {

namespace stdfs = std::filesystem;

constexpr uint64_t kFileSize = uint64_t{4} << 20;
constexpr uint64_t kSectorSize = 512;

// The input file, written once on first use.
class Bench_Input {
  public:
    static const std::wstring& path() {
        static Bench_Input input;
        return input.m_path;
    }

    Bench_Input(const Bench_Input&) = delete;
    Bench_Input& operator=(const Bench_Input&) = delete;

  private:
    Bench_Input() : m_file(stdfs::current_path() / "door_bench_input.bin") {
        std::vector<char> bytes(kFileSize);
        for (uint64_t i = 0; i < kFileSize; ++i) {
            bytes[i] = static_cast<char>((i * 131 + (i >> 9)) & 0xFF);
        }
        std::ofstream out(m_file, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        m_path = vrk::platform::from_path(m_file);
    }
    ~Bench_Input() {
        std::error_code ignored;
        stdfs::remove(m_file, ignored);
    }

    stdfs::path m_file;
    std::wstring m_path;
};

vrk::Door_Config config_for(int32_t mode) {
    vrk::Door_Config config;
    config.access_mode = static_cast<vrk::Access_Mode>(mode);
    if (mode == 0) {
        config.block_size_shift = 12;
        config.cache_block_count = 64;
    }
    return config;
}

// range(0): the bytes of one read through the view (4: a table entry; 512: a sector).
void BM_ViewRead(benchmark::State& state) {
    vrk::File_Anywhere_Door door(Bench_Input::path(), config_for(2));
    vrk::Input_View& view = door.view();
    const auto length = static_cast<std::size_t>(state.range(0));
    while (state.KeepRunning()) {
        uint64_t sum = 0;
        for (uint64_t offset = 0; offset + length <= kFileSize; offset += length) {
            sum += vrk::read_u32_le(view.bytes(offset, length));
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_ViewRead)->ArgName("bytes")->Arg(4)->Arg(512);

// range(0): the access mode; range(1): 1 to read through get_with_mutex.
void BM_ByteRead(benchmark::State& state) {
    const auto mode = static_cast<int32_t>(state.range(0));
    const bool with_mutex = state.range(1) != 0;
    vrk::File_Anywhere_Door door(Bench_Input::path(), config_for(mode));
    // The stream mode seeks for every byte; a smaller span keeps its run short.
    const uint64_t span = mode == 1 ? kFileSize / 256 : kFileSize;
    while (state.KeepRunning()) {
        uint64_t sum = 0;
        for (uint64_t offset = 0; offset < span; ++offset) {
            sum += with_mutex ? door.get_with_mutex(offset) : door.get_no_mutex(offset);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * span));
}
BENCHMARK(BM_ByteRead)->ArgNames({"mode", "mutex"})->ArgsProduct({{0, 1, 2}, {0, 1}});

// Whole sectors copied with copy_data_to_mem; range(0): the access mode.
void BM_SectorCopy(benchmark::State& state) {
    const auto mode = static_cast<int32_t>(state.range(0));
    vrk::File_Anywhere_Door door(Bench_Input::path(), config_for(mode));
    const uint64_t span = mode == 1 ? kFileSize / 256 : kFileSize;
    std::vector<uint8_t> sector(kSectorSize);
    while (state.KeepRunning()) {
        for (uint64_t offset = 0; offset + kSectorSize <= span; offset += kSectorSize) {
            door.copy_data_to_mem(offset, kSectorSize, sector.data());
            benchmark::DoNotOptimize(sector.data());
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * span));
}
BENCHMARK(BM_SectorCopy)->ArgName("mode")->DenseRange(0, 2);

}  // namespace

BENCHMARK_MAIN();
