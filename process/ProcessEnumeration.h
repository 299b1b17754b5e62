// The pieces of the process-list operations that stand on their own: the id list and the rule
// by which the result list grows.
#pragma once

#include <cstdint>
#include <vector>

#include <zrkKVL/Text.h>
#include <zrkKVL/Variant.h>

namespace zrk::process {

// The running process ids as the doubling loop gets them: the buffer grows from 16 bytes until
// a call leaves room in it.
std::vector<uint32_t> runningProcessIds();

// The ids of every process whose name is `name` in every character, as GetRunningProcesses
// names them, in the platform's order; that operation gives the last of them alone. Failures
// reach the caller.
std::vector<int32_t> processIdsNamed(TextView name);

// Appends `name` to the result list: an empty last element is overwritten, otherwise the list
// grows by one.
void appendToResultList(VariantArray& list, Text name);

}  // namespace zrk::process
