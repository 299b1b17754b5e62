// Stand-in for the platform's profile operations over INI files. Text crosses through the code
// page; sections and keys compare without regard to case. A null pointer is a null argument.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <zrkKVL/Text.h>
#include "platform/files/Paths.h"

namespace zrk::platform {

// With section and key: the key's value (or `def`) into `buffer`, cut to size - 1 characters;
// gives the count written. With both null: every section name, each ended by NUL, then one
// more NUL; a list that does not fit is cut, ends in two NULs and gives size - 2.
// `buffer` must hold at least `size` characters.
int32_t GetPrivateProfileStringA(const Text* section, const Text* key, TextView def, Text& buffer,
                                 int32_t size, TextView file);

// Every section name of `file`, in file order, read through the list above in a buffer of
// `firstSize` characters, twice as large for as long as the list comes back cut, the last try at
// the largest size there is. `whole` is false when even that list was cut.
struct SectionNames {
  std::vector<Text> names;
  bool whole = true;
};
SectionNames allSectionNames(TextView file, int64_t firstSize);

// The key's value (or `def`, without its trailing blanks), cut to size - 1 characters, for a
// file resolved already.
Text profileString(const Text& section, const Text& key, TextView def, int32_t size,
                   const ResolvedPath& file);

// The section's lines as key=value, each ended by NUL, then one more NUL; gives the count
// without that last NUL, 0 for an absent section or file.
int32_t GetPrivateProfileSectionA(TextView section, Text& buffer, int32_t size, TextView file);
// The same for a file resolved already.
int32_t GetPrivateProfileSectionA(TextView section, Text& buffer, int32_t size,
                                  const ResolvedPath& file);

// Sets a key, making file, section and key as needed; a null value deletes the key, a null key
// deletes the section. Gives false and changes nothing when the write cannot be done.
bool WritePrivateProfileStringA(const Text* section, const Text* key, const Text* value,
                                TextView file);

// One change of a profile file, as WritePrivateProfileStringA takes it.
struct ProfileEdit {
  const Text* section;
  const Text* key;
  const Text* value;
};

// Makes the changes in order, each on what the ones before it left, and replaces the file once
// with the result: the same bytes as the changes written one by one. Gives false and changes
// nothing when one of them cannot be made or the file cannot be written.
bool writeProfileEdits(std::span<const ProfileEdit> edits, TextView file);

}  // namespace zrk::platform
