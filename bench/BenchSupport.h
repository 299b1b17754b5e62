// Shared set-up for the benchmarks: a throwaway folder, files of a given size, a library object
// whose failure dialogs never block.
#pragma once

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include <zrkKVL/clsKVN.h>

namespace zrk::bench {

// A folder removed at exit.
const std::string& scratchDir();
std::string writeScratch(const std::string& name, const std::string& bytes);
std::string readWhole(const std::string& path);

// The library on this thread with scripted dialogs.
clsKVN& library();

}  // namespace zrk::bench
