// Writes every sample shape with its manifest into FOLDER, so that a build for another platform
// (the Windows one under Wine) makes files that olefile_check.py then checks natively.
#include <cstdio>
#include <filesystem>
#include <string>

#include "common/platform.h"
#include "support/sample_shapes.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: builder_sample_writer FOLDER\n");
        return 2;
    }
    const std::wstring folder = vrk::platform::widen(argv[1]);
    std::filesystem::create_directories(vrk::platform::to_path(folder));
    int failures = 0;
    for (const std::string& name : vrk::test::sample_shape_names()) {
        std::string error;
        if (!vrk::test::write_sample_files(folder, vrk::test::make_sample_shape(name), error)) {
            std::fprintf(stderr, "%s: %s\n", name.c_str(), error.c_str());
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
