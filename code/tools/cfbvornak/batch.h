// Many files at once: the inputs named on the line (folders walked with --recursive), worker
// threads taking them in order, a progress line on a terminal, and the output of each file
// printed whole as it completes.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vrk::cli {

// The files to work on: each name as given (resolved against the start folder), or with
// `recursive` every regular file below it. A folder without `recursive`, or a part of a tree
// that cannot be listed, is a problem ("path: reason") instead. `relative[i]` is files[i]'s
// path below the folder it was found in (its own name when it was given as a file).
struct Batch_Inputs {
    std::vector<std::string> files;
    std::vector<std::string> relative;
    std::vector<std::string> problems;
};
Batch_Inputs collect_inputs(const std::vector<std::string>& given, bool recursive);

// What one file produced: the text for standard output (whole lines), for standard error, and
// the file's category for the totals.
struct Batch_Item {
    std::string out;
    std::string err;
    int category = 0;
};

// Runs `work` on every file with `jobs` worker threads (0: one per processor), printing each
// item as soon as it is done (in the order of completion when jobs > 1). With `progress`, a
// line with count, rate and time left is kept on standard error while it runs. Returns the
// number of files per category (indexes 0 .. `categories` - 1).
// `work` gets the index of the file.
std::vector<std::size_t> run_batch(const std::vector<std::string>& files, unsigned jobs,
                                   bool progress, std::size_t categories,
                                   const std::function<Batch_Item(std::size_t)>& work);

}  // namespace vrk::cli
